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
    std::uint64_t filled = 0;  // of them
    std::vector<Span> outside; // of the processor's flash: dropped when it was to be cropped
};

// Throws BadFile, also for what has nothing in the flash, or would lose the end of a program by cropping.
Converted convertImage(const std::filesystem::path& path, const Conversion& conversion);

std::string spansText(const std::vector<Span>& spans); // "0x1000 to 0x1FFF, 0x3000 to 0x3003"
// For people, without a line end: what came of it, what was assumed, what is outside.
std::string summaryOf(const Converted& converted, const Conversion& conversion);

} // namespace package
