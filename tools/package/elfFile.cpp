#include "elfFile.h"

#include "failure.h"
#include "files.h"
#include "platform.h"

#include <algorithm>
#include <gelf.h>
#include <iterator>
#include <memory>

namespace package {

namespace {

constexpr Machine MACHINES[] = {
    {"armhf", EM_ARM, 32, EF_ARM_ABI_FLOAT_SOFT, 2},
    {"armel", EM_ARM, 32, EF_ARM_ABI_FLOAT_HARD, 2},
    {"arm64", EM_AARCH64, 64, 0, 22},
    {"amd64", EM_X86_64, 64, 0, 24},
    {"i386", EM_386, 32, 0, 3},
    {"riscv64", EM_RISCV, 64, 0, 26},
};

struct End {
    void operator()(Elf* each) const { elf_end(each); }
};

// A program loaded where it lies (ET_DYN) names its interpreter, a library does not.
bool isProgram(Elf* elf, const GElf_Ehdr& header) {
    std::size_t count = 0;
    if (header.e_type != ET_DYN || elf_getphdrnum(elf, &count) != 0)
        return header.e_type == ET_EXEC;
    for (std::size_t i = 0; i < count; ++i) {
        GElf_Phdr segment;
        if (gelf_getphdr(elf, static_cast<int>(i), &segment) != nullptr && segment.p_type == PT_INTERP)
            return true;
    }
    return false;
}

// Whether what is loaded, or the list of the sections, lies behind the end of the file.
bool isCut(Elf* elf, const GElf_Ehdr& header, std::uint64_t fileSize) {
    const auto isWithin = [fileSize](std::uint64_t start, std::uint64_t size) {
        return start <= fileSize && size <= fileSize - start;
    };
    std::size_t count = 0;
    if (!isWithin(header.e_shoff, std::uint64_t{header.e_shnum} * header.e_shentsize) ||
        elf_getphdrnum(elf, &count) != 0)
        return true;
    for (std::size_t i = 0; i < count; ++i) {
        GElf_Phdr segment;
        if (gelf_getphdr(elf, static_cast<int>(i), &segment) == nullptr ||
            (segment.p_type == PT_LOAD && !isWithin(segment.p_offset, segment.p_filesz)))
            return true;
    }
    return false;
}

using Handle = std::unique_ptr<Elf, End>;

Handle openElf(int file) {
    elf_version(EV_CURRENT);
    return Handle(elf_begin(file, ELF_C_READ, nullptr));
}

std::optional<ElfFacts> factsOf(int file, std::uint64_t fileSize) {
    const Handle elf = openElf(file);
    GElf_Ehdr header;
    if (elf == nullptr || elf_kind(elf.get()) != ELF_K_ELF || gelf_getehdr(elf.get(), &header) == nullptr)
        return std::nullopt;
    return ElfFacts{header.e_machine,
                    header.e_ident[EI_CLASS] == ELFCLASS64 ? 64U : 32U,
                    header.e_ident[EI_DATA] == ELFDATA2MSB,
                    isProgram(elf.get(), header),
                    header.e_flags,
                    isCut(elf.get(), header, fileSize)};
}

std::vector<GElf_Phdr> segmentsOf(Elf* elf) {
    std::vector<GElf_Phdr> segments;
    std::size_t count = 0;
    if (elf_getphdrnum(elf, &count) != 0)
        throw BadFile("a damaged ELF file");
    for (std::size_t i = 0; i < count; ++i) {
        GElf_Phdr segment;
        if (gelf_getphdr(elf, static_cast<int>(i), &segment) == nullptr)
            throw BadFile("a damaged ELF file");
        if (segment.p_type == PT_LOAD && segment.p_filesz != 0)
            segments.push_back(segment);
    }
    return segments;
}

// Before it is read: what is loaded of a damaged file may be of any size.
void requireSize(std::uint64_t size) {
    if (size > 0x300000)
        throw BadFile("an ELF file with " + shownSize(size) + " to load: no module has so much flash");
}

std::vector<std::uint8_t> bytesOf(const Elf_Data* data, std::uint64_t size) {
    if (data == nullptr || data->d_buf == nullptr || data->d_size < size)
        throw BadFile("a damaged ELF file: it ends before its content");
    const auto* bytes = static_cast<const std::uint8_t*>(data->d_buf);
    return {bytes, bytes + size};
}

// A section is stored where the segment that it lies in is.
std::uint64_t storedAt(const GElf_Shdr& section, const std::vector<GElf_Phdr>& segments) {
    const auto own = std::find_if(segments.begin(), segments.end(), [&](const GElf_Phdr& each) {
        return section.sh_offset >= each.p_offset &&
               section.sh_offset + section.sh_size <= each.p_offset + each.p_filesz;
    });
    return own == segments.end() ? section.sh_addr : own->p_paddr + section.sh_offset - own->p_offset;
}

std::vector<ElfPiece> piecesOf(Elf* elf) {
    const std::vector<GElf_Phdr> segments = segmentsOf(elf);
    std::vector<ElfPiece> pieces;
    bool hasSections = false;
    std::uint64_t all = 0;
    for (Elf_Scn* each = nullptr; (each = elf_nextscn(elf, each)) != nullptr;) {
        GElf_Shdr section;
        if (gelf_getshdr(each, &section) == nullptr)
            throw BadFile("a damaged ELF file");
        hasSections = true;
        if ((section.sh_flags & SHF_ALLOC) == 0 || section.sh_type == SHT_NOBITS || section.sh_size == 0)
            continue;
        requireSize(all += std::min<std::uint64_t>(section.sh_size, 0x100000000));
        pieces.push_back({storedAt(section, segments), bytesOf(elf_rawdata(each, nullptr), section.sh_size)});
    }
    for (const GElf_Phdr& each : segments) {
        if (hasSections)
            break;
        requireSize(all += std::min<std::uint64_t>(each.p_filesz, 0x100000000));
        const auto size = static_cast<std::size_t>(each.p_filesz);
        const auto offset = static_cast<std::int64_t>(each.p_offset);
        pieces.push_back({each.p_paddr, bytesOf(elf_getdata_rawchunk(elf, offset, size, ELF_T_BYTE), size)});
    }
    return pieces;
}

} // namespace

std::string ElfFacts::machineName() const {
    constexpr std::pair<unsigned, const char*> NAMES[] = {
        {EM_ARM, "ARM"},     {EM_AARCH64, "ARM"},   {EM_X86_64, "x86-64"},
        {EM_386, "x86"},     {EM_RISCV, "RISC-V"},  {EM_MIPS, "MIPS"},
        {EM_PPC, "PowerPC"}, {EM_PPC64, "PowerPC"}, {EM_S390, "IBM S/390"}};
    const auto known = std::find_if(std::begin(NAMES), std::end(NAMES),
                                    [&](const auto& each) { return each.first == machine; });
    const std::string name = known != std::end(NAMES) ? known->second : "machine " + std::to_string(machine);
    const std::string floats = machine != EM_ARM                      ? ""
                               : (flags & EF_ARM_ABI_FLOAT_HARD) != 0 ? ", hard float"
                               : (flags & EF_ARM_ABI_FLOAT_SOFT) != 0 ? ", soft float"
                                                                      : "";
    return name + ", " + std::to_string(bits) + " bits" + floats + (bigEndian ? ", big-endian" : "");
}

std::optional<ElfFacts> readElfFacts(const std::filesystem::path& path) {
    const platform::Descriptor file(path);
    return factsOf(file.number(), std::filesystem::file_size(path));
}

std::vector<ElfPiece> readElfPieces(const std::filesystem::path& path) {
    const platform::Descriptor file(path);
    const Handle elf = openElf(file.number());
    if (elf == nullptr || elf_kind(elf.get()) != ELF_K_ELF)
        throw BadFile("a damaged ELF file");
    GElf_Ehdr header;
    if (gelf_getehdr(elf.get(), &header) == nullptr)
        throw BadFile("a damaged ELF file");
    if (header.e_type != ET_EXEC && header.e_type != ET_DYN)
        throw BadFile("an ELF file that is not linked yet: it has no addresses");
    return piecesOf(elf.get());
}

const Machine* findMachine(const std::string& name) {
    const auto found = std::find_if(std::begin(MACHINES), std::end(MACHINES),
                                    [&](const Machine& each) { return each.name == name; });
    return found == std::end(MACHINES) ? nullptr : &*found;
}

std::vector<std::string> machineNames() {
    std::vector<std::string> names;
    for (const Machine& each : MACHINES)
        names.push_back(each.name);
    return names;
}

bool isFor(const Machine& machine, const ElfFacts& facts) {
    return facts.machine == machine.machine && facts.bits == machine.bits && !facts.bigEndian &&
           (facts.flags & machine.foreignFlags) == 0;
}

} // namespace package
