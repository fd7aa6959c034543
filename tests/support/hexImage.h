#pragma once

#include "sim/panel/hexImage.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

// Lines of Intel HEX files.

using panel::hexRecord;
using panel::hexUpper;

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
