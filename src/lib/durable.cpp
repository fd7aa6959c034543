#include "durable.h"

#include "functs.h"
#include "plainFile.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>
#include <vector>

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

/** So that what is read next comes from the card. */
bool dropCache(int fd, const struct stat& info) {
    if (S_ISBLK(info.st_mode) && ioctl(fd, BLKFLSBUF, 0) != 0) {
        return false;
    }
    posix_fadvise(fd, 0, 0, POSIX_FADV_DONTNEED);
    return S_ISREG(info.st_mode) || S_ISBLK(info.st_mode);
}

bool readAll(int fd, std::vector<char>& room) {
    for (std::size_t done = 0; done < room.size();) {
        const ssize_t length = read(fd, room.data() + done, room.size() - done);
        if (length == 0 || (length < 0 && errno != EINTR)) {
            return false;
        }
        done += static_cast<std::size_t>(length < 0 ? 0 : length);
    }
    return true;
}

} // namespace

bool durable::holds(const std::string& written, const std::string& original,
                    const std::function<bool()>& goOn) {
    plainFile source(original, "/");
    const int fd = open(written.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    struct stat info {};
    bool same = fstat(fd, &info) == 0 && fsync(fd) == 0 && dropCache(fd, info) &&
                (S_ISBLK(info.st_mode) || static_cast<std::uint64_t>(info.st_size) == source.size());
    std::vector<char> room;
    same = same && source.read([&](std::string_view piece) {
        room.resize(piece.size());
        return (!goOn || goOn()) && readAll(fd, room) && std::equal(piece.begin(), piece.end(), room.begin());
    });
    close(fd);
    return same;
}

std::optional<std::uint64_t> durable::freeBytes(const std::string& path) {
    struct statvfs info {};
    if (statvfs(path.c_str(), &info) != 0 || info.f_blocks == 0) {
        return std::nullopt;
    }
    return static_cast<std::uint64_t>(info.f_bfree) * info.f_frsize;
}

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
