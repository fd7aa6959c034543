// Draws an image's place in a module's flash.
#pragma once

#include "processors.h"

#include <filesystem>
#include <string>

namespace package {

// The regions with a map of their pages: # used, - empty, ! with a gap; of an image with errors, too. With
// `colours` for a terminal. Throws Failure when there is no data in it.
std::string drawImage(const std::filesystem::path& path, const Processor* processor, bool serial,
                      bool colours);

} // namespace package
