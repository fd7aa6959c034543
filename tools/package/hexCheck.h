// A firmware image looked at strictly: the records as the Intel HEX format wants them, and their addresses as
// a processor's flash wants them. The panel looks at neither.
#pragma once

#include "failure.h"
#include "finding.h"
#include "processors.h"
#include "system/actions/imageCheck.h"

#include <cstdint>
#include <filesystem>
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

// Several times the text that the largest module's image has, and its records.
inline constexpr std::uint64_t LARGEST_IMAGE = 3'000'000;
inline constexpr std::size_t MOST_RECORDS = 70'000;

class HugeImage : public Failure {
public:
    using Failure::Failure;
};

class HexFile {
public:
    // Reads the file and reports what is wrong with its records; `name` is what findings call it. Throws
    // Failure when it can't be read, HugeImage when there is more in it than any module takes.
    HexFile(const std::filesystem::path& path, const std::string& name, Findings& findings);

    const std::vector<HexData>& records() const { return records_; }      // data records, in file order
    const imageCheck::STRETCHES& stretches() const { return stretches_; } // what has data

private:
    struct State;

    void readLine(std::string_view line, State& state);
    void readRecord(const std::vector<std::uint8_t>& bytes, State& state);
    void addData(const std::vector<std::uint8_t>& bytes, State& state);

    std::vector<HexData> records_;
    imageCheck::STRETCHES stretches_;
};

// The most likely processor: STM32 and PIC32 have addresses of their own, and images for a PIC24's new
// bootloader have zeros for every fourth byte.
const Processor& guessProcessor(const std::vector<HexData>& records);

// Of a file; null when it is no Intel HEX, or too large.
const Processor* guessProcessor(const std::filesystem::path& path);

// Checks one image for one processor; without one, for the most likely one.
void checkHex(const std::filesystem::path& path, const std::string& name, const Processor* processor,
              bool serial, Findings& findings);

} // namespace package
