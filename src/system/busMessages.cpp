#include "busMessages.h"

#include "../lib/crc16.h"
#include "../lib/format.h"

#include <algorithm>

namespace busMessages {

using namespace busProtocol;

namespace {

constexpr unsigned FIRST_STATUS = 2; // payload byte with the first two modules

PROCBUS_MSG twoBytes(ID id, std::uint8_t module, std::uint8_t what) {
    PROCBUS_MSG msg;
    msg.id = id;
    msg.length = 2;
    msg.data[0] = module;
    msg.data[1] = what;
    return msg;
}

PROCBUS_MSG command(std::uint8_t module, COMMAND code) {
    return twoBytes(BOOTLOADER_COMMAND, module, code);
}

PROCBUS_MSG addressedCommand(std::uint8_t module, COMMAND code, std::uint32_t address, bool wide) {
    PROCBUS_MSG msg = command(module, code);
    msg.length = wide ? 8 : 6;
    msg.data[2] = byteOf(address, 1);
    msg.data[3] = byteOf(address, 0);
    if (wide) {
        msg.data[6] = byteOf(address, 2);
        msg.data[7] = byteOf(address, 3);
    }
    return msg;
}

constexpr auto at = payloadByte;

ANSWER decodeReply(const PROCBUS_MSG& msg) {
    ANSWER answer;
    answer.reply.status = at(msg, 0);
    if (msg.length == SHORT_REPLY_LENGTH) {
        answer.reply.row = msg.data[1] <= SHORT_REPLY_LAST_PAGE ? msg.data[1] : 0U;
        return answer;
    }
    answer.reply.row = at(msg, 1) + 256U * at(msg, 2);
    if (msg.length > 3) {
        answer.reply.module = static_cast<std::int8_t>(msg.data[3]);
    }
    return answer;
}

ANSWER decodeIdentification(const PROCBUS_MSG& msg) {
    IDENTIFICATION said;
    said.hwRev = at(msg, 0) <= LAST_HW_REV ? at(msg, 0) : std::uint8_t{0};
    for (unsigned n = 0; n < 3; ++n) {
        said.version[n] = at(msg, 3 - n);
    }
    said.type = at(msg, 4) & static_cast<std::uint8_t>(~SERIAL_BOOTLOADER_BIT);
    said.serial = (at(msg, 4) & SERIAL_BOOTLOADER_BIT) != 0;
    said.module = static_cast<std::int8_t>(at(msg, 5));
    return {said, {}};
}

/** The version whose third number is payload byte `n`; the others follow it. */
std::string versionAt(const PROCBUS_MSG& msg, unsigned n) {
    return versionText(at(msg, n + 2), at(msg, n + 1), at(msg, n));
}

std::string serialText(const PROCBUS_MSG& msg) {
    return format("%02x%02x%02x%02x%02x%02x", at(msg, 1), at(msg, 2), at(msg, 3), at(msg, 4), at(msg, 5),
                  at(msg, 6));
}

} // namespace

PROCBUS_MSG systemCommand(std::uint8_t module, std::uint8_t arg) {
    return twoBytes(SYSTEM_COMMAND, module, arg);
}

PROCBUS_MSG resetG1() {
    PROCBUS_MSG msg;
    msg.id = BOOTLOADER_COMMAND;
    msg.length = 1;
    msg.data[0] = CONTROL_MODULE;
    return msg;
}

PROCBUS_MSG requestStatus(std::uint8_t module) {
    return command(module, REQUEST_STATUS);
}

PROCBUS_MSG startPage(std::uint8_t module, std::uint32_t address, std::uint32_t size, bool wide) {
    PROCBUS_MSG msg = addressedCommand(module, START_PAGE, address, wide);
    msg.data[4] = byteOf(size, 1);
    msg.data[5] = byteOf(size, 0);
    return msg;
}

PROCBUS_MSG writePage(std::uint8_t module) {
    return command(module, WRITE_PAGE);
}

PROCBUS_MSG eraseBlocks(std::uint8_t module, std::uint32_t address, std::uint8_t count, bool wide) {
    PROCBUS_MSG msg = addressedCommand(module, ERASE_BLOCKS, address, wide);
    msg.data[4] = count;
    return msg;
}

PROCBUS_MSG eraseAll(std::uint8_t module) {
    return addressedCommand(module, ERASE_ALL, 0, true);
}

PROCBUS_MSG dataRow(std::uint32_t row, const std::vector<std::uint8_t>& bytes) {
    PROCBUS_MSG msg;
    msg.data[msg.length++] = byteOf(row, 0);
    if (row < FIRST_WIDE_ROW) {
        msg.id = DATA_ROW;
    } else {
        msg.id = DATA_ROW_WIDE;
        msg.data[msg.length++] = byteOf(row, 1);
    }
    for (std::size_t i = rowOffset(row); i < bytes.size() && msg.length < ROW_PAYLOAD; ++i) {
        msg.data[msg.length++] = bytes[i];
    }
    return msg;
}

PROCBUS_MSG markRow() {
    PROCBUS_MSG msg;
    msg.id = busProtocol::DATA_ROW;
    msg.length = 2;
    msg.data[0] = busProtocol::MARK_ROW;
    msg.data[1] = 0xFF;
    return msg;
}

std::uint32_t rowsOf(std::size_t bytes) {
    std::uint32_t rows = 0;
    while (rowOffset(rows) < bytes) {
        ++rows;
    }
    return rows;
}

std::size_t encodeFrame(const PROCBUS_MSG& msg, std::uint8_t* out) {
    const std::uint32_t crc = crc16().crc16_calculate(msg.data, msg.length);
    std::uint8_t* end = std::copy(SYNC.begin(), SYNC.end(), out);
    *end++ = msg.id;
    *end++ = msg.length;
    end = std::copy(msg.data, msg.data + msg.length, end);
    *end++ = byteOf(crc, 0);
    *end++ = byteOf(crc, 1);
    end = std::copy(FRAME_END.begin(), FRAME_END.end(), end);
    return static_cast<std::size_t>(end - out);
}

std::uint8_t payloadByte(const PROCBUS_MSG& msg, unsigned n) {
    return n < msg.length ? msg.data[n] : std::uint8_t{0};
}

bool isObsolete(const PROCBUS_MSG& msg) {
    return msg.id == busProtocol::IDENTIFICATION
               ? msg.length == OLD_IDENTIFICATION_LENGTH
               : (msg.id == busProtocol::REPLY || msg.id == REPLY_SERIAL) && msg.length == OLD_REPLY_LENGTH;
}

std::optional<ANSWER> decodeAnswer(const PROCBUS_MSG& msg) {
    if (isObsolete(msg)) {
        return {};
    }
    switch (msg.id) {
    case busProtocol::REPLY:
    case REPLY_SERIAL:
        return decodeReply(msg);
    case busProtocol::IDENTIFICATION:
        return decodeIdentification(msg);
    default:
        return {};
    }
}

std::array<MODULE_STATUS, STATUS_COUNT> decodeStatus(const PROCBUS_MSG& msg) {
    std::array<MODULE_STATUS, STATUS_COUNT> modules;
    for (unsigned n = 0; n < STATUS_COUNT; ++n) {
        const unsigned field = (at(msg, FIRST_STATUS + n / 2) >> (n % 2 * 4)) & 0x0FU;
        modules[n].lost = field == STATUS_LOST;
        modules[n].available = (field & 1U) == 0;
        modules[n].mode = static_cast<std::uint8_t>(field >> 1);
    }
    return modules;
}

MODULE_IDENTITY decodeIdentity(const PROCBUS_MSG& msg) {
    const std::uint8_t number = at(msg, 0);
    if (number == CONTROL_MODULE) {
        return {number, {}, versionAt(msg, 1), 0};
    }
    return {number, serialText(msg), versionAt(msg, 7), at(msg, 11)};
}

std::string versionText(std::uint8_t first, std::uint8_t second, std::uint8_t third) {
    return std::to_string(first) + "." + std::to_string(second) + "." + std::to_string(third);
}

std::string IDENTIFICATION::versionText() const {
    return busMessages::versionText(version[0], version[1], version[2]);
}

} // namespace busMessages
