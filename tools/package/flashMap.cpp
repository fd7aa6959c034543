#include "flashMap.h"

#include <algorithm>
#include <numeric>

namespace package {

using flashLayouts::LAYOUT;

namespace {

struct Byte {
    std::uint64_t address;
    std::uint8_t value;
};
using ByAddress = std::vector<Byte>; // a map would take thrice the memory

// In ascending order; of an address that comes twice, the last one.
ByAddress bytesOf(const HexFile& file) {
    ByAddress bytes;
    for (const HexData& record : file.records()) {
        for (std::size_t i = 0; i < record.bytes.size(); ++i)
            bytes.push_back({record.address + i, record.bytes[i]});
    }
    std::ranges::stable_sort(bytes, {}, &Byte::address);
    const auto same = [](const Byte& one, const Byte& other) { return one.address == other.address; };
    bytes.erase(bytes.begin(), std::unique(bytes.rbegin(), bytes.rend(), same).base());
    return bytes;
}

FlashRegion mapRegion(const HexFile& file, const LAYOUT& layout, const LAYOUT::REGION& region,
                      const ByAddress& bytes, std::size_t& outside) {
    const flashLayouts::BOUNDS bounds = boundsOf(layout, region);
    const std::uint32_t scale = bytesPerAddress(layout);
    const std::uint64_t size = fileBytesPerPage(layout, region.blockSize);
    const auto pageOf = [&](std::uint64_t address) {
        return static_cast<std::size_t>((address - bounds.start) / size);
    };
    const auto gaps = imageCheck::findGaps(file.stretches(), layout, region);
    FlashRegion map{region.start, region.end, region.blockSize, scale, {}, gaps.size()};
    const auto first = std::ranges::lower_bound(bytes, bounds.start, {}, &Byte::address);
    const auto behind = std::ranges::lower_bound(bytes, bounds.end, {}, &Byte::address);
    for (auto at = first; at != behind; ++at) {
        const std::size_t page = pageOf(at->address);
        while (map.pages.size() <= page)
            map.pages.push_back({static_cast<std::uint32_t>(region.start + map.pages.size() * size / scale),
                                 layout.eraseEmptyPages ? FlashPage::Use::Erased : FlashPage::Use::Skipped,
                                 {}});
        map.pages[page].use = FlashPage::Use::Used;
        map.pages[page].data.push_back(at->value);
    }
    outside -= static_cast<std::size_t>(behind - first);
    for (const imageCheck::HOLE& gap : gaps)
        map.pages[pageOf(gap.start)].use = FlashPage::Use::Gap;
    return map;
}

} // namespace

std::size_t FlashRegion::used() const {
    return static_cast<std::size_t>(
        std::count_if(pages.begin(), pages.end(), [](const FlashPage& each) { return !each.data.empty(); }));
}

std::size_t FlashRegion::bytes() const {
    return std::accumulate(pages.begin(), pages.end(), std::size_t{0},
                           [](std::size_t sum, const FlashPage& each) { return sum + each.data.size(); });
}

FlashMap mapOf(const HexFile& file, const Processor& processor, bool serial) {
    const LAYOUT layout = processor.layout(serial);
    const ByAddress bytes = bytesOf(file);
    FlashMap map;
    map.outside = bytes.size();
    for (const LAYOUT::REGION& region : layout.regions)
        map.regions.push_back(mapRegion(file, layout, region, bytes, map.outside));
    return map;
}

} // namespace package
