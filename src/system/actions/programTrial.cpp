#include "programTrial.h"

#include "../../lib/childProcess.h"
#include "../../lib/functs.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <elf.h>
#include <fcntl.h>
#include <fstream>
#include <link.h>
#include <unistd.h>

namespace {

constexpr unsigned PATIENCE_S = 10;
constexpr std::size_t HEADER = 20; // up to and with the machine, at the same place in both classes
const char* const QUESTION = "--version";

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

/** The loader that has loaded this program: another would look for libraries elsewhere. */
std::string ownLoader() {
    std::string path;
    const auto look = [](dl_phdr_info* info, std::size_t, void* found) {
        for (unsigned i = 0; i < info->dlpi_phnum; ++i) {
            if (info->dlpi_phdr[i].p_type == PT_INTERP) {
                const auto address = info->dlpi_addr + info->dlpi_phdr[i].p_vaddr;
                *static_cast<std::string*>(found) = reinterpret_cast<const char*>(address);
            }
        }
        return 1; // the program itself comes first
    };
    dl_iterate_phdr(look, &path);
    return path;
}

std::string quoted(const std::string& path) {
    std::string text = "'";
    for (const char c : path) {
        text += c == '\'' ? "'\\''" : std::string(1, c);
    }
    return text + "'";
}

/** What the loader misses of a program's libraries; empty when it has all, or the program needs none. */
std::string missingLibrary(const std::string& path) {
    std::string list;
    functs f;
    f.runProcess(ownLoader() + " --list " + quoted(path) + " 2>&1", list);
    for (const std::string& line : f.split(list, '\n')) {
        if (line.find("not found") != std::string::npos) {
            std::string text = line;
            return f.trim(text);
        }
    }
    return "";
}

bool tellsItsVersion(const std::string& path, const shared<bool>& cancel) {
    const auto ask = [&path] {
        const int nowhere = open("/dev/null", O_RDWR);
        for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
            dup2(nowhere, fd);
        }
        alarm(PATIENCE_S);
        execl(path.c_str(), "K+Updater", QUESTION, nullptr);
        return 127;
    };
    return childProcess::run(ask, &cancel) == 0;
}

} // namespace

std::string programTrial::objection(const std::string& path, const shared<bool>& cancel) {
    const auto header = headerOf(path);
    if (access(path.c_str(), X_OK) != 0) {
        return "it may not be executed";
    }
    if (std::memcmp(header.data(), "#!", 2) != 0) {
        if (std::memcmp(header.data(), ELFMAG, SELFMAG) != 0) {
            return "it is no program";
        }
        if (!sameMachine(header, headerOf("/proc/self/exe"))) {
            return "it is for another machine";
        }
        if (isCutShort(path)) {
            return "it is cut short";
        }
        const std::string missing = missingLibrary(path);
        if (!missing.empty()) {
            return missing;
        }
    }
    const bool isAsked = functs().getFileContents(path).find(QUESTION) != std::string::npos;
    return isAsked && !tellsItsVersion(path, cancel) ? "it does not tell its version" : "";
}
