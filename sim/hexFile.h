// Intel HEX files of a module's flash. Where the flash packs instructions of 3 bytes, the file has 4 bytes
// for each, the last of them zero.
#pragma once

#include "flash.h"

#include <string>

namespace sim {

// Puts the data records of the file into the flash. Throws std::runtime_error for a file that can't be read
// or holds a bad record.
void preloadHexFile(const std::string& file, bool packsInstructions, Flash& flash);

// Writes rows of 16 bytes; rows that are wholly erased are left out. Throws std::runtime_error.
void writeHexFile(const std::string& file, bool packsInstructions, const Flash& flash);

} // namespace sim
