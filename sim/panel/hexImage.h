// Firmware images in Intel HEX. Shares no code with what reads and writes them elsewhere, so that what was
// flashed can be compared by it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace panel {

// Bytes by their address in a HEX file; what is not there is erased.
using Memory = std::map<std::uint32_t, std::uint8_t>;

std::string hexRecord(std::uint8_t type, std::uint16_t address, const std::vector<std::uint8_t>& data);
// The type 04 record for the upper half of an address.
std::string hexUpper(std::uint32_t address);
// The whole file. `longest` says of each record how many bytes it may have.
std::string hexFile(
    const Memory& image, const std::function<std::size_t()>& longest = [] { return 16; });

// Throws std::runtime_error for a file that can't be read or a record whose sum is wrong.
Memory readHexFile(const std::string& path);

// Empty when equal, else the first difference. Of packed instructions every fourth byte is none of the flash.
std::string difference(const Memory& flash, const Memory& expected, bool packed = false);

} // namespace panel
