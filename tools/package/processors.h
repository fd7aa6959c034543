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
    bool records;     // takes the HEX file record by record: no pages
    bool identifies;  // its bootloader tells what it is
    bool onCan;       // the panel programs it over CAN; all that identify themselves also on the serial line
    unsigned machine; // as the headers of ELF files number it
    flashLayouts::LAYOUT (*layout)(bool serial);
};

const std::vector<Processor>& processors();
// Null for an unknown name.
const Processor* findProcessor(const std::string& name);

std::vector<std::string> processorNames();

// The panel's own reader. What it says on standard output is for the panel's journal and is dropped.
bool readByPanel(const std::filesystem::path& path, const flashLayouts::LAYOUT& layout, hexpage& image);
// The same; false also for what a panel with strict_images = 1 refuses.
bool acceptedByPanel(const std::filesystem::path& path, const flashLayouts::LAYOUT& layout, hexpage& image);

} // namespace package
