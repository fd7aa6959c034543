#pragma once

#include "actions/packageFile.h"

#include <cstdint>
#include <string>

/** How long the steps of a run will take, by what the package has for them. */
namespace stepDurations {

/** Of a file, or of all files of a directory; 0 for one that is not there or leads out of the package. */
std::uint64_t bytesOf(const std::string& path);
double secondsOfBytes(std::uint64_t bytes);

/** 0 when it is known to be up to date, or the package has nothing for it. */
double ofHostItem(const coreState::BASE_ITEM& item, bool force);
/**
 * Of a module, whose processor only its bootloader will tell. One that has not told its hardware revision yet
 * is expected to take the first image; where several share the images, the mean of them.
 */
double ofModule(const coreState::BASE_ITEM& item, bool isOneOfSeveral, bool force, unsigned baud);

} // namespace stepDurations
