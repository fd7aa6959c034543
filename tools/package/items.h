// What a package can bring: the items by the names that manifests use, and the order in which the panel
// visits the things that they update.
#pragma once

#include "system/modules.h"

#include <cstdint>
#include <string>
#include <vector>

namespace package {

enum class Content {
    Image,    // written to a device as it is
    Files,    // a file or a directory's contents, copied
    Recorded, // nothing installed
    Firmware, // a HEX image for each hardware revision
};

struct ItemKind {
    const char* name;
    Content content;
    bool serial; // its module is on the serial bootloader
};

// Null for an unknown name.
const ItemKind* findItem(const std::string& name);

std::vector<std::string> itemNames();

// One stop of the panel's update run.
struct Stop {
    const char* shown;          // as the panel names it
    const char* item;           // in manifests
    const modules::ROW* module; // null for the panel's own items
};

const std::vector<Stop>& visitingOrder();

} // namespace package
