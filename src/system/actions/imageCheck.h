#pragma once

#include "flashLayouts.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

/**
 * Finds out what of an image would not reach a module as the file has it. The readers accept much, and place
 * bytes in the order in which they come. Like flashLayouts, it needs nothing of the running panel.
 */
namespace imageCheck {

enum class WHAT : std::uint8_t {
    DAMAGED,  ///< a record with characters that are no digits, of another length than it says, or a wrong sum
    SEGMENT,  ///< a segment address (type 02), which is not applied to what follows
    SPLIT,    ///< a record that begins inside a PIC24's instruction: the wrong bytes count as fourth ones
    DISORDER, ///< bytes for which their page has later ones already: they land behind those
    GAP,      ///< no bytes, but some behind them in the same page: those move up
    CROSSING, ///< data that runs on across the edge of a region: dropped
    NARROW,   ///< data behind the last address that requests can name: it goes to the address modulo 0x10000
    UNREACHED, ///< data behind a region without any, where the walk over the pages ends
    EMPTY,     ///< there is no data for the module at all
    OUTSIDE    ///< data apart from every region (option words, say): dropped, and no error
};

/** Addresses are the target's, as the pages have them; `to` is the last one. For EMPTY the whole flash. */
struct FINDING {
    WHAT what;
    std::uint32_t page; ///< start of the page that `from` lies in; without one, `from`
    std::uint32_t from;
    std::uint32_t to;
    std::uint32_t bytes; ///< of the file; 0 for EMPTY
    unsigned line;       ///< where it begins in the file, counted from 1; 0 for none

    bool operator==(const FINDING&) const = default;
};

/** For an image that readImage() has read from the same file. OUTSIDE comes last, once at most. */
std::vector<FINDING> ofPages(const std::string& path, const flashLayouts::LAYOUT& layout,
                             const hexpage& image);

/** For an image that is sent record by record. */
std::vector<FINDING> ofRecords(const std::string& path);

/** Whether one of them is an error. */
bool hasError(const std::vector<FINDING>& findings);

/**
 * What of an address space has data: stretches that do not touch, by their start. Addresses are the file's,
 * ends lie behind the last byte; 64 bits, since that may be behind the last 32-bit address.
 */
struct STRETCH {
    std::uint64_t end;
    unsigned line; ///< that begins it
};
using STRETCHES = std::map<std::uint64_t, STRETCH>;

void addStretch(STRETCHES& stretches, std::uint64_t start, STRETCH added);

struct HOLE {
    std::uint64_t start;
    std::uint64_t end;
    unsigned line; ///< of the data behind it
};

/** The gaps inside the pages of a region, before a page's first byte too. */
std::vector<HOLE> findGaps(const STRETCHES& data, const flashLayouts::LAYOUT& layout,
                           const flashLayouts::LAYOUT::REGION& region);

} // namespace imageCheck
