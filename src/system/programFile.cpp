#include "programFile.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <elf.h>
#include <fstream>
#include <link.h>
#include <unistd.h>

namespace {

constexpr std::size_t HEADER = 20; // up to and with the machine, at the same place in both classes

std::array<char, HEADER> headerOf(const std::string& path) {
    std::array<char, HEADER> header{};
    std::ifstream(path, std::ios::binary).read(header.data(), HEADER);
    return header;
}

/** Class, byte order and machine; the rest may differ between programs for one machine. */
bool sameMachine(const std::array<char, HEADER>& one, const std::array<char, HEADER>& other) {
    return std::memcmp(one.data(), other.data(), EI_VERSION) == 0 && one[18] == other[18] &&
           one[19] == other[19];
}

/** True when the file ends before what its headers promise. For programs of this machine's own class. */
bool isCutShort(const std::string& path) {
    std::ifstream file(path, std::ios::binary | std::ios::ate);
    const auto size = static_cast<std::uint64_t>(file.tellg());
    ElfW(Ehdr) header{};
    file.seekg(0).read(reinterpret_cast<char*>(&header), sizeof header);
    bool isWhole = static_cast<bool>(file) &&
                   header.e_shoff + std::uint64_t{header.e_shnum} * header.e_shentsize <= size;
    file.seekg(static_cast<std::streamoff>(header.e_phoff));
    for (unsigned n = 0; isWhole && n < header.e_phnum; ++n) {
        ElfW(Phdr) segment{};
        file.read(reinterpret_cast<char*>(&segment), sizeof segment);
        isWhole = static_cast<bool>(file) && std::uint64_t{segment.p_offset} + segment.p_filesz <= size;
    }
    return !isWhole;
}

bool begins(const std::array<char, HEADER>& header, const char* mark) {
    return std::memcmp(header.data(), mark, std::strlen(mark)) == 0;
}

} // namespace

bool programFile::isMachineCode(const std::string& path) {
    return begins(headerOf(path), ELFMAG);
}

std::string programFile::objection(const std::string& path) {
    const auto header = headerOf(path);
    if (access(path.c_str(), X_OK) != 0) {
        return "it may not be executed";
    }
    if (begins(header, "#!")) {
        return "";
    }
    if (!begins(header, ELFMAG)) {
        return "it is no program";
    }
    if (!sameMachine(header, headerOf("/proc/self/exe"))) {
        return "it is for another machine";
    }
    return isCutShort(path) ? "it is cut short" : "";
}
