#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

/** What the image readers share of the Intel HEX text: lines, columns and digits. Holds no state. */
namespace hexText {

/** Columns of a record line, ":CCAAAATTdd...ddSS", two hexadecimal digits a byte. */
inline constexpr std::size_t COUNT = 1;
inline constexpr std::size_t ADDRESS = 3;
inline constexpr std::size_t ADDRESS_DIGITS = 4;
inline constexpr std::size_t TYPE = 7;
inline constexpr std::size_t DATA = 9;

/**
 * Hands every line of the file to `take`, without its '\n' (a '\r' before it stays). The text is valid
 * only during the call. False when the file cannot be opened, or not be read to its end: a directory,
 * or a failing medium (lines before the error have been handed over then).
 */
bool forEachLine(const std::string& fileName, const std::function<void(std::string_view)>& take);

/** Whether the line is long enough for a record and starts with ':'. */
bool isRecord(std::string_view line);

/**
 * The number that `stream >> std::hex` reads from the text: leading white space, a sign and "0x" are
 * accepted, the first other character that is no digit ends it, no digits give 0, and more than 32 bits
 * give 0xFFFFFFFF.
 */
std::uint32_t convertHex(std::string_view text);

/**
 * The low 8 bits of convertHex() of the two characters at `position`; fewer where the line ends.
 * Throws std::out_of_range for a position behind the line's end.
 */
std::uint8_t byteAt(std::string_view line, std::size_t position);

} // namespace hexText
