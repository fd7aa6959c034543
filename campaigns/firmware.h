#pragma once

#include "sim/panel/hexImage.h"

#include <cstdint>
#include <random>
#include <set>
#include <span>
#include <string>
#include <vector>

// Firmware images and what a module's flash must hold after an update with one of them. Written from
// docs/bus-protocol.md and the HEX format alone: shares no code with the updater or the simulator.

using panel::Memory;

struct Kind {
    const char* name; ///< as the simulator's inventory has it
    std::vector<std::uint32_t>
        regions;             ///< where flash begins, as HEX file addresses; the first is one page on PIC24
    std::uint32_t pageBytes; ///< of a HEX file
    bool packed;             ///< every fourth byte of a file is none of the flash
    bool erasedWhole;        ///< before the first page
    bool gapsErased;         ///< pages without data between used ones
    bool byRecords;

    std::uint32_t unit(std::uint32_t address) const { return packed ? address / 2 : address; }
};

std::span<const Kind> kinds();
const Kind& kindNamed(const std::string& name);

/** A few KiB: full, partial and one-row pages, or the latter alone, with unused ones between them. */
Memory makeImage(const Kind& kind, std::mt19937_64& random, bool smallPages = false);
/** Pages of the image in the order in which they are sent. */
std::vector<std::uint32_t> usedPages(const Kind& kind, const Memory& image);

/** The image as a HEX file; records are shorter now and then when they may be. */
std::string hexFile(const Kind& kind, const Memory& image, std::mt19937_64& random);
/** Flash that was full of OLD bytes before, with pages that the bootloader does not let change. */
constexpr std::uint8_t OLD = 0xA5;
constexpr std::uint32_t OLD_BYTES = 0x8000; // of a HEX file, from the first region's start
Memory flashAfter(const Kind& kind, const Memory& image, const std::set<std::uint32_t>& ignoredPages);
