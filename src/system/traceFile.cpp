#include "traceFile.h"

#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace {

constexpr std::uint64_t TIME_LIMIT_MS = 400; // to begin another part; the last one has the rest of a second
constexpr unsigned SHARE = 2;                // of what is free on the card
constexpr std::uint64_t MICROSECONDS = 1'000'000;

std::uint64_t milliseconds() {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<std::uint64_t>(time.tv_sec) * 1000 +
           static_cast<std::uint64_t>(time.tv_nsec) / 1'000'000;
}

} // namespace

std::array<char, 64 * 1024> traceFile::text;

traceFile::traceFile(const NAMES& files)
    : names(files),
      fd(open(names.temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0644)),
      failed(fd < 0),
      deadline(milliseconds() + TIME_LIMIT_MS) {
    struct statfs card {};
    if (!failed && fstatfs(fd, &card) == 0) {
        budget = static_cast<std::uint64_t>(card.f_bavail) * static_cast<std::uint64_t>(card.f_bsize) / SHARE;
    }
}

traceFile::~traceFile() {
    if (fd >= 0) {
        close(fd);
        unlink(names.temporary.c_str()); // unless it is in its place
    }
}

bool traceFile::takesMore() const {
    return !failed && written + used < budget && milliseconds() < deadline;
}

void traceFile::put(char c) {
    if (used == text.size()) {
        writeOut();
    }
    text[used++] = c;
}

void traceFile::putNumber(std::uint64_t number, unsigned digits) {
    if (number >= 10 || digits > 1) {
        putNumber(number / 10, digits > 1 ? digits - 1 : 1);
    }
    put(static_cast<char>('0' + number % 10));
}

void traceFile::line(std::uint64_t microseconds, char mark, const std::uint8_t* bytes, std::size_t size) {
    static const char* const DIGITS = "0123456789ABCDEF";
    putNumber(microseconds / MICROSECONDS, 1);
    put('.');
    putNumber(microseconds % MICROSECONDS, 6);
    put(' ');
    put(mark);
    put(' ');
    for (std::size_t n = 0; n < size; ++n) {
        if (mark == '!') {
            put(bytes[n] < ' ' ? ' ' : static_cast<char>(bytes[n]));
        } else {
            put(DIGITS[bytes[n] >> 4U]);
            put(DIGITS[bytes[n] & 15U]);
        }
    }
    put('\n');
}

void traceFile::writeOut() {
    std::size_t done = 0;
    while (!failed && done < used) {
        const ssize_t count = write(fd, text.data() + done, used - done);
        failed = count <= 0;
        done += failed ? 0 : static_cast<std::size_t>(count);
    }
    written += used;
    used = 0;
}

void traceFile::flush() {
    writeOut();
    failed = failed || fdatasync(fd) != 0;
}

bool traceFile::keep() {
    flush();
    if (failed) {
        return false;
    }
    std::rename(names.older.c_str(), names.oldest.c_str()); // there may be none
    std::rename(names.newest.c_str(), names.older.c_str());
    const bool kept = std::rename(names.temporary.c_str(), names.newest.c_str()) == 0;
    const int folder = open(names.folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder >= 0) { // else the names are on the card a little later
        fsync(folder);
        close(folder);
    }
    return kept;
}
