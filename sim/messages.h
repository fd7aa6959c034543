// The messages to the panel, and one line of text for any message.
#pragma once

#include "codec.h"

namespace sim {

struct Version {
    std::uint8_t first = 0;
    std::uint8_t second = 0;
    std::uint8_t third = 0;

    std::string text() const;
    // Throws std::invalid_argument unless text is three numbers up to 255 with points between.
    static Version parse(const std::string& text);
    bool operator==(const Version&) const = default;
};

// A bootloader's answer, before it is known in which message it travels.
struct Reply {
    Status status = Status::Ok;
    std::uint16_t row = 0;
};

const char* nameOf(Status status);

Message makeReply(std::uint8_t messageId, Reply reply, std::uint8_t module);
Message makeIdentification(std::uint8_t hardware, Version version, std::uint8_t kind, std::uint8_t module);

// Name and decoded fields, such as "reply status=OK row=5 module=9".
std::string describe(const Message& message);

} // namespace sim
