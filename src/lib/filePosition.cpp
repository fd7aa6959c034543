#include "filePosition.h"

#include <cctype>
#include <cstdlib>
#include <dirent.h>
#include <fstream>
#include <limits.h>
#include <memory>
#include <unistd.h>
#include <vector>

namespace {

/** The entries of a directory that are numbers. */
std::vector<std::string> numbersIn(const std::string& directory) {
    std::vector<std::string> numbers;
    const std::unique_ptr<DIR, int (*)(DIR*)> dir(opendir(directory.c_str()), closedir);
    while (const dirent* entry = dir ? readdir(dir.get()) : nullptr) {
        if (std::isdigit(static_cast<unsigned char>(entry->d_name[0])) != 0) {
            numbers.emplace_back(entry->d_name);
        }
    }
    return numbers;
}

bool isOpen(const std::string& process, const std::string& descriptor, const std::string& file) {
    char target[PATH_MAX];
    const ssize_t length =
        readlink(("/proc/" + process + "/fd/" + descriptor).c_str(), target, sizeof target);
    return length > 0 && file.compare(0, std::string::npos, target, static_cast<std::size_t>(length)) == 0;
}

std::uint64_t positionOf(const std::string& process, const std::string& descriptor) {
    std::ifstream info("/proc/" + process + "/fdinfo/" + descriptor);
    std::string key;
    std::uint64_t position = 0;
    info >> key >> position;
    return position;
}

} // namespace

std::uint64_t filePosition::of(const std::string& file) {
    for (const std::string& process : numbersIn("/proc")) {
        const pid_t pid = static_cast<pid_t>(std::atoi(process.c_str()));
        if (getsid(pid) != getsid(0)) { // commands stay in the session of the program that starts them
            continue;
        }
        for (const std::string& descriptor : numbersIn("/proc/" + process + "/fd")) {
            if (isOpen(process, descriptor, file)) {
                return positionOf(process, descriptor);
            }
        }
    }
    return 0;
}
