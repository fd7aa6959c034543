#include "imageCheck.h"

#include "../../lib/hexfile/hexText.h"

#include <algorithm>
#include <functional>
#include <iterator>
#include <optional>
#include <string_view>
#include <utility>

namespace imageCheck {
namespace {

using flashLayouts::BOUNDS;
using flashLayouts::LAYOUT;

constexpr std::size_t CHARACTERS = 11; // of a record without data
constexpr std::uint8_t TYPE_DATA = 0;
constexpr std::uint8_t TYPE_SEGMENT = 2;
constexpr std::uint8_t TYPE_EXTENDED_LINEAR = 4;

/** A record as the readers take it; addresses are the file's. */
struct RECORD {
    unsigned line;
    std::uint8_t type;
    std::uint64_t start;
    std::uint64_t end;
    std::optional<WHAT> error;
};

bool isIntact(std::string_view line) {
    if (line.back() == '\r') {
        line.remove_suffix(1);
    }
    if (line.size() % 2 == 0 ||
        line.find_first_not_of("0123456789abcdefABCDEF", hexText::COUNT) != line.npos) {
        return false;
    }
    unsigned sum = 0;
    for (std::size_t at = hexText::COUNT; at < line.size(); at += 2) {
        sum += hexText::byteAt(line, at);
    }
    return line.size() == CHARACTERS + std::size_t{2} * hexText::byteAt(line, hexText::COUNT) &&
           sum % 0x100 == 0;
}

/** Hands every line that begins as a record to `take`; one that the readers pass over is without bytes. */
void forEachRecord(const std::string& path, const std::function<void(const RECORD&)>& take) {
    unsigned number = 0;
    std::uint32_t upper = 0; // address bits 16 to 31
    hexText::forEachLine(path, [&](std::string_view line) {
        ++number;
        if (line.empty() || line.front() != ':') {
            return;
        }
        if (!hexText::isRecord(line)) {
            take({number, TYPE_DATA, upper, upper, WHAT::DAMAGED});
            return;
        }
        const std::uint32_t count = hexText::byteAt(line, hexText::COUNT);
        const std::uint8_t type = hexText::byteAt(line, hexText::TYPE);
        const bool isAddress = type == TYPE_SEGMENT || type == TYPE_EXTENDED_LINEAR;
        const std::uint32_t value =
            isAddress ? hexText::convertHex(line.substr(hexText::DATA, std::size_t{2} * count)) : 0;
        const std::uint64_t start =
            upper | hexText::convertHex(line.substr(hexText::ADDRESS, hexText::ADDRESS_DIGITS));
        std::optional<WHAT> error;
        if (!isIntact(line)) {
            error = WHAT::DAMAGED;
        } else if (type == TYPE_SEGMENT && value != 0) {
            error = WHAT::SEGMENT;
        }
        take({number, type, start, start + count, error});
        upper = type == TYPE_EXTENDED_LINEAR ? value << 16 : upper;
    });
}

/** Follows the data to its pages. */
class pageCheck {
public:
    explicit pageCheck(const LAYOUT& processor) : layout(processor) {}

    void take(const RECORD& record);
    std::vector<FINDING> finish(const hexpage& image);

private:
    const LAYOUT::REGION* regionOf(std::uint64_t address) const;
    std::uint64_t pageOf(std::uint64_t address) const;
    FINDING finding(WHAT what, std::uint64_t start, std::uint64_t end, unsigned line) const;
    void extend(FINDING& sum, std::uint64_t start, std::uint64_t end, unsigned line) const;
    std::uint64_t takePart(const RECORD& record, std::uint64_t start);
    void takePlaced(std::uint64_t start, std::uint64_t end, unsigned line);
    void findUnreached(const hexpage& image);

    const LAYOUT& layout;
    std::vector<FINDING> found;
    STRETCHES placed;
    std::map<std::uint64_t, std::uint64_t> ends; ///< of what each page has, by the page's start
    std::uint64_t latest = 0;                    ///< end of what was placed, or crossed an edge, last
    FINDING crossing{WHAT::CROSSING, 0, 0, 0, 0, 0};
    FINDING narrow{WHAT::NARROW, 0, 0, 0, 0, 0};
    FINDING unreached{WHAT::UNREACHED, 0, 0, 0, 0, 0};
    FINDING outside{WHAT::OUTSIDE, 0, 0, 0, 0, 0};
};

const LAYOUT::REGION* pageCheck::regionOf(std::uint64_t address) const {
    for (const LAYOUT::REGION& region : layout.regions) {
        const BOUNDS bounds = boundsOf(layout, region);
        if (address >= bounds.start && address < bounds.end) {
            return &region;
        }
    }
    return nullptr;
}

/** Start of the page of an address; the address itself where there is none. */
std::uint64_t pageCheck::pageOf(std::uint64_t address) const {
    const LAYOUT::REGION* const region = regionOf(address);
    if (region == nullptr) {
        return address;
    }
    const std::uint64_t offset = address - boundsOf(layout, *region).start;
    return address - offset % fileBytesPerPage(layout, region->blockSize);
}

FINDING pageCheck::finding(WHAT what, std::uint64_t start, std::uint64_t end, unsigned line) const {
    const auto address = [this](std::uint64_t fileAddress) {
        return static_cast<std::uint32_t>(fileAddress / bytesPerAddress(layout));
    };
    return {what,
            address(pageOf(start)),
            address(start),
            address(std::max(end, start + 1) - 1),
            static_cast<std::uint32_t>(end - start),
            line};
}

void pageCheck::extend(FINDING& sum, std::uint64_t start, std::uint64_t end, unsigned line) const {
    FINDING both = finding(sum.what, start, end, line);
    if (sum.bytes != 0) {
        const FINDING& first = both.from < sum.from ? both : sum;
        both = {sum.what,  first.page, first.from, std::max(both.to, sum.to), both.bytes + sum.bytes,
                first.line};
    }
    sum = both;
}

void pageCheck::take(const RECORD& record) {
    if (record.error) {
        found.push_back(finding(*record.error, record.start, record.end, record.line));
    }
    if (record.type != TYPE_DATA) {
        return;
    }
    if (layout.pic24Addressing && record.start % 4 != 0) {
        found.push_back(finding(WHAT::SPLIT, record.start, record.end, record.line));
    }
    for (std::uint64_t start = record.start; start < record.end;) {
        start = takePart(record, start);
    }
}

/** The part of the record that lies in one page, or up to the next region. Returns its end. */
std::uint64_t pageCheck::takePart(const RECORD& record, std::uint64_t start) {
    const LAYOUT::REGION* const region = regionOf(start);
    std::uint64_t end = record.end;
    if (region != nullptr) {
        end = std::min({end, boundsOf(layout, *region).end,
                        pageOf(start) + fileBytesPerPage(layout, region->blockSize)});
    } else {
        for (const LAYOUT::REGION& next : layout.regions) {
            const std::uint64_t edge = boundsOf(layout, next).start;
            end = edge > start ? std::min(end, edge) : end;
        }
    }
    const bool dropped = region == nullptr || regionOf(record.start) == nullptr;
    if (!dropped) {
        takePlaced(start, end, record.line);
    } else if (region != nullptr || (latest != 0 && start == latest)) {
        extend(crossing, start, end, record.line);
        latest = end;
    } else {
        extend(outside, start, end, record.line);
    }
    return end;
}

void pageCheck::takePlaced(std::uint64_t start, std::uint64_t end, unsigned line) {
    std::uint64_t& pageEnd = ends[pageOf(start)];
    if (start < pageEnd) {
        found.push_back(finding(WHAT::DISORDER, start, end, line));
    }
    const std::uint64_t reach = std::uint64_t{flashLayouts::NARROW_ADDRESSES} * bytesPerAddress(layout);
    if (!layout.wideAddress && end > reach) {
        extend(narrow, std::max(start, reach), end, line);
    }
    pageEnd = std::max(pageEnd, end);
    addStretch(placed, start, {end, line});
    latest = end;
}

void pageCheck::findUnreached(const hexpage& image) {
    bool reached = true;
    for (std::size_t i = 0; i < layout.regions.size(); ++i) {
        reached = reached && !image.getRegions()[i].pages.empty();
        const BOUNDS bounds = boundsOf(layout, layout.regions[i]);
        for (auto each = placed.lower_bound(bounds.start); each != placed.end() && each->first < bounds.end;
             ++each) {
            if (!reached) {
                extend(unreached, each->first, each->second.end, each->second.line);
            }
        }
    }
}

std::vector<FINDING> pageCheck::finish(const hexpage& image) {
    for (const LAYOUT::REGION& region : layout.regions) {
        for (const HOLE& hole : findGaps(placed, layout, region)) {
            found.push_back(finding(WHAT::GAP, hole.start, hole.end, hole.line));
        }
    }
    findUnreached(image);
    if (placed.empty()) {
        const LAYOUT::REGION& first = layout.regions.front();
        found.push_back({WHAT::EMPTY, first.start, first.start, layout.regions.back().end - 1, 0, 0});
    }
    for (const FINDING& sum : {crossing, narrow, unreached, outside}) {
        if (sum.bytes != 0) {
            found.push_back(sum);
        }
    }
    return std::move(found);
}

} // namespace

std::vector<FINDING> ofPages(const std::string& path, const LAYOUT& layout, const hexpage& image) {
    pageCheck check(layout);
    forEachRecord(path, [&check](const RECORD& record) { check.take(record); });
    return check.finish(image);
}

std::vector<FINDING> ofRecords(const std::string& path) {
    std::vector<FINDING> found;
    bool holdsData = false;
    forEachRecord(path, [&](const RECORD& record) {
        const auto start = static_cast<std::uint32_t>(record.start);
        const auto bytes = static_cast<std::uint32_t>(record.end - record.start);
        if (record.error) {
            found.push_back(
                {*record.error, start, start, start + std::max(bytes, 1U) - 1, bytes, record.line});
        }
        holdsData = holdsData || (record.type == TYPE_DATA && bytes > 0);
    });
    if (!holdsData) {
        found.push_back({WHAT::EMPTY, 0, 0, 0, 0, 0});
    }
    return found;
}

bool hasError(const std::vector<FINDING>& findings) {
    return std::any_of(findings.begin(), findings.end(),
                       [](const FINDING& each) { return each.what != WHAT::OUTSIDE; });
}

void addStretch(STRETCHES& stretches, std::uint64_t start, STRETCH added) {
    auto place = stretches.upper_bound(start);
    if (place != stretches.begin() && std::prev(place)->second.end >= start) {
        --place;
        place->second.end = std::max(place->second.end, added.end);
    } else {
        place = stretches.emplace_hint(place, start, added);
    }
    STRETCH& joined = place->second;
    for (++place; place != stretches.end() && place->first <= joined.end; place = stretches.erase(place)) {
        joined.end = std::max(joined.end, place->second.end);
    }
}

std::vector<HOLE> findGaps(const STRETCHES& data, const LAYOUT& layout, const LAYOUT::REGION& region) {
    const BOUNDS bounds = boundsOf(layout, region);
    const std::uint64_t page = fileBytesPerPage(layout, region.blockSize);
    std::vector<HOLE> gaps;
    std::uint64_t end = bounds.start; // of the data before
    for (const auto& [dataStart, stretch] : data) {
        const std::uint64_t start = std::max(dataStart, bounds.start);
        if (start >= std::min(stretch.end, bounds.end)) {
            continue;
        }
        const std::uint64_t pageStart = bounds.start + (start - bounds.start) / page * page;
        if (start > std::max(end, pageStart)) {
            gaps.push_back({std::max(end, pageStart), start, stretch.line});
        }
        end = stretch.end;
    }
    return gaps;
}

} // namespace imageCheck
