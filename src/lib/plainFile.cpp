#include "plainFile.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr std::size_t PIECE = 0x10000;
constexpr off_t STRETCH = 4 << 20;

/** Where the path leads, with every link followed; empty for nowhere. */
std::string resolve(const std::string& path) {
    char resolved[PATH_MAX];
    return realpath(path.c_str(), resolved) == nullptr ? std::string() : std::string(resolved);
}

bool liesIn(const std::string& place, const std::string& tree) {
    return !tree.empty() && place.starts_with(tree.back() == '/' ? tree : tree + "/");
}

int openRegular(const std::string& place, struct stat& info) {
    if (lstat(place.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) {
        return -1; // before it is opened: that alone makes some devices act
    }
    const int fd = open(place.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd >= 0 && (fstat(fd, &info) != 0 || !S_ISREG(info.st_mode))) {
        close(fd);
        return -1;
    }
    return fd;
}

bool writeAll(int fd, std::string_view piece) {
    while (!piece.empty()) {
        const ssize_t written = write(fd, piece.data(), piece.size());
        if (written < 0 && errno != EINTR) {
            return false;
        }
        piece.remove_prefix(static_cast<std::size_t>(written < 0 ? 0 : written));
    }
    return true;
}

/**
 * Has the card write what a stretch has brought, and waits for the one before: else memory takes up
 * everything at once, and nobody can tell how far it is, or end it. False when the card could not.
 */
bool pushOut(int fd, off_t written) {
    sync_file_range(fd, written - STRETCH, STRETCH, SYNC_FILE_RANGE_WRITE);
    const unsigned wait = SYNC_FILE_RANGE_WAIT_BEFORE | SYNC_FILE_RANGE_WRITE | SYNC_FILE_RANGE_WAIT_AFTER;
    return written < 2 * STRETCH || sync_file_range(fd, written - 2 * STRETCH, STRETCH, wait) == 0 ||
           errno != EIO;
}

} // namespace

plainFile::plainFile(const std::string& path, const std::string& tree, std::uint64_t most) {
    const std::string place = path.find('\0') == std::string::npos ? resolve(path) : std::string();
    struct stat info {};
    if (!liesIn(place, resolve(tree))) {
        return;
    }
    descriptor = openRegular(place, info);
    bytes = static_cast<std::uint64_t>(info.st_size);
    if (isOpen() && bytes > most) {
        close(descriptor);
        descriptor = -1;
    }
}

plainFile::~plainFile() {
    if (isOpen()) {
        close(descriptor);
    }
}

bool plainFile::read(const std::function<bool(std::string_view)>& take) {
    std::vector<char> room(PIECE);
    std::uint64_t done = 0;
    while (isOpen()) {
        const ssize_t length = ::read(descriptor, room.data(), room.size());
        if (length == 0) {
            return done == bytes;
        }
        if (length < 0 && errno == EINTR) {
            continue;
        }
        done += static_cast<std::uint64_t>(length < 0 ? 0 : length);
        if (length < 0 || done > bytes || !take({room.data(), static_cast<std::size_t>(length)})) {
            return false;
        }
    }
    return false;
}

bool plainFile::copyTo(const std::string& target, const std::function<bool()>& goOn) {
    if (!isOpen()) {
        return false;
    }
    const int fd = open(target.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NONBLOCK | O_CLOEXEC, 0666);
    if (fd < 0) {
        return false;
    }
    off_t written = 0;
    off_t pushed = 0;
    const bool whole = read([&](std::string_view piece) {
        if ((goOn && !goOn()) || !writeAll(fd, piece)) {
            return false;
        }
        written += static_cast<off_t>(piece.size());
        if (written - pushed < STRETCH) {
            return true;
        }
        pushed = written;
        return pushOut(fd, written);
    });
    struct stat info {};
    const bool isFile = fstat(fd, &info) == 0 && S_ISREG(info.st_mode);
    if (close(fd) == 0 && whole && isFile) {
        return true;
    }
    if (isFile) { // part of a file is none; a device is left alone
        std::remove(target.c_str());
    }
    return false;
}

bool plainFile::isWithin(const std::string& path, const std::string& tree) {
    const std::string place = resolve(path);
    const std::string whole = resolve(tree);
    return !place.empty() && (place == whole || liesIn(place, whole));
}

std::optional<std::string> plainFile::contents(const std::string& path, const std::string& tree,
                                               std::uint64_t most) {
    plainFile file(path, tree, most);
    std::string text;
    const auto take = [&text](std::string_view piece) {
        text += piece;
        return true;
    };
    return file.read(take) ? std::optional(text) : std::nullopt;
}
