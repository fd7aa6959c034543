#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

// Lines of Intel HEX files.

inline std::string hexRecord(std::uint8_t type, std::uint16_t address,
                             const std::vector<std::uint8_t>& data) {
    std::vector<std::uint8_t> bytes = {static_cast<std::uint8_t>(data.size()),
                                       static_cast<std::uint8_t>(address >> 8),
                                       static_cast<std::uint8_t>(address & 0xFF), type};
    bytes.insert(bytes.end(), data.begin(), data.end());
    bytes.push_back(static_cast<std::uint8_t>(-std::accumulate(bytes.begin(), bytes.end(), 0)));
    std::string line = ":";
    for (const std::uint8_t byte : bytes) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02X", byte);
        line += digits;
    }
    return line + "\n";
}

/** The type 04 record for the upper half of an address. */
inline std::string hexUpper(std::uint32_t address) {
    return hexRecord(4, 0,
                     {static_cast<std::uint8_t>(address >> 24), static_cast<std::uint8_t>(address >> 16)});
}

/** The bytes 0, 1, 2... */
inline std::vector<std::uint8_t> counting(std::size_t count, std::size_t from = 0) {
    std::vector<std::uint8_t> bytes(count);
    std::iota(bytes.begin(), bytes.end(), static_cast<std::uint8_t>(from));
    return bytes;
}

/** A file with `count` bytes 0, 1, 2... from each of the addresses, which ascend. */
inline std::string hexImage(const std::vector<std::pair<std::uint32_t, std::size_t>>& runs) {
    std::string text;
    for (const auto& [start, count] : runs) {
        text += hexUpper(start);
        for (std::size_t at = 0; at < count; at += 16) {
            text += hexRecord(0, static_cast<std::uint16_t>(start + at),
                              counting(std::min<std::size_t>(16, count - at), at));
        }
    }
    return text + hexRecord(1, 0, {});
}
