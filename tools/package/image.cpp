#include "image.h"

#include "elfFile.h"
#include "fileType.h"
#include "lib/format.h"
#include "lib/hexfile/hexText.h"

#include <algorithm>
#include <functional>
#include <numeric>
#include <utility>

namespace package {

using flashLayouts::LAYOUT;

namespace {

constexpr std::uint64_t ROW = 16;
constexpr std::uint64_t UPPER = 0x10000; // what a record's own address reaches
constexpr std::uint64_t ALL = 0x100000000;
constexpr std::uint8_t ERASED = 0xFF;

using Bytes = std::vector<std::uint8_t>;

std::string hexRecord(std::uint8_t type, std::uint64_t address, const Bytes& data) {
    Bytes bytes = {static_cast<std::uint8_t>(data.size()), static_cast<std::uint8_t>(address >> 8),
                   static_cast<std::uint8_t>(address), type};
    bytes.insert(bytes.end(), data.begin(), data.end());
    bytes.push_back(
        static_cast<std::uint8_t>(0x100 - std::accumulate(bytes.begin(), bytes.end(), 0U) % 0x100));
    std::string text = ":";
    for (const std::uint8_t byte : bytes)
        text += format("%02X", byte);
    return text + "\n";
}

// The bytes that a line has behind its mark.
Bytes bytesBehind(std::string_view line, std::size_t mark, unsigned number) {
    if (line.size() <= mark || (line.size() - mark) % 2 != 0 ||
        line.find_first_not_of("0123456789abcdefABCDEF", mark) != line.npos)
        throw BadFile("no record", number);
    Bytes bytes;
    for (std::size_t at = mark; at < line.size(); at += 2)
        bytes.push_back(hexText::byteAt(line, at));
    return bytes;
}

// Hands over each line that is not blank, with its number.
void eachLine(const std::filesystem::path& path,
              const std::function<void(std::string_view, unsigned)>& take) {
    unsigned number = 0;
    const bool read = hexText::forEachLine(path.string(), [&](std::string_view line) {
        checkInterrupted();
        ++number;
        while (!line.empty() && (line.back() == '\r' || line.back() == ' '))
            line.remove_suffix(1);
        if (!line.empty())
            take(line, number);
    });
    if (!read)
        throw Failure(path.string() + ": can't be read");
}

std::uint64_t numberAt(const Bytes& bytes, std::size_t at, std::size_t size) {
    std::uint64_t number = 0;
    for (std::size_t i = at; i < at + size; ++i)
        number = number << 8 | bytes[i];
    return number;
}

Bytes part(const Bytes& bytes, std::size_t from, std::size_t behind) {
    return {bytes.begin() + static_cast<std::ptrdiff_t>(from),
            bytes.end() - static_cast<std::ptrdiff_t>(behind)};
}

Image readHex(const std::filesystem::path& path) {
    constexpr std::size_t OVERHEAD = 5;
    Image image;
    std::uint64_t base = 0;
    bool ended = false;
    eachLine(path, [&](std::string_view line, unsigned number) {
        if (ended || line.front() != ':')
            throw BadFile(ended ? "something follows the end record" : "no record", number);
        const Bytes bytes = bytesBehind(line, 1, number);
        if (bytes.size() < OVERHEAD || bytes.size() != bytes[0] + OVERHEAD)
            throw BadFile("the record's line is longer or shorter than it says", number);
        if (std::accumulate(bytes.begin(), bytes.end(), 0U) % 0x100 != 0)
            throw BadFile("the record's checksum is wrong", number);
        const std::uint8_t type = bytes[3];
        if (type == 0)
            image.put(base + numberAt(bytes, 1, 2), part(bytes, 4, 1), number);
        else if ((type == 2 || type == 4) && bytes[0] == 2)
            base = numberAt(bytes, 4, 2) << (type == 2 ? 4 : 16);
        else if (type > 5)
            throw BadFile("a record of an unknown type", number);
        ended = type == 1;
    });
    if (!ended)
        throw BadFile("the file ends without an end record");
    return image;
}

Image readSRecords(const std::filesystem::path& path) {
    Image image;
    bool ended = false;
    eachLine(path, [&](std::string_view line, unsigned number) {
        if (ended || line.size() < 2 || line[0] != 'S' || line[1] < '0' || line[1] > '9')
            throw BadFile(ended ? "something follows the end record" : "no record", number);
        const Bytes bytes = bytesBehind(line, 2, number);
        const int type = line[1] - '0';
        const std::size_t width = type >= 1 && type <= 3 ? static_cast<std::size_t>(type) + 1 : 2;
        if (bytes.size() != bytes[0] + std::size_t{1} || bytes.size() < width + 2)
            throw BadFile("the record's line is longer or shorter than it says", number);
        if (std::accumulate(bytes.begin(), bytes.end(), 0U) % 0x100 != 0xFF)
            throw BadFile("the record's checksum is wrong", number);
        if (type >= 1 && type <= 3)
            image.put(numberAt(bytes, 1, width), part(bytes, 1 + width, 1), number);
        ended = type >= 7;
    });
    if (!ended)
        throw BadFile("the file ends without an end record");
    return image;
}

Image readElf(const std::filesystem::path& path) {
    Image image;
    for (const ElfPiece& piece : readElfPieces(path))
        image.put(piece.address, piece.bytes);
    return image;
}

} // namespace

void Image::put(std::uint64_t address, const Bytes& bytes, unsigned line) {
    const std::uint64_t end = address + bytes.size();
    if (bytes.empty())
        return;
    if (pieces_.size() == MOST_RECORDS)
        throw BadFile(format("an image of more than %zu pieces: no module has so much flash", MOST_RECORDS));
    if (end > ALL)
        throw BadFile("data behind the last address of 32 bits", line);
    const auto next = pieces_.lower_bound(address);
    const auto before = next == pieces_.begin() ? pieces_.end() : std::prev(next);
    if ((next != pieces_.end() && next->first < end) ||
        (before != pieces_.end() && before->first + before->second.size() > address))
        throw BadFile(format("0x%llX has data a second time", static_cast<unsigned long long>(address)),
                      line);
    const bool touchesBefore = before != pieces_.end() && before->first + before->second.size() == address;
    Bytes& piece = touchesBefore ? before->second : pieces_[address];
    piece.insert(piece.end(), bytes.begin(), bytes.end());
    if (next != pieces_.end() && next->first == end) {
        piece.insert(piece.end(), next->second.begin(), next->second.end());
        pieces_.erase(next);
    }
}

std::uint64_t Image::size() const {
    return std::accumulate(pieces_.begin(), pieces_.end(), std::uint64_t{0},
                           [](std::uint64_t sum, const auto& each) { return sum + each.second.size(); });
}

std::vector<HexData> Image::records() const {
    std::vector<HexData> records;
    for (const auto& [start, bytes] : pieces_) {
        for (std::uint64_t at = 0, size = 0; at < bytes.size(); at += size) {
            size = std::min<std::uint64_t>(ROW - (start + at) % ROW, bytes.size() - at);
            const auto from = bytes.begin() + static_cast<std::ptrdiff_t>(at);
            records.push_back({0, start + at, {from, from + static_cast<std::ptrdiff_t>(size)}});
        }
    }
    return records;
}

std::string Image::hexText() const {
    std::string text;
    std::uint64_t upper = 0;
    for (const HexData& record : records()) {
        if (record.address / UPPER != upper) {
            upper = record.address / UPPER;
            text +=
                hexRecord(4, 0, {static_cast<std::uint8_t>(upper >> 8), static_cast<std::uint8_t>(upper)});
        }
        text += hexRecord(0, record.address, record.bytes);
    }
    return text + hexRecord(1, 0, {});
}

bool Image::holds(std::uint64_t address) const {
    const auto behind = pieces_.upper_bound(address);
    return behind != pieces_.begin() && address - std::prev(behind)->first < std::prev(behind)->second.size();
}

std::vector<Span> Image::crop(const LAYOUT& layout) {
    std::vector<Span> dropped;
    Pieces kept;
    for (const auto& [start, bytes] : pieces_) {
        std::uint64_t at = start;
        const std::uint64_t end = start + bytes.size();
        while (at < end) {
            std::uint64_t until = end; // of what is all inside, or all outside
            bool inside = false;
            for (const LAYOUT::REGION& region : layout.regions) {
                const flashLayouts::BOUNDS bounds = boundsOf(layout, region);
                inside = inside || (at >= bounds.start && at < bounds.end);
                for (const std::uint64_t edge : {bounds.start, bounds.end})
                    until = edge > at ? std::min(until, edge) : until;
            }
            if (inside)
                kept[at] = {bytes.begin() + static_cast<std::ptrdiff_t>(at - start),
                            bytes.begin() + static_cast<std::ptrdiff_t>(until - start)};
            else
                dropped.push_back({at, until});
            at = until;
        }
    }
    pieces_ = kept;
    return dropped;
}

// A PIC24's instruction has no fourth byte.
std::uint64_t Image::fillPage(std::uint64_t start, std::uint64_t end, bool pic24) {
    std::uint64_t added = 0;
    std::uint64_t at = start;
    const auto fillTo = [&](std::uint64_t until) {
        Bytes bytes;
        for (; at < until; ++at)
            bytes.push_back(pic24 && at % 4 == 3 ? std::uint8_t{0} : ERASED);
        added += bytes.size();
        put(until - bytes.size(), bytes);
    };
    std::vector<Span> used; // what a piece has of the page
    auto piece = pieces_.upper_bound(start);
    if (piece != pieces_.begin())
        --piece;
    for (; piece != pieces_.end() && piece->first < end; ++piece) {
        if (piece->first + piece->second.size() > start)
            used.push_back(
                {std::max(piece->first, start), std::min(piece->first + piece->second.size(), end)});
    }
    for (const Span& span : used) {
        fillTo(span.start);
        at = span.end;
    }
    return added;
}

std::uint64_t Image::fill(const LAYOUT& layout) {
    std::uint64_t added = 0;
    for (const LAYOUT::REGION& region : layout.regions) {
        const flashLayouts::BOUNDS bounds = boundsOf(layout, region);
        const std::uint64_t page = fileBytesPerPage(layout, region.blockSize);
        std::uint64_t next = bounds.start;
        for (const HexData& record : records()) { // of before
            if (record.address < next || record.address >= bounds.end)
                continue;
            const std::uint64_t start = bounds.start + (record.address - bounds.start) / page * page;
            next = std::min(start + page, bounds.end);
            added += fillPage(start, next, layout.pic24Addressing);
        }
    }
    return added;
}

void Image::toPhysical() {
    constexpr std::uint64_t FIRST = 0x80000000;
    constexpr std::uint64_t BEHIND = 0xC0000000;
    constexpr std::uint64_t PHYSICAL = 0x1FFFFFFF;
    const Pieces pieces = std::exchange(pieces_, {});
    for (const auto& [start, bytes] : pieces)
        put(start >= FIRST && start < BEHIND ? start & PHYSICAL : start, bytes);
}

Image readImage(const std::filesystem::path& path) {
    const FileNature nature = natureOf(path);
    if (nature.type == FileType::Absent)
        throw Failure(path.string() + ": no such file");
    if ((nature.type == FileType::IntelHex || nature.type == FileType::SRecords) &&
        sizeOf(path) > LARGEST_IMAGE)
        throw BadFile("an image of " + shownSize(sizeOf(path)) + ": no module has so much flash");
    const Image image = nature.type == FileType::Elf        ? readElf(path)
                        : nature.type == FileType::SRecords ? readSRecords(path)
                        : nature.type == FileType::IntelHex
                            ? readHex(path)
                            : throw BadFile("it is " + nature.name + ", no ELF file, S-records or Intel HEX" +
                                            adviceOn(nature.type));
    if (image.empty())
        throw BadFile("it holds nothing to load");
    return image;
}

} // namespace package
