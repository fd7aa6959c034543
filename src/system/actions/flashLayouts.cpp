#include "flashLayouts.h"

#include "../../lib/functs.h"

#include <stdexcept>

namespace {

/** True when every page with data fits into the requests: its address, and no more bytes than a page has. */
bool isSendable(hexpage& image, const flashLayouts::LAYOUT& layout) {
    bool fits = true;
    image.resetIterator();
    while (const hexpage::MEMORY_PAGE* page = image.getNextPage()) {
        fits =
            fits && page->data.size() <= layout.regions.front().blockSize &&
            (layout.wideAddress || page->data.empty() || page->endAddress < flashLayouts::NARROW_ADDRESSES);
    }
    return fits;
}

} // namespace

bool flashLayouts::readImage(const std::string& path, const LAYOUT& layout, hexpage& image) {
    if (!functs().isFile(path)) {
        return false;
    }
    image.clear();
    if (layout.pic24Addressing) {
        image.setPIC24();
    }
    for (const LAYOUT::REGION& region : layout.regions) {
        image.addRegion(region.start, region.end, region.blockSize);
    }
    try {
        return image.parse(path, false) && image.walkReachesAllData() && isSendable(image, layout);
    } catch (const std::out_of_range&) {
        return false; // a record that announces more bytes than its line holds
    }
}
