#include "processors.h"

#include "platform.h"
#include "system/actions/imageCheck.h"

#include <algorithm>

namespace package {

namespace {

using flashLayouts::LAYOUT;

enum : unsigned { MIPS = 8, ARM = 40, DSPIC = 118 };

LAYOUT stm32(bool) {
    return flashLayouts::stm32(false);
}

LAYOUT stm32f4(bool) {
    return flashLayouts::stm32(true);
}

LAYOUT pic24(bool serial) {
    return flashLayouts::pic24New(serial);
}

LAYOUT pic24Old(bool) {
    return flashLayouts::pic24Old();
}

LAYOUT pic32(bool) {
    return flashLayouts::pic32();
}

} // namespace

const std::vector<Processor>& processors() {
    static const std::vector<Processor> all = {
        // records, identifies, onCan
        {"pic24", false, true, true, DSPIC, pic24},        {"pic24-old", false, false, true, DSPIC, pic24Old},
        {"pic32-records", true, true, false, MIPS, pic32}, {"pic32-pages", false, true, false, MIPS, pic32},
        {"stm32f0", false, true, true, ARM, stm32},        {"stm32f3", false, true, true, ARM, stm32},
        {"stm32f4", false, true, true, ARM, stm32f4},
    };
    return all;
}

const Processor* findProcessor(const std::string& name) {
    const auto found = std::find_if(processors().begin(), processors().end(),
                                    [&](const Processor& each) { return each.name == name; });
    return found == processors().end() ? nullptr : &*found;
}

std::vector<std::string> processorNames() {
    std::vector<std::string> names;
    for (const Processor& each : processors())
        names.push_back(each.name);
    return names;
}

bool readByPanel(const std::filesystem::path& path, const LAYOUT& layout, hexpage& image) {
    const platform::Silence silence;
    return flashLayouts::readImage(path.string(), layout, image);
}

bool acceptedByPanel(const std::filesystem::path& path, const LAYOUT& layout, hexpage& image) {
    return readByPanel(path, layout, image) &&
           !imageCheck::hasError(imageCheck::ofPages(path.string(), layout, image));
}

} // namespace package
