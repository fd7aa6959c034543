#pragma once

#include "support/panel.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

constexpr std::uint8_t CAN_MODULE = 9;
constexpr std::uint8_t SERIAL_MODULE = 2;

// Requests by their kind, as a fake bootloader tells them apart.
enum class Request { ENTER, LEAVE, START, STATUS, WRITE, ERASE, ERASE_ALL, ROW };

/** A panel with one module in its bootloader, which answers every request well unless told otherwise. */
class BootloaderTest : public Panel {
protected:
    using Replies = std::vector<Frame>;
    /** What to answer instead; nothing for the usual. `nth` counts requests of this kind from 1. */
    using Exception = std::function<std::optional<Replies>(Request request, int nth)>;

    explicit BootloaderTest(std::uint8_t address) : module(address) {
        start();
        answer();
    }

    /** From now on. Counting starts anew. */
    void answer(Exception exception = nullptr) {
        counts.clear();
        bus.autoAnswer([this, exception](const Frame& frame) {
            const Request request = kindOf(frame);
            const int nth = ++counts[request];
            if (exception != nullptr) {
                if (const auto replies = exception(request, nth)) {
                    return *replies;
                }
            }
            return Replies{usual(request, frame)};
        });
    }

    /** Requests of this kind so far. */
    int sentOf(Request request) {
        int count = 0;
        for (const Frame& frame : bus.sent()) {
            count += kindOf(frame) == request ? 1 : 0;
        }
        return count;
    }

    /** The identification it answers "," with; an old bootloader's plain reply when there is none. */
    std::optional<Frame> identity;
    const std::uint8_t module;

    Frame status(std::uint8_t code, std::uint16_t row = 0) const {
        return {static_cast<std::uint8_t>(module == SERIAL_MODULE ? 5 : 3), reply(code, row, module).payload};
    }

    static Request kindOf(const Frame& frame) {
        switch (frame.id) {
        case 16:
            return frame.payload[1] == ENTER_BOOTLOADER ? Request::ENTER : Request::LEAVE;
        case 1:
            switch (frame.payload.size() > 1 ? frame.payload[1] : 0) {
            case 1:
                return Request::START;
            case 3:
                return Request::STATUS;
            case 4:
                return Request::WRITE;
            case 5:
                return Request::ERASE;
            case 6:
                return Request::ERASE_ALL;
            default:
                return Request::LEAVE;
            }
        default:
            return Request::ROW;
        }
    }

private:
    Frame usual(Request request, const Frame& frame) const {
        if (request == Request::ENTER && identity) {
            return *identity;
        }
        const bool wide = frame.id == 4;
        const int row = request == Request::ROW ? frame.payload[0] + (wide ? 256 * frame.payload[1] : 0) : 0;
        return status(0, static_cast<std::uint16_t>(row));
    }

    std::map<Request, int> counts; ///< of the bus's thread
};

/** Lines of a HEX file. */
inline std::string hexRecord(std::uint8_t type, std::uint16_t address, const Bytes& data) {
    Bytes bytes = {static_cast<std::uint8_t>(data.size()), static_cast<std::uint8_t>(address >> 8),
                   static_cast<std::uint8_t>(address & 0xFF), type};
    bytes.insert(bytes.end(), data.begin(), data.end());
    unsigned sum = 0;
    std::string line = ":";
    const auto add = [&](unsigned byte) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02X", byte & 0xFF);
        line += digits;
        sum += byte;
    };
    for (const std::uint8_t byte : bytes) {
        add(byte);
    }
    add(0x100 - sum % 0x100);
    return line + "\n";
}

/** A file with `count` bytes 0, 1, 2... from each of the addresses, which ascend. */
inline std::string hexImage(const std::vector<std::pair<std::uint32_t, std::size_t>>& runs) {
    std::string text;
    for (const auto& [start, count] : runs) {
        text +=
            hexRecord(4, 0, {static_cast<std::uint8_t>(start >> 24), static_cast<std::uint8_t>(start >> 16)});
        for (std::size_t at = 0; at < count; at += 16) {
            Bytes data;
            for (std::size_t i = at; i < std::min(at + 16, count); ++i) {
                data.push_back(static_cast<std::uint8_t>(i));
            }
            text += hexRecord(0, static_cast<std::uint16_t>(start + at), data);
        }
    }
    return text + hexRecord(1, 0, {});
}
