#pragma once

#include "busProtocol.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/**
 * Every request and every reply of the wire as a plain value, encoding beside decoding. Pure functions: no
 * state, no thread, no Qt. docs/bus-protocol.md describes the bytes.
 */
namespace busMessages {

/** One message of either direction, as it is sent and as the receive loop collects it. */
struct PROCBUS_MSG {
    std::uint8_t id = 0;
    std::uint8_t data[busProtocol::MAX_PAYLOAD] = {};
    std::uint32_t checksum = 0; ///< as received, low byte first; unused when sending
    std::uint8_t length = 0;    ///< bytes of `data` that count
    std::uint8_t stage = 0;     ///< of the receive scan
    std::uint8_t ptr = 0;       ///< of the receive scan
};

// Requests. Addresses are the target's; `wide` requests carry 32 bits of them, the others the lower 16.

PROCBUS_MSG systemCommand(std::uint8_t module, std::uint8_t arg);
/** The reset of a second-generation control module. */
PROCBUS_MSG resetG1();
PROCBUS_MSG requestStatus(std::uint8_t module);
/** `size`: data bytes that follow. */
PROCBUS_MSG startPage(std::uint8_t module, std::uint32_t address, std::uint32_t size, bool wide);
PROCBUS_MSG writePage(std::uint8_t module);
/** `count`: blocks; 0 stands for 256. */
PROCBUS_MSG eraseBlocks(std::uint8_t module, std::uint32_t address, std::uint8_t count, bool wide);
PROCBUS_MSG eraseAll(std::uint8_t module);
/** Row `row` of a page's (or record's) bytes: as many of them as a row carries, or as are left. */
PROCBUS_MSG dataRow(std::uint32_t row, const std::vector<std::uint8_t>& bytes);
/** A row of no page: the module refuses it, and that is its last reply then. */
PROCBUS_MSG markRow();

/** Number of rows that so many bytes take. */
std::uint32_t rowsOf(std::size_t bytes);

/**
 * Writes the frame of a message of at most MAX_PAYLOAD bytes to `out`, which has room for it; returns its
 * size, FRAME_OVERHEAD more than the payload's.
 */
std::size_t encodeFrame(const PROCBUS_MSG& msg, std::uint8_t* out);

// What comes from the bus.

/** No module: what a reply that is too short to name one reports. */
constexpr std::int8_t NO_MODULE = -1;

/** A bootloader's reply to a request. */
struct REPLY {
    std::uint8_t status = 0; ///< busProtocol::BLSTATUS
    std::uint32_t row = 0;   ///< the row it refers to; 0 in all replies to other requests
    std::int8_t module = NO_MODULE;
    bool operator==(const REPLY&) const = default;
};

/** A bootloader tells what it is. */
struct IDENTIFICATION {
    std::uint8_t hwRev = 0;
    std::uint8_t version[3] = {}; ///< first, second and third number
    std::uint8_t type = 0;        ///< busProtocol::PROC_TYPE
    bool serial = false;          ///< it is a serial bootloader
    std::int8_t module = NO_MODULE;
    std::string versionText() const;
    bool operator==(const IDENTIFICATION&) const = default;
};

/** One of the two: what a dialogue waits for. */
struct ANSWER {
    std::optional<IDENTIFICATION> identification;
    REPLY reply; ///< meaningful without an identification
    bool operator==(const ANSWER&) const = default;
};

/** What a status message says of one module. */
struct MODULE_STATUS {
    bool lost = false; ///< communication with it was lost; the rest is not known then
    bool available = false;
    std::uint8_t mode = 0; ///< operating mode of an available one, 0 to 7
    bool operator==(const MODULE_STATUS&) const = default;
};

/** Modules that one status message speaks of. */
constexpr std::size_t STATUS_COUNT = 6;

/** What a module says of itself. */
struct MODULE_IDENTITY {
    std::uint8_t number = 0; ///< its own count of modules, not the bus address
    std::string serial;      ///< the control module does not tell it, nor its revision
    std::string version;
    std::uint8_t hwRev = 0;
    bool operator==(const MODULE_IDENTITY&) const = default;
};

/** Payload byte `n`, 0 behind the end. */
std::uint8_t payloadByte(const PROCBUS_MSG& msg, unsigned n);

// Bytes that are missing from a payload count as 0.

/** True for a reply or an identification of an obsolete bootloader, recognised by its length alone. */
bool isObsolete(const PROCBUS_MSG& msg);
/** None for messages of any other kind, and for those of an obsolete bootloader. */
std::optional<ANSWER> decodeAnswer(const PROCBUS_MSG& msg);
/** In the order of the message's fields, the low half of each byte first. */
std::array<MODULE_STATUS, STATUS_COUNT> decodeStatus(const PROCBUS_MSG& msg);
MODULE_IDENTITY decodeIdentity(const PROCBUS_MSG& msg);

/** "1.2.3" */
std::string versionText(std::uint8_t first, std::uint8_t second, std::uint8_t third);

} // namespace busMessages
