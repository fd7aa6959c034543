// An image in its processor's flash, page by page: of images with errors, too.
#pragma once

#include "hexCheck.h"

#include <cstdint>
#include <vector>

namespace package {

struct FlashPage {
    enum class Use {
        Used,
        Gap,    // used, with a gap inside
        Erased, // without data, and erased all the same
        Skipped // without data, and left as it is
    };
    std::uint32_t address; // the panel's
    Use use = Use::Skipped;
    std::vector<std::uint8_t> data; // without the gaps
};

struct FlashRegion {
    std::uint32_t start; // the panel's addresses
    std::uint32_t end;   // behind the last
    std::uint32_t pageSize;
    std::uint32_t scale;          // bytes of the file to one address
    std::vector<FlashPage> pages; // from the first one up to the last one with data
    std::size_t gaps = 0;

    std::size_t used() const;
    std::size_t bytes() const;
};

struct FlashMap {
    std::vector<FlashRegion> regions;
    std::size_t outside = 0; // bytes that no region takes
};

FlashMap mapOf(const HexFile& file, const Processor& processor, bool serial);

} // namespace package
