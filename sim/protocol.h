// The numbers of the bus protocol, as docs/bus-protocol.md has them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace sim {

using Bytes = std::vector<std::uint8_t>;

inline constexpr std::array<std::uint8_t, 4> SYNC_BYTES{0x4B, 0x2B, 0x4D, 0x42};
inline constexpr std::array<std::uint8_t, 2> CLOSING_BYTES{0x0D, 0x0A};
inline constexpr std::size_t ID_OFFSET = 4;
inline constexpr std::size_t LENGTH_OFFSET = 5;
inline constexpr std::size_t PAYLOAD_OFFSET = 6;
inline constexpr std::size_t FRAME_OVERHEAD = 10; // frame size less payload size
inline constexpr std::size_t MAX_PAYLOAD = 60;

namespace id {
inline constexpr std::uint8_t COMMAND = 1;
inline constexpr std::uint8_t ROW = 2;
inline constexpr std::uint8_t REPLY = 3;
inline constexpr std::uint8_t HIGH_ROW = 4; // row numbers from FIRST_HIGH_ROW on
inline constexpr std::uint8_t SERIAL_REPLY = 5;
inline constexpr std::uint8_t IDENTIFICATION = 6;
inline constexpr std::uint8_t SYSTEM_COMMAND = 16;
inline constexpr std::uint8_t MODULE_STATUS = 21;
inline constexpr std::uint8_t MODULE_IDENTITY = 22;
} // namespace id

namespace command {
inline constexpr std::uint8_t START_PAGE = 1;
inline constexpr std::uint8_t STATUS = 3;
inline constexpr std::uint8_t WRITE_PAGE = 4;
inline constexpr std::uint8_t ERASE_BLOCKS = 5;
inline constexpr std::uint8_t ERASE_ALL = 6;
} // namespace command

namespace argument {
inline constexpr std::uint8_t LEAVE = 0x21; // to the control module: restart of the whole system
inline constexpr std::uint8_t ENTER = 0x2C;
inline constexpr std::uint8_t UPDATE_MODE = 0x37;
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

inline constexpr std::uint16_t FIRST_HIGH_ROW = 251;
inline constexpr std::size_t ROW_DATA = 7;
inline constexpr std::size_t HIGH_ROW_DATA = 6;
inline constexpr unsigned MAX_ERASE_BLOCKS = 256; // a count of 0 stands for it
inline constexpr std::uint8_t CONTROL_MODULE = 2;
inline constexpr std::uint8_t SERIAL_BIT = 0x80; // of the kind byte of an identification

} // namespace sim
