// What the processors of the modules differ in.
#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace sim {

struct AddressRange {
    std::uint32_t start;
    std::uint32_t end; // exclusive
};

struct Processor {
    const char* name;                   // in inventory files
    std::uint8_t kind;                  // bits 0-6 of the kind byte of an identification
    bool identifies;                    // enters its bootloader with an identification, not with a mere reply
    bool wideAddress;                   // its commands carry 32-bit addresses on CAN, too
    bool byRecords;                     // programmed record by record, not page by page
    bool erasesOnWrite;                 // writing a page erases it first
    std::uint32_t pageUnits;            // address units of a page
    std::uint32_t pageBytes;            // bytes of a page
    std::array<AddressRange, 2> ranges; // of flash; pages are counted from the start of each

    // Instructions of 3 bytes, 2 address units each, without the fourth byte that a HEX file gives them.
    bool packsInstructions() const { return pageUnits * 3 == pageBytes * 2; }
    // The index of the byte in flash that stands at an address.
    std::uint32_t cellOf(std::uint32_t address) const;
    bool isPageStart(std::uint32_t address) const;
};

// Throws std::invalid_argument for an unknown name.
const Processor& processorNamed(const std::string& name);

} // namespace sim
