#pragma once

#include "../../lib/hexfile/hexPage.h"

#include <cstdint>
#include <string>
#include <vector>

/**
 * The flash layouts of the processors that the panel programs page by page, and how an image is read for one.
 * Addresses are the target's own: bytes, or units of half an instruction on a PIC24. Needs nothing of the
 * running panel, so that programs on a desk can judge an image as the panel does.
 */
namespace flashLayouts {

/** How a processor's flash is laid out and brought to the new image. */
struct LAYOUT {
    struct REGION {
        std::uint32_t start;     ///< first address, in the target's units
        std::uint32_t end;       ///< behind the last one
        std::uint32_t blockSize; ///< page size in data bytes
    };
    std::vector<REGION> regions;
    bool pic24Addressing; ///< addresses count 24-bit instructions
    bool eraseAllFirst;   ///< the flash is erased as a whole before the first page
    bool eraseEmptyPages; ///< pages without data are erased; else they are skipped
    bool wideAddress;     ///< requests carry 32 address bits; else 16
};

/** Behind the last address that a request with 16 address bits can name. */
constexpr std::uint32_t NARROW_ADDRESSES = 0x10000;

/**
 * Reads an image. Throws nothing: false for a file that can't be read or that breaks the format. Whether all
 * of it would reach the module is imageCheck's question.
 */
bool readImage(const std::string& path, const LAYOUT& layout, hexpage& image);

/** Bytes of the HEX file to one address of the target. */
inline std::uint32_t bytesPerAddress(const LAYOUT& layout) {
    return layout.pic24Addressing ? 2 : 1;
}

/** Bytes of the HEX file that a page of this size spans: a PIC24 page stores 3 of every 4. */
inline std::uint32_t fileBytesPerPage(const LAYOUT& layout, std::uint32_t blockSize) {
    return layout.pic24Addressing ? blockSize / 3 * 4 : blockSize;
}

/** Addresses of the HEX file; the end lies behind the last one, perhaps behind all of 32 bits. */
struct BOUNDS {
    std::uint64_t start;
    std::uint64_t end;
};

inline BOUNDS boundsOf(const LAYOUT& layout, const LAYOUT::REGION& region) {
    const std::uint64_t scale = bytesPerAddress(layout);
    return {region.start * scale, region.end * scale};
}

/**
 * Flash from its start at 0x08000000 (the memory map of the STM32 reference manuals) up to the 8 KiB at the
 * top of 256 KiB that the modules keep their settings in; 2048 bytes is the page of the F0 and F3. An F4 has
 * far larger sectors: its bootloader erases everything at once and takes pages of the same size.
 */
inline LAYOUT stm32(bool isF4) {
    return {{{0x08000000, 0x0803E000, 2048}}, false, isF4, isF4, true};
}

/**
 * 0x600 data bytes are 512 instructions of 3 bytes, one erase block. The range from 0x400 to 0x1000 is the
 * bootloader's; 0x7FFFFE is the end of a PIC24's user memory (its data sheets' program memory map).
 */
inline LAYOUT pic24New(bool wideAddress) {
    return {{{0, 0x400, 0x600}, {0x1000, 0x7FFFFE, 0x600}}, true, false, true, wideAddress};
}

/** The old bootloader takes the addresses as the HEX file has them and finds its own blocks. */
inline LAYOUT pic24Old() {
    return {{{0, 0x7FFFFE, 0x600}}, false, false, false, false};
}

/**
 * Program flash at its physical address, 0x1D000000 in the PIC32 memory map, for 512 KiB parts; 4096 bytes is
 * their erase page.
 */
inline LAYOUT pic32() {
    return {{{0x1D000000, 0x1D080000, 4096}}, false, false, false, true};
}

} // namespace flashLayouts
