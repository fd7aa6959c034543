#pragma once

#include <cstdint>
#include <string>

/** How far this program, or a command that it has started, has read a file. Any thread. */
namespace filePosition {

/** In bytes; 0 when none of them has it open. `byCommand` is set when it is not this program itself. */
std::uint64_t of(const std::string& file, bool* byCommand = nullptr);

} // namespace filePosition
