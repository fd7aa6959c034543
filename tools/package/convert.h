// From what a linker writes to what the panel reads.
#pragma once

#include "image.h"

namespace package {

struct Conversion {
    const Processor* processor = nullptr; // null: the most likely one
    bool serial = false;                  // for the module on the serial bootloader
    bool fill = true;
    bool crop = false;
};

struct Converted {
    std::string text; // Intel HEX
    const Processor* processor = nullptr;
    std::uint64_t bytes = 0;
    std::uint64_t filled = 0; // of them
    std::vector<Span> dropped;
};

// Throws BadFile.
Converted convertImage(const std::filesystem::path& path, const Conversion& conversion);

std::string summaryOf(const Converted& converted); // for people, without a line end

} // namespace package
