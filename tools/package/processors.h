// The processors that modules have, and what the panel makes of a firmware image for them.
#pragma once

#include "system/actions/flashLayouts.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace package {

struct Processor {
    const char* name;
    bool records;    // takes the HEX file record by record: no pages
    bool identifies; // its bootloader tells what it is
    bool onCan;      // the panel programs it over CAN; all that identify themselves also on the serial line
    flashLayouts::LAYOUT (*layout)(bool serial);
};

const std::vector<Processor>& processors();
// Null for an unknown name.
const Processor* findProcessor(const std::string& name);

// HEX file addresses to one address of the target.
inline std::uint32_t bytesPerAddress(const flashLayouts::LAYOUT& layout) {
    return layout.pic24Addressing ? 2 : 1;
}
// HEX file bytes that a page of this size spans: a PIC24 page stores 3 of every 4.
inline std::uint32_t fileBytesPerPage(const flashLayouts::LAYOUT& layout, std::uint32_t blockSize) {
    return layout.pic24Addressing ? blockSize / 3 * 4 : blockSize;
}

// The panel's own reader. What it says on standard output is for the panel's journal and is dropped.
bool readByPanel(const std::filesystem::path& path, const flashLayouts::LAYOUT& layout, hexpage& image);

} // namespace package
