#include "programTrial.h"

#include "../../lib/childProcess.h"
#include "../../lib/functs.h"
#include "../../lib/plainFile.h"
#include "../programFile.h"

#include <algorithm>
#include <fcntl.h>
#include <link.h>
#include <unistd.h>

namespace {

constexpr unsigned PATIENCE_S = 10;
const char* const QUESTION = "--version";

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
    const std::string loader = ownLoader();
    if (access(loader.c_str(), X_OK) != 0) {
        return ""; // there is nobody to ask
    }
    std::string list;
    functs f;
    // Its own "--list" ends at the first one without a word that could be told from others.
    f.runProcess("LD_TRACE_LOADED_OBJECTS=1 " + loader + " " + quoted(path) + " 2>&1", list);
    for (const std::string& line : f.split(list, '\n')) {
        if (line.find("not found") != std::string::npos) {
            std::string text = line;
            return f.trim(text);
        }
    }
    return "";
}

/** Whether the file, which may have any size, knows the question. */
bool isAsked(const std::string& path, const shared<bool>& cancel) {
    const std::string question = QUESTION;
    std::string seen;
    bool found = false;
    const auto look = [&](std::string_view piece) {
        seen.append(piece);
        found = seen.find(question) != std::string::npos;
        const std::size_t kept = std::min(seen.size(), question.size() - 1); // it may go on in the next piece
        seen.erase(0, seen.size() - kept);
        return !found && !cancel;
    };
    plainFile(path, "/").read(look);
    return found;
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
    std::string found = programFile::objection(path);
    if (found.empty() && programFile::isMachineCode(path)) {
        found = missingLibrary(path);
    }
    if (!found.empty()) {
        return found;
    }
    return isAsked(path, cancel) && !tellsItsVersion(path, cancel) ? "it does not tell its version" : "";
}
