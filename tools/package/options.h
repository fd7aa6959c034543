// The command line.
#pragma once

#include "build.h"
#include "package.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace package {

enum class Command { Build, Check, Plan, Show };

struct Options {
    Command command = Command::Check;
    BuildOptions build;
    std::filesystem::path path; // what to check, plan or show
    bool json = false;
    bool strict = false;
    bool force = false;
    bool serial = false;                  // show: the module is on the serial bootloader
    bool isImage = false;                 // the path is a single image
    std::vector<std::string> processors;  // as given
    ProcessorChoice choice;               // of them, those for an item
    const Processor* processor = nullptr; // the one for a single image
    std::filesystem::path installed;
    std::filesystem::path modules;
    std::filesystem::path keys; // public ones, of a panel
    unsigned baud = 115200;
};

// None when the line was answered already (help) or is wrong; `status` is then the program's exit status.
std::optional<Options> parseOptions(int argc, char** argv, int& status);

} // namespace package
