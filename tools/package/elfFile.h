// ELF files: what machine they are for, and what of them is loaded.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace package {

struct ElfFacts {
    unsigned machine = 0; // as the file's header numbers it
    unsigned bits = 0;    // 32 or 64
    bool bigEndian = false;
    bool program = false; // can be started; else a library, object file or kernel module
    std::uint32_t flags = 0;
    bool cut = false; // the file ends before what its headers announce

    std::string machineName() const; // "ARM, 32 bits"
};

// None for a file that is no ELF file, or whose headers are damaged.
std::optional<ElfFacts> readElfFacts(const std::filesystem::path& path);

struct ElfPiece {
    std::uint64_t address; // where it is stored, not where a program's start copies it to
    std::vector<std::uint8_t> bytes;
};

// The sections that are loaded (of a file without sections, its segments). Throws BadFile.
std::vector<ElfPiece> readElfPieces(const std::filesystem::path& path);

// A computer that programs are for, by the name that Debian gives it.
struct Machine {
    const char* name;
    unsigned machine;
    unsigned bits;
    std::uint32_t foreignFlags; // of ELF files for a machine that only looks alike
    int uImage;                 // its number in uImage headers
};

// Null for an unknown name.
const Machine* findMachine(const std::string& name);
std::vector<std::string> machineNames();

bool isFor(const Machine& machine, const ElfFacts& facts);

} // namespace package
