#include "flashLayouts.h"

#include "../../lib/functs.h"

#include <stdexcept>

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
        return image.parse(path, false);
    } catch (const std::out_of_range&) {
        return false; // a record that announces more bytes than its line holds
    }
}
