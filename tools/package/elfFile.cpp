#include "elfFile.h"

#include <algorithm>
#include <fcntl.h>
#include <gelf.h>
#include <iterator>
#include <memory>
#include <unistd.h>

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

std::optional<ElfFacts> factsOf(int file) {
    elf_version(EV_CURRENT);
    const std::unique_ptr<Elf, End> elf(elf_begin(file, ELF_C_READ, nullptr));
    GElf_Ehdr header;
    if (elf == nullptr || elf_kind(elf.get()) != ELF_K_ELF || gelf_getehdr(elf.get(), &header) == nullptr)
        return std::nullopt;
    return ElfFacts{header.e_machine, header.e_ident[EI_CLASS] == ELFCLASS64 ? 64U : 32U,
                    header.e_ident[EI_DATA] == ELFDATA2MSB, isProgram(elf.get(), header), header.e_flags};
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
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return std::nullopt;
    const std::optional<ElfFacts> facts = factsOf(file);
    close(file);
    return facts;
}

const Machine* findMachine(const std::string& name) {
    const auto found = std::find_if(std::begin(MACHINES), std::end(MACHINES),
                                    [&](const Machine& each) { return each.name == name; });
    return found == std::end(MACHINES) ? nullptr : &*found;
}

std::string machineNames() {
    std::string names;
    for (const Machine& each : MACHINES)
        names += (names.empty() ? "" : ", ") + std::string(each.name);
    return names;
}

bool isFor(const Machine& machine, const ElfFacts& facts) {
    return facts.machine == machine.machine && facts.bits == machine.bits && !facts.bigEndian &&
           (facts.flags & machine.foreignFlags) == 0;
}

} // namespace package
