#pragma once

#include <cstdint>
#include <string>

/** How far this program, or a command that it has started, has read a file. Any thread. */
namespace filePosition {

/** In bytes; 0 when none of them has it open. */
std::uint64_t of(const std::string& file);

} // namespace filePosition
