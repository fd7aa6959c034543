#include "flashMap.h"

#include <algorithm>
#include <map>
#include <numeric>

namespace package {

using flashLayouts::LAYOUT;

namespace {

using ByAddress = std::map<std::uint64_t, std::uint8_t>;

ByAddress bytesOf(const HexFile& file) {
    ByAddress bytes;
    for (const HexData& record : file.records()) {
        for (std::size_t i = 0; i < record.bytes.size(); ++i)
            bytes[record.address + i] = record.bytes[i];
    }
    return bytes;
}

FlashRegion mapRegion(const HexFile& file, const LAYOUT& layout, const LAYOUT::REGION& region,
                      ByAddress& bytes) {
    const flashLayouts::BOUNDS bounds = boundsOf(layout, region);
    const std::uint32_t scale = bytesPerAddress(layout);
    const std::uint64_t size = fileBytesPerPage(layout, region.blockSize);
    const auto gaps = imageCheck::findGaps(file.stretches(), layout, region);
    FlashRegion map{region.start, region.end, region.blockSize, scale, {}, gaps.size()};
    const auto first = bytes.lower_bound(bounds.start);
    const auto behind = bytes.lower_bound(bounds.end);
    for (auto at = first; at != behind; ++at) {
        const std::uint64_t page = (at->first - bounds.start) / size;
        while (map.pages.size() <= page)
            map.pages.push_back({static_cast<std::uint32_t>(region.start + map.pages.size() * size / scale),
                                 layout.eraseEmptyPages ? FlashPage::Use::Erased : FlashPage::Use::Skipped,
                                 {}});
        map.pages[page].use = FlashPage::Use::Used;
        map.pages[page].data.push_back(at->second);
    }
    bytes.erase(first, behind);
    for (const imageCheck::HOLE& gap : gaps)
        map.pages[(gap.start - bounds.start) / size].use = FlashPage::Use::Gap;
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
    ByAddress bytes = bytesOf(file);
    FlashMap map;
    for (const LAYOUT::REGION& region : layout.regions)
        map.regions.push_back(mapRegion(file, layout, region, bytes));
    map.outside = bytes.size();
    return map;
}

} // namespace package
