#include "recording.h"

#include <algorithm>
#include <iterator>
#include <sstream>
#include <stdexcept>

namespace trace {

namespace {

// "12.345678", as a time since the start of the recording.
sim::TimePoint toTime(const std::string& text) {
    const auto point = text.find('.');
    if (point == std::string::npos || text.size() != point + 7)
        throw std::invalid_argument("not a time: " + text);
    return sim::TimePoint(std::chrono::seconds(sim::toNumber(text.substr(0, point))) +
                          std::chrono::microseconds(sim::toNumber(text.substr(point + 1))));
}

Entry toEntry(const std::string& line) {
    std::istringstream words(line);
    std::string time, mark, rest;
    words >> time >> mark >> std::ws;
    Entry entry{toTime(time), mark == "<" ? Direction::ToPanel : Direction::FromPanel, {}, {}};
    if (mark == "!") {
        std::getline(words, entry.event);
    } else if ((mark == "<" || mark == ">") && words >> rest) {
        entry.bytes = sim::fromHex(rest);
    } else {
        throw std::invalid_argument("not a line of a trace: " + line);
    }
    return entry;
}

bool isTrace(const std::string& content) {
    const auto blank = content.find(' ');
    const auto start = content.find_first_not_of("\r\n");
    return blank != std::string::npos && content.find_first_not_of("0123456789.", start) == blank &&
           content.find_first_of("<>!", blank) == blank + 1;
}

// Each side has messages of its own.
Direction directionOf(const sim::Frame& frame) {
    if (frame.kind == sim::Frame::Kind::Noise)
        return Direction::Unknown;
    switch (frame.message.id) {
    case sim::id::COMMAND:
    case sim::id::ROW:
    case sim::id::HIGH_ROW:
    case sim::id::SYSTEM_COMMAND:
        return Direction::FromPanel;
    case sim::id::REPLY:
    case sim::id::SERIAL_REPLY:
    case sim::id::IDENTIFICATION:
    case sim::id::MODULE_STATUS:
    case sim::id::MODULE_IDENTITY:
        return Direction::ToPanel;
    default:
        return Direction::Unknown;
    }
}

// The panel takes a reply whose closing bytes never came.
std::optional<sim::Frame> withoutClosing(sim::Bytes bytes) {
    const sim::Bytes raw = bytes;
    bytes.insert(bytes.end(), sim::CLOSING_BYTES.begin(), sim::CLOSING_BYTES.end());
    auto frame = sim::decode(bytes);
    if (!frame || frame->raw.size() != bytes.size() || frame->kind != sim::Frame::Kind::Good)
        return {};
    frame->kind = sim::Frame::Kind::BadClosing;
    frame->raw = raw;
    return frame;
}

} // namespace

Recording read(std::istream& in) {
    const std::string content{std::istreambuf_iterator<char>(in), {}};
    if (content.empty())
        throw std::runtime_error("the recording is empty");
    Recording recording;
    recording.timed = isTrace(content);
    if (!recording.timed) {
        recording.entries.push_back({{}, {}, sim::Bytes(content.begin(), content.end()), {}});
        return recording;
    }
    std::size_t start = 0;
    for (std::size_t end = 0; (end = content.find('\n', start)) != std::string::npos; start = end + 1) {
        const std::string line = content.substr(start, end - start);
        if (line.find_first_not_of(" \t\r") != std::string::npos)
            recording.entries.push_back(toEntry(line));
    }
    recording.isCut = start < content.size();
    std::stable_sort(recording.entries.begin(), recording.entries.end(),
                     [](const Entry& a, const Entry& b) { return a.when < b.when; });
    return recording;
}

std::vector<Piece> cut(const Recording& recording) {
    std::vector<Piece> pieces;
    for (const Entry& entry : recording.entries) {
        if (!entry.event.empty()) {
            pieces.push_back({entry.when, entry.direction, {}, entry.event});
            continue;
        }
        if (auto unclosed = withoutClosing(entry.bytes); unclosed && recording.timed) {
            pieces.push_back({entry.when, entry.direction, std::move(*unclosed), {}});
            continue;
        }
        sim::Decoder decoder;
        std::vector<sim::Frame> frames;
        const auto take = [&frames](std::vector<sim::Frame> found) {
            std::move(found.begin(), found.end(), std::back_inserter(frames));
        };
        for (const std::uint8_t byte : entry.bytes)
            take(decoder.feed(byte, entry.when));
        take(decoder.flush());
        for (sim::Frame& frame : frames) {
            const Direction direction = recording.timed ? entry.direction : directionOf(frame);
            pieces.push_back({entry.when, direction, std::move(frame), {}});
        }
    }
    return pieces;
}

} // namespace trace
