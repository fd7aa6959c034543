// What a firmware image puts where: read from what linkers write, written as the Intel HEX that the panel
// reads.
#pragma once

#include "files.h"
#include "hexCheck.h"
#include "processors.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace package {

// From an address to the one behind the last.
struct Span {
    std::uint64_t start;
    std::uint64_t end;
};

// Bytes by address, those of the HEX file.
class Image {
public:
    // Throws BadFile when there is data already.
    void put(std::uint64_t address, const std::vector<std::uint8_t>& bytes, unsigned line = 0);

    bool holds(std::uint64_t address) const;
    bool empty() const { return pieces_.empty(); }
    std::uint64_t size() const;
    // In ascending order, 16 bytes at most, none across a multiple of 16.
    std::vector<HexData> records() const;
    std::string hexText() const;

    // Drops what lies in none of a processor's flash regions, and tells what that was.
    std::vector<Span> crop(const flashLayouts::LAYOUT& layout);
    // Fills each used page from its start to its last used byte with what erased flash holds. The bytes
    // added.
    std::uint64_t fill(const flashLayouts::LAYOUT& layout);
    // As the processor's own addresses have them: a PIC32 has its flash in two places of its virtual ones.
    void toPhysical();

private:
    using Pieces = std::map<std::uint64_t, std::vector<std::uint8_t>>; // by start; none touches the next

    std::uint64_t fillPage(std::uint64_t start, std::uint64_t end, bool pic24);

    Pieces pieces_;
};

// Reads an ELF file (by load address), Motorola S-records or Intel HEX (with segments, in any order), by its
// content. Throws BadFile.
Image readImage(const std::filesystem::path& path);

} // namespace package
