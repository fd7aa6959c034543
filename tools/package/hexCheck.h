// A firmware image looked at strictly: the records as the Intel HEX format wants them, and their addresses as
// a processor's flash wants them. The panel looks at neither.
#pragma once

#include "finding.h"
#include "processors.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace package {

// Addresses in this header are those of the HEX file, ends lie behind the last byte. 64 bits: an end may lie
// behind the last 32-bit address.
struct HexData {
    unsigned line;
    std::uint64_t address;
    std::vector<std::uint8_t> bytes;
};

class HexFile {
public:
    // Reads the file and reports what is wrong with its records; `name` is what findings call it. Throws
    // Failure when it can't be read.
    HexFile(const std::filesystem::path& path, const std::string& name, Findings& findings);

    const std::vector<HexData>& records() const { return records_; } // data records, in file order
    // What has data: start to end, merged and ascending, with the line that begins it.
    struct Span {
        std::uint64_t end;
        unsigned line;
    };
    const std::map<std::uint64_t, Span>& spans() const { return spans_; }

private:
    struct State;

    void readLine(std::string_view line, State& state);
    void readRecord(const std::vector<std::uint8_t>& bytes, State& state);
    void addData(const std::vector<std::uint8_t>& bytes, State& state);
    void mergeSpans();

    std::vector<HexData> records_;
    std::map<std::uint64_t, Span> spans_;
};

// The most likely processor: STM32 and PIC32 have addresses of their own, and images for a PIC24's new
// bootloader have zeros for every fourth byte.
const Processor& guessProcessor(const HexFile& file);

struct Gap {
    std::uint64_t start;
    std::uint64_t end;
    unsigned line; // of the data behind it
};

// The gaps inside the pages of a region, before each page's first byte too: the panel closes them up.
std::vector<Gap> findGaps(const HexFile& file, const flashLayouts::LAYOUT& layout,
                          const flashLayouts::LAYOUT::REGION& region);

// Checks one image for one processor; without one, for the most likely one.
void checkHex(const std::filesystem::path& path, const std::string& name, const Processor* processor,
              bool serial, Findings& findings);

} // namespace package
