// Tells programs from other files by their first bytes.
#pragma once

#include <filesystem>

namespace package {

// A script with "#!", or an ELF program (not a shared library, object file or kernel module). False for what
// can't be read.
bool isProgram(const std::filesystem::path& file);

} // namespace package
