#pragma once

#include "../../lib/plainFile.h"
#include "../coreState.h"
#include "../packageRules.h"

#include <cstdint>
#include <string>

/** Where the actions find what a package brought, and what they look at before they use it. */
namespace packageFile {

/**
 * The image for a hardware revision; the bare directory, which no reader takes, when the package has none or
 * its name is refused.
 */
std::string ofItem(const coreState::BASE_ITEM& item, std::uint8_t revision);

/**
 * True when `path`, within the unpacked package, is a plain file of it, of at most `most` bytes, and still
 * what was packed, as far as the manifest tells that. Else the log says why not. Reads it
 * to its end, unless a cancel ends that of a file that may have any size: ask first whether there is room.
 */
bool isSound(coreState& core, const std::string& path, std::uint64_t most = plainFile::ANY_SIZE);

} // namespace packageFile
