#include "executable.h"

#include <cstdint>
#include <cstring>
#include <elf.h>
#include <fstream>

namespace package {

namespace {

template <class T>
bool readAt(std::ifstream& file, std::uint64_t offset, T& target) {
    file.seekg(static_cast<std::streamoff>(offset));
    return static_cast<bool>(file.read(reinterpret_cast<char*>(&target), sizeof target));
}

// A program loaded where it lies (ET_DYN) names its interpreter, a library does not.
template <class HEADER, class SEGMENT>
bool isElfProgram(std::ifstream& file) {
    HEADER header;
    if (!readAt(file, 0, header))
        return false;
    if (header.e_type == ET_EXEC)
        return true;
    SEGMENT segment;
    for (unsigned i = 0; header.e_type == ET_DYN && i < header.e_phnum; ++i) {
        if (readAt(file, header.e_phoff + std::uint64_t{i} * sizeof segment, segment) &&
            segment.p_type == PT_INTERP)
            return true;
    }
    return false;
}

} // namespace

bool isProgram(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    unsigned char start[EI_NIDENT] = {};
    if (!file.read(reinterpret_cast<char*>(start), sizeof start))
        file.clear(); // shorter than that: what there is counts
    if (std::memcmp(start, "#!", 2) == 0)
        return true;
    if (std::memcmp(start, ELFMAG, SELFMAG) != 0 || start[EI_DATA] != ELFDATA2LSB)
        return false;
    return start[EI_CLASS] == ELFCLASS32 ? isElfProgram<Elf32_Ehdr, Elf32_Phdr>(file)
                                         : isElfProgram<Elf64_Ehdr, Elf64_Phdr>(file);
}

} // namespace package
