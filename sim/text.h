// What the text formats of the simulator share.
#pragma once

#include "protocol.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace sim {

// The kernel's monotonic clock, so that a deadline can be given to a timer as it is.
using Clock = std::chrono::steady_clock;
using TimePoint = Clock::time_point;

[[gnu::format(printf, 1, 2)]] std::string format(const char* pattern, ...);

// Upper case digits without separators.
std::string toHex(std::span<const std::uint8_t> bytes);
// Throws std::invalid_argument for anything but pairs of hexadecimal digits.
Bytes fromHex(std::string_view digits);

// Throws std::invalid_argument when text is not a whole number of the given base, or above max.
std::uint32_t toNumber(std::string_view text, int base = 10, std::uint32_t max = 0xFFFFFFFF);

// A whole file. Throws std::system_error, with its name, when it can't be read.
std::string readText(const std::string& file);

// Words separated by blanks; a # starts a comment.
std::vector<std::string> words(std::string_view line);
// "key=value"; a word without = is a key with an empty value.
std::pair<std::string, std::string> keyValue(const std::string& word);

// The row of that name. Throws std::invalid_argument, which tells what it was to be the name of, when there
// is none.
template <class Row, std::size_t COUNT>
const Row& named(const Row (&table)[COUNT], const std::string& name, const char* what) {
    for (const Row& row : table)
        if (row.name == name)
            return row;
    throw std::invalid_argument(std::string("unknown ") + what + " '" + name + "'");
}

} // namespace sim
