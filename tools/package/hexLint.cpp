#include "findingKinds.h"
#include "hexCheck.h"
#include "lib/format.h"

#include "files.h"
#include "lib/hexfile/hexText.h"

#include <algorithm>
#include <map>
#include <numeric>

namespace package {

namespace {

constexpr std::size_t OVERHEAD = 5; // count, address (2), type, checksum
constexpr std::size_t DATA = 4;
enum Type : std::uint8_t {
    Data = 0,
    End = 1,
    SegmentAddress = 2,
    SegmentStart = 3,
    UpperAddress = 4,
    Start = 5,
};

// The bytes of a record line; none when it is no ':' with pairs of digits behind it.
std::vector<std::uint8_t> bytesOf(std::string_view line) {
    std::vector<std::uint8_t> bytes;
    if (line.size() < 3 || line.front() != ':' || line.size() % 2 == 0 ||
        line.find_first_not_of("0123456789abcdefABCDEF", 1) != line.npos)
        return bytes;
    for (std::size_t at = hexText::COUNT; at < line.size(); at += 2)
        bytes.push_back(hexText::byteAt(line, at));
    return bytes;
}

bool isCutRecord(std::string_view line) {
    return line.front() == ':' && line.find_first_not_of("0123456789abcdefABCDEF", 1) == line.npos;
}

} // namespace

struct HexFile::State {
    const std::string& name;
    Findings& findings;
    unsigned line = 0;
    std::uint64_t upper = 0;   // address bits 16 to 31
    std::uint64_t highest = 0; // behind the highest byte so far
    bool ended = false;
    unsigned afterEnd = 0;
    // A line of the wrong length, not reported yet: as the last one it means that the file was cut.
    unsigned oddLine = 0;
    const Kind* oddKind = nullptr;
    std::string oddText = {};
    std::map<std::uint64_t, std::uint64_t> taken = {}; // start to end

    void report(const Kind& kind, const std::string& text) { findings.add(kind, {name, line}, text); }
    void hold(const Kind& kind, const std::string& text) {
        oddLine = line;
        oddKind = &kind;
        oddText = text;
    }
    void take(std::uint64_t start, std::uint64_t end);
    void release() {
        if (oddKind != nullptr)
            findings.add(*oddKind, {name, oddLine}, oddText);
        oddKind = nullptr;
    }
};

// Notes that there is data from start to end, and reports what is no ascending order.
void HexFile::State::take(std::uint64_t start, std::uint64_t end) {
    if (start < highest) {
        const auto next = taken.lower_bound(start);
        const bool same = next != taken.end() && next->first == start;
        const bool below = next != taken.begin() && std::prev(next)->second > start;
        const bool above = next != taken.end() && next->first < end;
        const auto address = static_cast<unsigned>(start);
        if (same)
            report(kinds::HEX_DUPLICATE, format("address 0x%X a second time", address));
        else if (below || above)
            report(kinds::HEX_OVERLAP, format("0x%X and up overlap an earlier record", address));
        else
            report(kinds::HEX_ORDER, format("address 0x%X stands behind higher ones", address));
    }
    std::uint64_t& last = taken[start];
    last = std::max(last, end);
    highest = std::max(highest, end);
}

HexFile::HexFile(const std::filesystem::path& path, const std::string& name, Findings& findings) {
    State state{name, findings};
    if (sizeOf(path) > LARGEST_IMAGE)
        throw HugeImage("an image of " + shownSize(sizeOf(path)) + ": no module has so much flash");
    if (!std::filesystem::is_regular_file(path) ||
        !hexText::forEachLine(path.string(), [&](std::string_view line) { readLine(line, state); }))
        throw Failure(path.string() + ": can't be read");
    if (state.oddKind != nullptr && !state.ended) {
        findings.add(kinds::HEX_TRUNCATED, {name, state.oddLine}, "the file ends inside a record");
    } else {
        state.release();
        if (!state.ended)
            findings.add(kinds::HEX_NO_END, {name, state.line}, "the file ends without an end record");
    }
    if (state.afterEnd != 0)
        findings.add(kinds::HEX_AFTER_END, {name, state.afterEnd}, "something follows the end record");
}

void HexFile::readLine(std::string_view line, State& state) {
    checkInterrupted();
    ++state.line;
    if (!line.empty() && line.back() == '\r')
        line.remove_suffix(1);
    if (line.empty())
        return;
    state.release();
    if (state.ended) {
        if (state.afterEnd == 0)
            state.afterEnd = state.line;
        return;
    }
    const std::vector<std::uint8_t> bytes = bytesOf(line);
    if (bytes.empty()) {
        if (isCutRecord(line))
            state.hold(kinds::HEX_GARBAGE, "half a byte, or nothing, stands at the end of the line");
        else
            state.report(kinds::HEX_GARBAGE,
                         line.starts_with("\xEF\xBB\xBF")
                             ? "a byte order mark before the record, which is lost; save it without one"
                             : "no record");
        return;
    }
    readRecord(bytes, state);
}

void HexFile::readRecord(const std::vector<std::uint8_t>& bytes, State& state) {
    const std::size_t announced = bytes[0] + OVERHEAD;
    if (bytes.size() < announced)
        state.hold(kinds::HEX_COUNT,
                   format("the record announces %u data bytes; its line is %u bytes too short", bytes[0],
                          static_cast<unsigned>(announced - bytes.size())));
    else if (bytes.size() > announced)
        state.report(kinds::HEX_COUNT,
                     format("the record announces %u data bytes; its line is %u bytes too long", bytes[0],
                            static_cast<unsigned>(bytes.size() - announced)));
    else if (const unsigned sum = std::accumulate(bytes.begin(), bytes.end(), 0U) % 256; sum != 0)
        state.report(kinds::HEX_CHECKSUM, format("the checksum is %02X, but %02X is right", bytes.back(),
                                                 (bytes.back() - sum) % 256));
    if (bytes.size() < DATA)
        return;
    const auto wants = [&](std::uint8_t count) {
        if (bytes[0] != count)
            state.report(kinds::HEX_FORM,
                         format("a record of type %02X with %u data bytes", bytes[3], bytes[0]));
        return bytes[0] == count && bytes.size() >= announced;
    };
    switch (bytes[3]) {
    case Data:
        addData(bytes, state);
        break;
    case End:
        wants(0);
        state.ended = true;
        break;
    case UpperAddress:
        if (wants(2))
            state.upper = std::uint64_t{bytes[DATA]} << 24 | std::uint64_t{bytes[DATA + 1]} << 16;
        break;
    case Start:
        wants(4);
        break;
    case SegmentStart: // where a program starts does not matter to the panel
        break;
    case SegmentAddress:
        state.report(kinds::HEX_TYPE, "a segment address (type 02)");
        break;
    default:
        state.report(kinds::HEX_TYPE, format("a record of the unknown type %02X", bytes[3]));
    }
}

// Takes the data that is there, whatever the count says.
void HexFile::addData(const std::vector<std::uint8_t>& bytes, State& state) {
    const std::size_t there = bytes.size() > OVERHEAD ? bytes.size() - OVERHEAD : 0;
    const std::size_t size = std::min<std::size_t>(there, bytes[0]);
    if (size == 0)
        return;
    const std::uint64_t start = state.upper | static_cast<std::uint64_t>(bytes[1] << 8 | bytes[2]);
    const auto data = bytes.begin() + DATA;
    if (records_.size() == MOST_RECORDS)
        throw HugeImage(
            format("an image of more than %zu records: no module has so much flash", MOST_RECORDS));
    records_.push_back({state.line, start, {data, data + static_cast<std::ptrdiff_t>(size)}});
    imageCheck::addStretch(stretches_, start, {start + size, state.line});
    state.take(start, start + size);
}

} // namespace package
