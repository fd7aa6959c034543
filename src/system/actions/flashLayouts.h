#pragma once

#include "bootloadDialogue.h"

/**
 * The flash layouts of the processors that the panel programs page by page. Addresses are the target's own:
 * bytes, or units of half an instruction on a PIC24.
 */
namespace flashLayouts {

/**
 * Flash from its start at 0x08000000 (the memory map of the STM32 reference manuals) up to the 8 KiB at the
 * top of 256 KiB that the modules keep their settings in; 2048 bytes is the page of the F0 and F3. An F4 has
 * far larger sectors: its bootloader erases everything at once and takes pages of the same size.
 */
inline bootloadDialogue::LAYOUT stm32(const char* title, bool isF4) {
    return {title, {{0x08000000, 0x0803E000, 2048}}, false, isF4, isF4, true};
}

/**
 * 0x600 data bytes are 512 instructions of 3 bytes, one erase block. The range from 0x400 to 0x1000 is the
 * bootloader's; 0x7FFFFE is the end of a PIC24's user memory (its data sheets' program memory map).
 */
inline bootloadDialogue::LAYOUT pic24New(const char* title, bool wideAddress) {
    return {title, {{0, 0x400, 0x600}, {0x1000, 0x7FFFFE, 0x600}}, true, false, true, wideAddress};
}

/** The old bootloader takes the addresses as the HEX file has them and finds its own blocks. */
inline bootloadDialogue::LAYOUT pic24Old(const char* title) {
    return {title, {{0, 0x7FFFFE, 0x600}}, false, false, false, false};
}

/**
 * Program flash at its physical address, 0x1D000000 in the PIC32 memory map, for 512 KiB parts; 4096 bytes is
 * their erase page.
 */
inline bootloadDialogue::LAYOUT pic32(const char* title) {
    return {title, {{0x1D000000, 0x1D080000, 4096}}, false, false, false, true};
}

} // namespace flashLayouts
