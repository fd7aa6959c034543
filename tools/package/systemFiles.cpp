#include "systemFiles.h"

#include "fileType.h"
#include "files.h"
#include "findingKinds.h"
#include "lib/format.h"

#include <cryptopp/crc.h>
#include <cstdint>
#include <fstream>
#include <sstream>
#include <vector>

namespace package {

namespace fs = std::filesystem;

namespace {

std::uint32_t bigEndian(const std::string& text, std::size_t at) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < 4; ++i)
        value = value << 8 | static_cast<unsigned char>(text[at + i]);
    return value;
}

std::uint32_t littleEndian(const std::string& text, std::size_t at) {
    const std::uint32_t value = bigEndian(text, at);
    return value << 24 | (value & 0xFF00) << 8 | (value >> 8 & 0xFF00) | value >> 24;
}

std::uint32_t crc32(std::istream& in) {
    CryptoPP::CRC32 crc;
    std::vector<char> block(0x10000);
    while (in) {
        in.read(block.data(), static_cast<std::streamsize>(block.size()));
        crc.Update(reinterpret_cast<const CryptoPP::byte*>(block.data()),
                   static_cast<std::size_t>(in.gcount()));
    }
    std::string digest(CryptoPP::CRC32::DIGESTSIZE, '\0');
    crc.Final(reinterpret_cast<CryptoPP::byte*>(digest.data()));
    return littleEndian(digest, 0);
}

std::string startOf(const fs::path& path, std::size_t size) {
    std::string start(size, '\0');
    std::ifstream(path, std::ios::binary).read(start.data(), static_cast<std::streamsize>(size));
    return start;
}

// What a script's first line does wrong; empty when nothing.
std::string objectionToScript(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::string line;
    std::getline(in, line);
    const std::size_t from = line.find_first_not_of(" \t", 2);
    if (line.ends_with('\r'))
        return "its first line ends with a carriage return, which counts as part of the interpreter's name";
    if (from == line.npos || line[from] != '/')
        return "its first line names no interpreter by its whole path";
    return "";
}

// A uImage's header: sums over itself and over the data, the data's size, the machine.
std::string objectionToUImage(const fs::path& path, const Machine* machine, const Kind*& kind) {
    constexpr std::size_t HEADER = 64;
    std::string header = startOf(path, HEADER);
    const std::uint32_t size = bigEndian(header, 12);
    const int system = static_cast<unsigned char>(header[29]);
    const std::uint32_t headerSum = bigEndian(header, 4);
    const std::uint32_t dataSum = bigEndian(header, 24);
    if (fs::file_size(path) < HEADER + std::uint64_t{size})
        return format("a uImage of %u bytes behind its header, of which the file holds fewer", size);
    header.replace(4, 4, 4, '\0');
    std::istringstream text(header);
    std::ifstream data(path, std::ios::binary);
    data.seekg(HEADER);
    if (crc32(text) != headerSum)
        return "a uImage with a damaged header";
    if (fs::file_size(path) == HEADER + std::uint64_t{size} && crc32(data) != dataSum)
        return "a uImage with damaged data";
    if (machine != nullptr && system != machine->uImage) {
        kind = &kinds::WRONG_MACHINE;
        return format("a uImage for another machine (number %d in its header)", system);
    }
    return "";
}

std::string objectionToZImage(const fs::path& path, const Machine* machine, const Kind*& kind) {
    const std::string start = startOf(path, 0x30);
    const std::uint64_t size = std::uint64_t{littleEndian(start, 0x2C)} - littleEndian(start, 0x28);
    if (machine != nullptr && machine->bits != 32) {
        kind = &kinds::WRONG_MACHINE;
        return "a zImage, which is for 32-bit ARM";
    }
    return fs::file_size(path) < size ? format("a zImage of %llu bytes, of which the file holds %llu",
                                               static_cast<unsigned long long>(size),
                                               static_cast<unsigned long long>(fs::file_size(path)))
                                      : "";
}

std::string objectionToOther(const std::string& nature, const Machine* machine, const Kind*& kind) {
    const std::string own = machine == nullptr ? "" : machine->name;
    const bool x86 = nature.ends_with("x86");
    kind = &kinds::WRONG_MACHINE;
    return own.empty() || (x86 ? own == "amd64" || own == "i386" : own == "arm64") ? "" : nature;
}

} // namespace

void checkProgramFile(const fs::path& path, const std::string& name, const Machine* machine,
                      Findings& findings) {
    const FileNature nature = natureOf(path);
    if (nature.type == FileType::Elf) {
        const auto facts = readElfFacts(path);
        if (!facts || facts->cut)
            findings.add(kinds::PROGRAM_DAMAGED, {name}, nature.name);
        else if (machine != nullptr && !isFor(*machine, *facts))
            findings.add(kinds::WRONG_MACHINE, {name}, nature.name + ", and the panel is " + machine->name);
    } else if (nature.type == FileType::Script) {
        if (const std::string objection = objectionToScript(path); !objection.empty())
            findings.add(kinds::SCRIPT_FORM, {name}, objection);
    }
}

bool isProgramFile(const fs::path& path) {
    const FileType type = natureOf(path).type;
    const auto facts = type == FileType::Elf ? readElfFacts(path) : std::nullopt;
    return type == FileType::Script || (facts && facts->program);
}

void checkUpdaterFile(const fs::path& path, const std::string& name, Findings& findings) {
    const FileNature nature = natureOf(path);
    if (nature.type != FileType::Empty && !isProgramFile(path))
        findings.add(kinds::NO_PROGRAM, {name}, "it is " + nature.name + ", no program");
}

void checkKernelFile(const fs::path& path, const std::string& name, const Machine* machine,
                     Findings& findings) {
    const FileNature nature = natureOf(path);
    const Kind* kind = &kinds::KERNEL_FORM;
    std::string objection;
    if (nature.type != FileType::Kernel)
        objection = "it is " + nature.name + ", no uImage, zImage or Image";
    else if (nature.name == "a uImage")
        objection = objectionToUImage(path, machine, kind);
    else if (nature.name == "a zImage")
        objection = objectionToZImage(path, machine, kind);
    else
        objection = objectionToOther(nature.name, machine, kind);
    if (!objection.empty())
        findings.add(*kind, {name}, objection);
}

} // namespace package
