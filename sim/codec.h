// Frames of the bus: encoding, and finding them in a byte stream.
#pragma once

#include "text.h"

#include <optional>

namespace sim {

struct Message {
    std::uint8_t id = 0;
    Bytes payload;

    bool operator==(const Message&) const = default;
};

// CRC-16/CCITT-FALSE.
std::uint16_t crc16(std::span<const std::uint8_t> bytes);

Bytes encode(const Message& message);

struct Frame {
    enum class Kind {
        Good,
        BadCrc,
        BadClosing, // right but for its last two bytes
        Noise,      // bytes that belong to no frame; message is empty
    };
    Kind kind = Kind::Noise;
    Bytes raw;
    Message message;
};

// The frame that stands at the start of bytes, whole, whatever its CRC; none when there is none or it is cut.
std::optional<Frame> decode(std::span<const std::uint8_t> bytes);

// Cuts a byte stream into frames. After a frame with a bad CRC the search goes on inside it, so that a frame
// whose tail was lost does not take the next one along. A pause ends a frame that is not complete.
class Decoder {
public:
    // What the byte completed, usually nothing; noise comes with the frame behind it. The arrival times must
    // not fall.
    std::vector<Frame> feed(std::uint8_t byte, TimePoint arrival);
    // Gives up waiting: what is left over is noise.
    std::vector<Frame> flush();

private:
    void takeNoise(std::size_t size);
    void dropBadFrame(std::size_t size);

    Bytes noise_; // not given out yet: neighbouring bytes of noise come as one
    Bytes buffer_;
    TimePoint lastArrival_;
};

} // namespace sim
