#include "faults.h"

#include <algorithm>

namespace sim {

namespace {

constexpr std::size_t OBSOLETE_REPLY_SIZE = 6;
constexpr std::size_t OBSOLETE_IDENTIFICATION_SIZE = 11;

// Where the module number stands in a reply; none in a short one.
std::optional<std::size_t> moduleOffset(const Message& reply) {
    const std::size_t offset = reply.id == id::IDENTIFICATION ? 5 : 3;
    return offset < reply.payload.size() ? std::optional(offset) : std::nullopt;
}

void setRow(Bytes& payload, std::uint32_t row) {
    payload[1] = static_cast<std::uint8_t>(row & 0xFF);
    if (payload.size() > 2)
        payload[2] = static_cast<std::uint8_t>(row >> 8 & 0xFF);
}

std::uint32_t rowOf(const Bytes& payload) {
    return payload.size() > 2 ? static_cast<std::uint32_t>(payload[1] | payload[2] << 8) : payload[1];
}

} // namespace

bool Fault::concerns(std::uint8_t module, const Request& request) const {
    if (module_ && module_ != module)
        return false;
    if (row_ && (request.kind != RequestKind::DataRow || *row_ != request.row))
        return false;
    switch (kind_) {
    case FaultKind::WriteError:
        return request.kind == RequestKind::WritePage;
    case FaultKind::EraseError:
        return request.kind == RequestKind::EraseBlocks || request.kind == RequestKind::EraseAll;
    case FaultKind::IgnorePage:
        return request.kind == RequestKind::StartPage;
    default:
        return !on_ || on_ == request.kind;
    }
}

bool Fault::isTurn() {
    ++seen_;
    if (limit_ != 0 && struck_ >= limit_)
        return false;
    if (nth_ != 0)
        return seen_ >= nth_;
    if (every_ != 0)
        return seen_ % every_ == 0;
    // The upper 53 bits make a number in [0, 1) that is the same everywhere.
    return static_cast<double>(engine_() >> 11) * 0x1p-53 < share_;
}

bool Fault::strikes(std::uint8_t module, const Request& request) {
    if (!concerns(module, request) || !isTurn())
        return false;
    ++struck_;
    return true;
}

std::size_t Fault::random(std::size_t below) {
    return static_cast<std::size_t>(engine_() % below);
}

Bytes Fault::noise() {
    if (!noise_.empty())
        return noise_;
    Bytes bytes(byteCount_);
    for (std::uint8_t& byte : bytes)
        byte = static_cast<std::uint8_t>(random(256));
    return bytes;
}

void Fault::alter(Message& reply) const {
    Bytes& payload = reply.payload;
    const bool identifies = reply.id == id::IDENTIFICATION;
    switch (kind_) {
    case FaultKind::WrongModule:
        if (const auto offset = moduleOffset(reply))
            payload[*offset] = static_cast<std::uint8_t>(value_.value_or(payload[*offset] + 1U));
        break;
    case FaultKind::WrongRow:
        if (!identifies)
            setRow(payload, value_.value_or(rowOf(payload) + 1));
        break;
    case FaultKind::WrongStatus:
        if (!identifies)
            payload[0] = static_cast<std::uint8_t>(value_.value_or(1));
        break;
    case FaultKind::OldProtocol:
        payload.resize(identifies ? OBSOLETE_IDENTIFICATION_SIZE : OBSOLETE_REPLY_SIZE);
        break;
    case FaultKind::Sync:
        payload.insert(payload.begin() + 1, SYNC_BYTES.begin(), SYNC_BYTES.end());
        break;
    default:
        break;
    }
}

// Payload and CRC, which is what the CRC guards, unless the fault names a byte.
std::size_t Fault::flippedByte(std::size_t frameSize) {
    if (at_)
        return std::min<std::size_t>(*at_, frameSize - 1);
    return PAYLOAD_OFFSET + random(frameSize - PAYLOAD_OFFSET - CLOSING_BYTES.size());
}

std::size_t Fault::anyByte(std::size_t frameSize) {
    return at_ ? std::min<std::size_t>(*at_, frameSize - 1) : random(frameSize);
}

void Fault::corrupt(Bytes& frame) {
    if (frame.size() < FRAME_OVERHEAD) // another fault has cut it
        return;
    if (kind_ == FaultKind::Flip)
        frame[flippedByte(frame.size())] ^= static_cast<std::uint8_t>(1U << (bit_ ? *bit_ : random(8)));
    if (kind_ == FaultKind::Cut)
        frame.resize(std::min(at_ ? *at_ : 1 + random(frame.size() - 1), frame.size()));
    if (kind_ == FaultKind::DropByte)
        frame.erase(frame.begin() + static_cast<std::ptrdiff_t>(anyByte(frame.size())));
    if (kind_ == FaultKind::InsertByte) {
        const auto place = frame.begin() + static_cast<std::ptrdiff_t>(anyByte(frame.size()));
        frame.insert(place,
                     value_ ? static_cast<std::uint8_t>(*value_) : static_cast<std::uint8_t>(random(256)));
    }
}

} // namespace sim
