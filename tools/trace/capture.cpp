#include "capture.h"

#include <charconv>

namespace trace {

namespace {

constexpr std::uint32_t MAGIC = 0xA1B2C3D4; // times with microseconds
constexpr std::uint32_t LONGEST = 65535;
constexpr std::uint32_t USER_LINK = 147;
constexpr std::uint8_t MARK_DIRECTION = 3;
constexpr std::int64_t SECOND = 1'000'000; // microseconds

std::int64_t microseconds(sim::TimePoint when) {
    return std::chrono::duration_cast<std::chrono::microseconds>(when.time_since_epoch()).count();
}

// The time of day of the recording's beginning, by its mark of when it was saved.
std::int64_t startOf(const std::vector<Piece>& pieces) {
    const std::string key = "recording saved=";
    for (const Piece& piece : pieces) {
        std::int64_t saved = 0;
        if (piece.event.starts_with(key) &&
            std::from_chars(piece.event.data() + key.size(), piece.event.data() + piece.event.size(), saved)
                    .ec == std::errc{})
            return saved * SECOND - microseconds(piece.when);
    }
    return 0;
}

// In the byte order of the magic number, little end first.
void put(std::ostream& out, std::uint32_t value, unsigned bytes = 4) {
    for (unsigned n = 0; n < bytes; ++n)
        out.put(static_cast<char>(value >> 8 * n));
}

void putPacket(std::ostream& out, std::int64_t when, std::uint8_t direction, std::string_view bytes) {
    const auto size = static_cast<std::uint32_t>(bytes.size() + 1);
    put(out, static_cast<std::uint32_t>(when / SECOND));
    put(out, static_cast<std::uint32_t>(when % SECOND));
    put(out, size);
    put(out, size);
    put(out, direction, 1);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

} // namespace

void writeCapture(std::ostream& out, const Recording& recording) {
    const std::vector<Piece> pieces = cut(recording);
    const std::int64_t start = startOf(pieces);
    put(out, MAGIC);
    put(out, 2, 2); // version 2.4
    put(out, 4, 2);
    put(out, 0); // the times are UTC
    put(out, 0);
    put(out, LONGEST);
    put(out, USER_LINK);
    for (const Piece& piece : pieces) {
        const std::int64_t when = start + microseconds(piece.when);
        const sim::Bytes& raw = piece.frame.raw;
        if (!piece.event.empty())
            putPacket(out, when, MARK_DIRECTION, piece.event);
        else
            putPacket(out, when, static_cast<std::uint8_t>(piece.direction),
                      {reinterpret_cast<const char*>(raw.data()), raw.size()});
    }
}

} // namespace trace
