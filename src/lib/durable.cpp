#include "durable.h"

#include "functs.h"

#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <unistd.h>

namespace {

bool force(const std::string& path, int (*onto)(int)) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    const bool forced = onto(fd) == 0;
    close(fd);
    return forced;
}

} // namespace

bool durable::flush(const std::string& path) {
    return force(path, fsync);
}

bool durable::flushAll(const std::string& path) {
    return force(path, syncfs);
}

bool durable::replaceFile(const std::string& path, const std::string& text) {
    functs f;
    const std::string temporary = path + ".new";
    if (!f.writeFileContents(temporary, text) || !flush(temporary) ||
        f.getFileSize(temporary) != static_cast<std::int32_t>(text.size()) ||
        std::rename(temporary.c_str(), path.c_str()) != 0) {
        f.removeFile(temporary);
        return false;
    }
    return flush(std::filesystem::path(path).parent_path());
}
