#pragma once

#include "../coreState.h"
#include "../packageRules.h"

#include <string>

/** Where the actions find what a package brought. */
namespace packageFile {

/**
 * The image for a hardware revision; the bare directory, which no reader takes, when the package has none or
 * its name is refused.
 */
inline std::string ofItem(const coreState::BASE_ITEM& item, std::uint8_t revision) {
    const auto& items = item.update.items;
    const bool isTaken = revision < items.size() && !packageRules::leadsOutside(items[revision].item);
    return packageRules::UNPACKED + (isTaken ? items[revision].item : std::string());
}

} // namespace packageFile
