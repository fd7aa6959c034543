#include "hexText.h"

#include <array>
#include <fstream>
#include <sstream>

namespace hexText {
namespace {

constexpr std::size_t READ_BYTES = 0x10000;
constexpr std::size_t SHORTEST_RECORD = 11;
constexpr std::size_t MAX_DIGITS = 8;   // of 32 bits
constexpr std::uint8_t NO_DIGIT = 0xFF; // also when combined with a digit by "or"

constexpr auto DIGIT_VALUES = [] {
    std::array<std::uint8_t, 256> values{};
    values.fill(NO_DIGIT);
    for (std::uint8_t i = 0; i < 10; ++i) {
        values[std::size_t{'0'} + i] = i;
    }
    for (std::uint8_t i = 0; i < 6; ++i) {
        values[std::size_t{'a'} + i] = values[std::size_t{'A'} + i] = static_cast<std::uint8_t>(10 + i);
    }
    return values;
}();

std::uint8_t digitValue(char c) {
    return DIGIT_VALUES[static_cast<unsigned char>(c)];
}

std::uint32_t convertByStream(std::string_view text) {
    std::istringstream stream{std::string(text)};
    std::uint32_t value = 0;
    stream >> std::hex >> value;
    return value;
}

// Hands over the whole lines in `text`, of which the first `searched` bytes hold no line end. Returns
// the number of bytes handed over.
std::size_t takeLines(std::string_view text, std::size_t searched,
                      const std::function<void(std::string_view)>& take) {
    std::size_t start = 0;
    for (std::size_t end = text.find('\n', searched); end != text.npos; end = text.find('\n', start)) {
        take(text.substr(start, end - start));
        start = end + 1;
    }
    return start;
}

} // namespace

bool forEachLine(const std::string& fileName, const std::function<void(std::string_view)>& take) {
    std::ifstream file(fileName, std::ios::binary);
    if (!file) {
        return false;
    }

    std::string text; // begins with the part of a line that the previous block left
    while (file) {
        const std::size_t rest = text.size();
        text.resize(rest + READ_BYTES);
        file.read(text.data() + rest, READ_BYTES);
        text.resize(rest + static_cast<std::size_t>(file.gcount()));
        text.erase(0, takeLines(text, rest, take));
    }
    if (file.bad()) {
        return false;
    }
    if (!text.empty()) {
        take(text);
    }
    return true;
}

bool isRecord(std::string_view line) {
    return line.size() >= SHORTEST_RECORD && line.front() == ':';
}

std::uint32_t convertHex(std::string_view text) {
    std::uint32_t value = 0;
    std::size_t digits = 0;
    for (; digits < text.size() && digitValue(text[digits]) != NO_DIGIT; ++digits) {
        value = value << 4 | digitValue(text[digits]);
    }

    // A digit pair and "5\r", the end of every line of some files, need no stream.
    const bool plain = digits == text.size() || (digits > 0 && text[digits] != 'x' && text[digits] != 'X');
    return plain && digits <= MAX_DIGITS ? value : convertByStream(text);
}

std::uint8_t byteAt(std::string_view line, std::size_t position) {
    const std::string_view text = line.substr(position, 2);
    if (text.size() == 2) {
        const unsigned high = digitValue(text[0]);
        const unsigned low = digitValue(text[1]);
        if ((high | low) != NO_DIGIT) {
            return static_cast<std::uint8_t>(high << 4 | low);
        }
    }
    return static_cast<std::uint8_t>(convertHex(text));
}

} // namespace hexText
