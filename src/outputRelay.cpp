#include "outputRelay.h"

#include "lib/sameFile.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <string_view>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int PATIENCE_MS = 1000;  // with a reader that takes nothing any more, at the end
constexpr std::size_t PIECE = 256; // so few bytes that a terminal which is ready takes them without a wait
constexpr int FIRST_FREE_FD = 10;

/** A standard stream: as it was, and who writes it. */
struct STREAM {
    int original = -1;
    pid_t writer = -1;
};
std::array<STREAM, 2> streams; // output, error

/** The time of day, to stand in front of a line. */
std::string timeText() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    std::tm local{};
    localtime_r(&now.tv_sec, &local);
    char text[40];
    const std::size_t size = std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
    std::snprintf(text + size, sizeof text - size, ".%03d ", static_cast<int>(now.tv_nsec / 1'000'000));
    return text;
}

/** Text on its way, in its order; each line behind the time at which it came, if that is asked for. */
class store {
public:
    explicit store(bool withTimes) : hasTimes(withTimes) {}

    bool isEmpty() const { return used == 0; }
    void clear() { used = 0; }
    /** Reads once; false at the end of the stream. */
    bool readFrom(int fd) {
        std::array<char, PIECE * 16> piece{};
        const ssize_t count = read(fd, piece.data(), piece.size());
        if (count < 0) {
            return errno == EINTR;
        }
        take({piece.data(), static_cast<std::size_t>(count)});
        return count > 0;
    }
    void writeTo(int fd) {
        const ssize_t count = write(fd, room.data(), std::min(used, PIECE));
        if (count > 0) {
            std::copy(room.begin() + count, room.begin() + used, room.begin());
            used -= static_cast<std::size_t>(count);
        } else if (count < 0 && errno != EINTR && errno != EAGAIN) {
            clear(); // nobody will read it
        }
    }

private:
    void take(std::string_view text) {
        while (!text.empty()) {
            if (hasTimes && atLineStart) {
                add(timeText());
            }
            const std::string_view line = text.substr(0, std::min(text.find('\n'), text.size() - 1) + 1);
            add(line);
            atLineStart = line.back() == '\n';
            text.remove_prefix(line.size());
        }
    }
    void add(std::string_view text) {
        const std::size_t fits = std::min(text.size(), room.size() - used);
        std::copy_n(text.begin(), fits, room.begin() + used);
        used += fits;
    }

    std::array<char, 256 * 1024> room{};
    std::size_t used = 0;
    bool hasTimes;
    bool atLineStart = true;
};

/** The writing process: from its standard input to its standard output. */
[[noreturn]] void passOn(bool withTimes) {
    static store text(withTimes);
    bool more = true;
    while (more || !text.isEmpty()) {
        pollfd ends[] = {{more ? STDIN_FILENO : -1, POLLIN, 0},
                         {text.isEmpty() ? -1 : STDOUT_FILENO, POLLOUT, 0}};
        if (poll(ends, 2, more ? -1 : PATIENCE_MS) == 0) {
            break;
        }
        if (ends[0].revents != 0) {
            more = text.readFrom(STDIN_FILENO);
        }
        if (ends[1].revents != 0) {
            text.writeTo(STDOUT_FILENO);
        }
    }
    _exit(0);
}

/** Forks the writer of a stream; the pipe to it, or -1. */
int startWriter(STREAM& stream, bool withTimes) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return -1;
    }
    stream.writer = fork();
    if (stream.writer == 0) {
        for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE, SIGQUIT}) {
            std::signal(signal, SIG_IGN); // it ends when everything is written
        }
        prctl(PR_SET_NAME, "K+Output");
        dup2(ends[0], STDIN_FILENO);
        dup2(stream.original, STDOUT_FILENO);
        closefrom(STDERR_FILENO);
        passOn(withTimes);
    }
    close(ends[0]);
    return ends[1];
}

/** What may hold up its writer, and files, when there is something to add to them. */
bool needsWriter(int fd, bool withTimes) {
    struct stat info {};
    return fstat(fd, &info) == 0 && (S_ISFIFO(info.st_mode) || S_ISSOCK(info.st_mode) || isatty(fd) == 1 ||
                                     (withTimes && S_ISREG(info.st_mode)));
}

void relay(int fd, STREAM& stream, bool withTimes) {
    stream.original = fcntl(fd, F_DUPFD_CLOEXEC, FIRST_FREE_FD);
    const int toWriter = startWriter(stream, withTimes);
    if (toWriter >= 0) {
        dup2(toWriter, fd);
        close(toWriter);
    }
}

/** At the end of the process: lets the writers come to theirs. */
void finish() {
    outputRelay::giveBack();
    for (const STREAM& stream : streams) {
        for (int ms = 0; stream.writer > 0 && ms < 2 * PATIENCE_MS; ++ms) {
            if (waitpid(stream.writer, nullptr, WNOHANG) != 0) {
                break;
            }
            usleep(1000);
        }
    }
}

} // namespace

void outputRelay::begin(bool withTimes) {
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    const bool together = isSameFile(STDOUT_FILENO, STDERR_FILENO);
    if (needsWriter(STDOUT_FILENO, withTimes)) {
        relay(STDOUT_FILENO, streams[0], withTimes);
    }
    if (needsWriter(STDERR_FILENO, withTimes)) {
        if (together) { // one writer, which keeps their order
            streams[1].original = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, FIRST_FREE_FD);
            dup2(STDOUT_FILENO, STDERR_FILENO);
        } else {
            relay(STDERR_FILENO, streams[1], withTimes);
        }
    }
    std::atexit(finish);
}

void outputRelay::giveBack() {
    for (int fd = STDOUT_FILENO; fd <= STDERR_FILENO; ++fd) {
        const int original = streams[static_cast<std::size_t>(fd - STDOUT_FILENO)].original;
        if (original >= 0) {
            dup2(original, fd);
        }
    }
}
