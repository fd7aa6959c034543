#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

/** The wire format of the bus link: docs/bus-protocol.md describes the dialogues. */
namespace busProtocol {

constexpr std::array<std::uint8_t, 4> SYNC = {0x4B, 0x2B, 0x4D, 0x42}; // "K+MB"
constexpr std::array<std::uint8_t, 2> FRAME_END = {0x0D, 0x0A};

// Sizes, in bytes.
constexpr std::size_t FRAME_OVERHEAD = 10;
constexpr std::size_t MAX_PAYLOAD = 120;  // room in the message record
constexpr std::uint8_t MAX_RECEIVED = 60; // payload the receiver accepts
constexpr std::size_t ROW_PAYLOAD = 8;    // payload of a full data row, a CAN frame's 8 bytes

// Message identifiers.
enum ID : std::uint8_t {
    BOOTLOADER_COMMAND = 1,
    DATA_ROW = 2,      // rows 0 to 250
    REPLY = 3,         // from a CAN bootloader
    DATA_ROW_WIDE = 4, // rows 251 and up: two-byte row number
    REPLY_SERIAL = 5,  // from the serial bootloader
    IDENTIFICATION = 6,
    SYSTEM_COMMAND = 16,
    MODULE_STATUS = 21,
    MODULE_IDENTITY = 22,
};

// Second payload byte of a bootloader command.
enum COMMAND : std::uint8_t {
    START_PAGE = 1,
    REQUEST_STATUS = 3,
    WRITE_PAGE = 4,
    ERASE_BLOCKS = 5,
    ERASE_ALL = 6,
};

// Arguments of a system command.
constexpr std::uint8_t ENTER_UPDATE_MODE = 0x37; // to CONTROL_MODULE: the whole system
constexpr std::uint8_t ENTER_BOOTLOADER = ',';
constexpr std::uint8_t RESTART = '!'; // of a module; to CONTROL_MODULE from the halt: of the whole system
constexpr std::uint8_t CONTROL_MODULE = 2;

// Payloads of an obsolete bootloader, recognised by their length alone.
constexpr std::uint8_t OLD_REPLY_LENGTH = 6;
constexpr std::uint8_t OLD_IDENTIFICATION_LENGTH = 11;

constexpr std::uint8_t SHORT_REPLY_LENGTH = 2;
constexpr std::uint8_t SHORT_REPLY_LAST_PAGE = 253; // above it the page byte counts as 0
constexpr std::uint8_t LAST_HW_REV = 250;           // above it the hardware revision counts as 0
constexpr std::uint8_t SERIAL_BOOTLOADER_BIT = 0x80;
constexpr std::uint8_t STATUS_LOST = 15; // 4-bit status field: communication lost

/** Status codes of a bootloader's reply, used for local failures, too. */
enum BLSTATUS : std::uint8_t {
    OK = 0,
    BADCHECKSUM = 1,
    MISSEDPACKET = 2,
    WRONGMODULE = 3,
    WRITEERR = 4,
    ERASEERR = 5,
    IGNOREPG = 6
};

/** Processor kind of a module, as its bootloader reports it. */
enum PROC_TYPE : std::uint8_t {
    UNKNOWN = 0,
    PIC24 = 1,
    PIC32_REC = 2,
    STM32F3 = 3,
    STM32F0 = 4,
    PIC32_MEM = 5,
    STM32F4 = 6
};

constexpr std::uint32_t FIRST_WIDE_ROW = 251;
constexpr std::uint32_t ROW_BYTES = 7;
constexpr std::uint32_t MARK_ROW = 2; // out of its order while no page is open, or one of a single row
constexpr std::uint32_t WIDE_ROW_BYTES = 6;

/** Offset in its page of the first data byte of a row. */
constexpr std::uint32_t rowOffset(std::uint32_t row) {
    return row < FIRST_WIDE_ROW ? row * ROW_BYTES
                                : FIRST_WIDE_ROW * ROW_BYTES + (row - FIRST_WIDE_ROW) * WIDE_ROW_BYTES;
}

/** Byte `n` of a number, 0 the lowest. */
constexpr std::uint8_t byteOf(std::uint32_t value, unsigned n) {
    return static_cast<std::uint8_t>(value >> (8 * n));
}

} // namespace busProtocol
