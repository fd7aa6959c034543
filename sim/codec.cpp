#include "codec.h"

#include <algorithm>
#include <utility>

namespace sim {

namespace {

// Longer than the panel's own pauses inside a frame can be, shorter than its shortest wait for a reply.
constexpr auto FRAME_PAUSE = std::chrono::milliseconds(40);

// Where the sync starts that is in bytes whole or, at their end, in part; their size when there is none.
std::size_t findSync(std::span<const std::uint8_t> bytes) {
    for (std::size_t start = 0; start < bytes.size(); ++start) {
        const auto rest = bytes.subspan(start);
        const auto compared = static_cast<std::ptrdiff_t>(std::min(rest.size(), SYNC_BYTES.size()));
        if (std::equal(rest.begin(), rest.begin() + compared, SYNC_BYTES.begin()))
            return start;
    }
    return bytes.size();
}

Frame::Kind kindOf(std::span<const std::uint8_t> frame) {
    const std::size_t size = frame.size();
    const auto carried = static_cast<std::uint16_t>(frame[size - 4] | frame[size - 3] << 8);
    if (crc16(frame.subspan(PAYLOAD_OFFSET, size - FRAME_OVERHEAD)) != carried)
        return Frame::Kind::BadCrc;
    if (!std::equal(CLOSING_BYTES.begin(), CLOSING_BYTES.end(), frame.end() - 2))
        return Frame::Kind::BadClosing;
    return Frame::Kind::Good;
}

} // namespace

std::uint16_t crc16(std::span<const std::uint8_t> bytes) {
    unsigned crc = 0xFFFF;
    for (const std::uint8_t byte : bytes) {
        crc ^= static_cast<unsigned>(byte) << 8;
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc & 0x8000) != 0 ? (crc << 1) ^ 0x1021 : crc << 1;
        crc &= 0xFFFF;
    }
    return static_cast<std::uint16_t>(crc);
}

Bytes encode(const Message& message) {
    const std::uint16_t crc = crc16(message.payload);
    Bytes frame(SYNC_BYTES.begin(), SYNC_BYTES.end());
    frame.push_back(message.id);
    frame.push_back(static_cast<std::uint8_t>(message.payload.size()));
    frame.insert(frame.end(), message.payload.begin(), message.payload.end());
    frame.push_back(static_cast<std::uint8_t>(crc & 0xFF));
    frame.push_back(static_cast<std::uint8_t>(crc >> 8));
    frame.insert(frame.end(), CLOSING_BYTES.begin(), CLOSING_BYTES.end());
    return frame;
}

std::optional<Frame> decode(std::span<const std::uint8_t> bytes) {
    if (bytes.size() < FRAME_OVERHEAD || !std::equal(SYNC_BYTES.begin(), SYNC_BYTES.end(), bytes.begin()))
        return {};
    const std::size_t size = bytes[LENGTH_OFFSET] + FRAME_OVERHEAD;
    if (bytes[LENGTH_OFFSET] > MAX_PAYLOAD || bytes.size() < size)
        return {};
    const auto raw = bytes.first(size);
    const auto payload = raw.subspan(PAYLOAD_OFFSET, size - FRAME_OVERHEAD);
    return Frame{
        kindOf(raw), Bytes(raw.begin(), raw.end()), {raw[ID_OFFSET], Bytes(payload.begin(), payload.end())}};
}

std::vector<Frame> Decoder::feed(std::uint8_t byte, TimePoint arrival) {
    std::vector<Frame> found;
    if (arrival - lastArrival_ > FRAME_PAUSE)
        found = flush();
    lastArrival_ = arrival;
    buffer_.push_back(byte);

    for (;;) {
        takeNoise(findSync(buffer_));
        if (buffer_.size() > LENGTH_OFFSET && buffer_[LENGTH_OFFSET] > MAX_PAYLOAD) {
            takeNoise(SYNC_BYTES.size());
            continue;
        }
        auto frame = decode(buffer_);
        if (!frame)
            return found;
        if (!noise_.empty())
            found.push_back({Frame::Kind::Noise, std::exchange(noise_, {}), {}});
        if (frame->kind == Frame::Kind::BadCrc)
            dropBadFrame(frame->raw.size());
        else
            buffer_.erase(buffer_.begin(), buffer_.begin() + static_cast<std::ptrdiff_t>(frame->raw.size()));
        found.push_back(std::move(*frame));
    }
}

std::vector<Frame> Decoder::flush() {
    takeNoise(buffer_.size());
    if (noise_.empty())
        return {};
    return {{Frame::Kind::Noise, std::exchange(noise_, {}), {}}};
}

void Decoder::takeNoise(std::size_t size) {
    const auto end = buffer_.begin() + static_cast<std::ptrdiff_t>(size);
    noise_.insert(noise_.end(), buffer_.begin(), end);
    buffer_.erase(buffer_.begin(), end);
}

void Decoder::dropBadFrame(std::size_t size) {
    const auto inside = std::span(buffer_).first(size).subspan(SYNC_BYTES.size());
    const std::size_t keepFrom = SYNC_BYTES.size() + findSync(inside);
    buffer_.erase(buffer_.begin(), buffer_.begin() + static_cast<std::ptrdiff_t>(keepFrom));
}

} // namespace sim
