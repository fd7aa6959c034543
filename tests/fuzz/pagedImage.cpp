// An image cut into pages: with the layouts of the panel's processors, and with regions that no processor
// has.

#include "input.h"
#include "system/actions/imageCheck.h"

#include <vector>

namespace {

using LAYOUT = flashLayouts::LAYOUT;

constexpr std::size_t PROCESSORS = 5; // the first ones

const std::vector<LAYOUT>& layouts() {
    static const LAYOUT::REGION top{0xFFFF0000, 0xFFFFFFFF, 0x1000};
    static const LAYOUT::REGION overlapping{0x800, 0x1800, 0x600};
    static const LAYOUT::REGION tiny{0x20, 0x40, 1};
    static const std::vector<LAYOUT> all = {
        flashLayouts::stm32(true),
        flashLayouts::pic24New(true),
        flashLayouts::pic24New(false),
        flashLayouts::pic24Old(),
        flashLayouts::pic32(),
        {{{0, 0x1000, 0x400}, overlapping, tiny, top}, false, false, false, true},
        {{tiny, overlapping, top}, true, false, false, true},
    };
    return all;
}

/** Each region's pages follow each other from its start on. Returns the bytes that they hold. */
std::size_t checkPages(const hexpage& image) {
    std::size_t bytes = 0;
    for (const hexpage::MEMORY_REGION& region : image.getRegions()) {
        std::uint32_t next = region.startAddress;
        for (const hexpage::MEMORY_PAGE& page : region.pages) {
            input::require(page.startAddress == next && page.endAddress >= page.startAddress);
            next = page.endAddress + 1;
            bytes += page.data.size();
        }
    }
    return bytes;
}

/** No page holds more than its region's pages have. */
void checkSizes(const hexpage& image) {
    for (const hexpage::MEMORY_REGION& region : image.getRegions()) {
        for (const hexpage::MEMORY_PAGE& page : region.pages) {
            input::require(page.data.size() <= region.blockSize);
        }
    }
}

/** The walk meets every byte exactly when the image says so. */
void checkWalk(hexpage& image) {
    std::size_t met = 0;
    std::uint32_t pages = 0;
    image.resetIterator();
    while (const hexpage::MEMORY_PAGE* page = image.getNextPage()) {
        met += page->data.size();
        ++pages;
    }
    input::require(pages <= image.getTotalPages());
    input::require(image.walkReachesAllData() == (met > 0 && met == checkPages(image)));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    // The first byte chooses the layout; '1' to '7' in the seeds.
    const LAYOUT& layout = layouts()[data[0] % layouts().size()];
    const std::string path = input::file(data + 1, size - 1);
    hexpage image;
    const bool isRead = flashLayouts::readImage(path, layout, image);
    if (isRead && &layout < &layouts()[PROCESSORS] &&
        !imageCheck::hasError(imageCheck::ofPages(path, layout, image))) {
        input::require(image.walkReachesAllData());
        checkSizes(image);
    }
    checkWalk(image); // what a broken file left is walked, too
    return 0;
}
