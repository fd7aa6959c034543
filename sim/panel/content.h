// What a package is made from, and what is around the panel that it comes to.
#pragma once

#include "description.h"

#include <filesystem>

namespace panel {

// Random bytes, so that nothing but a right update can make flash equal to them. Packed pieces have their
// addresses in units and their sizes in bytes of flash.
Memory randomImage(const std::vector<std::pair<std::uint32_t, std::uint32_t>>& pieces, bool packed);

// Writes the files of the package but the updater, all images, and package.json, which describes them.
void writeContent(const Description& description, const std::filesystem::path& folder);

// The inventory of the bus, which the package tool reads as well; images are preloaded from the content's
// folder.
std::string busInventory(const Description& description, const std::filesystem::path& content);
// The record of what is installed.
std::string systemManifest(const Description& description);

} // namespace panel
