#include "text.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <system_error>

namespace sim {

std::string format(const char* pattern, ...) {
    std::array<char, 256> text{};
    va_list arguments;
    va_start(arguments, pattern);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized)
    std::vsnprintf(text.data(), text.size(), pattern, arguments);
    va_end(arguments);
    return text.data();
}

std::string toHex(std::span<const std::uint8_t> bytes) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string text;
    text.reserve(2 * bytes.size());
    for (const std::uint8_t byte : bytes) {
        text += digits[byte >> 4];
        text += digits[byte & 0x0F];
    }
    return text;
}

Bytes fromHex(std::string_view digits) {
    if (digits.size() % 2 != 0)
        throw std::invalid_argument("odd number of hexadecimal digits: " + std::string(digits));
    Bytes bytes;
    for (std::size_t i = 0; i < digits.size(); i += 2)
        bytes.push_back(static_cast<std::uint8_t>(toNumber(digits.substr(i, 2), 16)));
    return bytes;
}

std::uint32_t toNumber(std::string_view text, int base, std::uint32_t max) {
    std::uint32_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    if (error != std::errc() || end != text.data() + text.size() || value > max)
        throw std::invalid_argument("not a number that fits: '" + std::string(text) + "'");
    return value;
}

std::string readText(const std::string& file) {
    std::ifstream stream(file);
    std::error_code ignored;
    if (std::filesystem::is_directory(file, ignored))
        throw std::system_error(EISDIR, std::generic_category(), file);
    if (!stream)
        throw std::system_error(errno, std::generic_category(), file);
    return {std::istreambuf_iterator<char>(stream), {}};
}

std::vector<std::string> words(std::string_view line) {
    std::istringstream stream{std::string(line.substr(0, line.find('#')))};
    std::vector<std::string> list;
    for (std::string word; stream >> word;)
        list.push_back(word);
    return list;
}

std::pair<std::string, std::string> keyValue(const std::string& word) {
    const auto equals = word.find('=');
    if (equals == std::string::npos)
        return {word, ""};
    return {word.substr(0, equals), word.substr(equals + 1)};
}

} // namespace sim
