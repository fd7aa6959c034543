// The command line.
#pragma once

#include "build.h"
#include "package.h"
#include "report.h"

#include <CLI/CLI.hpp>
#include <filesystem>
#include <string>
#include <vector>

namespace package {

enum class Status { Fine = 0, Bad = 1, Failed = 3 }; // 2: misuse

enum class Command { Build, Check, Plan, Show, Convert, Info, Diff, Report, Support, Init, Completion };

struct Options {
    Command command = Command::Check;
    std::filesystem::path path;   // what to build from, check, plan or show
    std::filesystem::path old;    // what to compare with
    std::filesystem::path output; // what to write
    Rules rules;
    Format format = Format::Text;
    bool json = false;
    std::vector<std::string> allow; // as given
    bool strict = false;
    bool force = false;
    bool fill = true; // convert
    bool crop = false;
    bool serial = false;                  // show: the module is on the serial bootloader
    bool isImage = false;                 // the path is a single image
    std::vector<std::string> processors;  // as given
    const Processor* processor = nullptr; // the one for a single image
    std::string machine = "armhf";
    std::string kernel = "arm";
    std::filesystem::path installed;
    std::filesystem::path modules;
    std::filesystem::path key;  // secret, to sign with; empty: none
    std::filesystem::path keys; // public ones, of a panel
    unsigned baud = 115200;
    std::string shell; // to complete command lines in
};

void declare(CLI::App& app, Options& options);
// What follows from options that were given. Throws CLI::ValidationError.
void complete(Options& options);

} // namespace package
