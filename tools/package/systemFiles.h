// The checks of what runs on the panel itself: programs and kernels, which must be for its processor.
#pragma once

#include "elfFile.h"
#include "finding.h"

#include <filesystem>
#include <string>

namespace package {

// `name` is what findings call the file; without a machine, programs may be for any.
void checkProgramFile(const std::filesystem::path& path, const std::string& name, const Machine* machine,
                      Findings& findings);
// The program that the panel starts: it must be one.
void checkUpdaterFile(const std::filesystem::path& path, const std::string& name, Findings& findings);
// Whether it can be started: a script, or an ELF program (no shared library, object file or kernel module).
bool isProgramFile(const std::filesystem::path& path);
// An image that a boot loader knows how to start.
void checkKernelFile(const std::filesystem::path& path, const std::string& name, const Machine* machine,
                     Findings& findings);

} // namespace package
