#pragma once

#include "../coreState.h"

#include <string>

/** Where the actions find what a package brought. */
namespace packageFile {

inline const std::string DIRECTORY = "/keldra/tmp/keldra_update/";

/** A name of at most this many characters stands for no file: the item is passed over. */
constexpr std::string::size_type NO_FILE_LENGTH = 2;

/** True when a component of the name leads out of the directory it is used in. */
inline bool leadsOutside(const std::string& name) {
    return ("/" + name + "/").find("/../") != std::string::npos;
}

/** The image for a hardware revision; the bare directory when the package has none. */
inline std::string ofItem(const coreState::BASE_ITEM& item, std::uint8_t revision) {
    const auto& items = item.update.items;
    return DIRECTORY + (revision < items.size() ? items[revision].item : std::string());
}

} // namespace packageFile
