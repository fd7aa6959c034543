// The numbers of the bus protocol, as docs/bus-protocol.md has them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace sim {

using Bytes = std::vector<std::uint8_t>;

inline constexpr std::array<std::uint8_t, 4> syncBytes{0x4B, 0x2B, 0x4D, 0x42};
inline constexpr std::array<std::uint8_t, 2> closingBytes{0x0D, 0x0A};
inline constexpr std::size_t idOffset = 4;
inline constexpr std::size_t lengthOffset = 5;
inline constexpr std::size_t payloadOffset = 6;
inline constexpr std::size_t frameOverhead = 10; // frame size less payload size
inline constexpr std::size_t maxPayload = 60;

namespace id {
inline constexpr std::uint8_t command = 1;
inline constexpr std::uint8_t row = 2;
inline constexpr std::uint8_t reply = 3;
inline constexpr std::uint8_t highRow = 4; // row numbers from firstHighRow on
inline constexpr std::uint8_t serialReply = 5;
inline constexpr std::uint8_t identification = 6;
inline constexpr std::uint8_t systemCommand = 16;
inline constexpr std::uint8_t moduleStatus = 21;
inline constexpr std::uint8_t moduleIdentity = 22;
} // namespace id

namespace command {
inline constexpr std::uint8_t startPage = 1;
inline constexpr std::uint8_t status = 3;
inline constexpr std::uint8_t writePage = 4;
inline constexpr std::uint8_t eraseBlocks = 5;
inline constexpr std::uint8_t eraseAll = 6;
} // namespace command

namespace argument {
inline constexpr std::uint8_t leave = 0x21; // to the control module: restart of the whole system
inline constexpr std::uint8_t enter = 0x2C;
inline constexpr std::uint8_t updateMode = 0x37;
} // namespace argument

enum class Status : std::uint8_t {
    Ok = 0,
    BadChecksum = 1,
    MissedPacket = 2,
    WrongModule = 3,
    WriteError = 4,
    EraseError = 5,
    IgnorePage = 6,
};

inline constexpr std::uint16_t firstHighRow = 251;
inline constexpr std::size_t rowData = 7;
inline constexpr std::size_t highRowData = 6;
inline constexpr unsigned maxEraseBlocks = 256; // a count of 0 stands for it
inline constexpr std::uint8_t controlModule = 2;
inline constexpr std::uint8_t serialBit = 0x80; // of the kind byte of an identification

} // namespace sim
