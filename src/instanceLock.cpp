#include "instanceLock.h"

#include "lib/sameFile.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <sys/file.h>
#include <unistd.h>

namespace {

const char* const LOCKED = "/keldra/config";
const char* const HANDED_OVER = "KELDRA_UPDATER_LOCK"; // environment: the descriptor

/** The descriptor to lock: what the updater before this one has handed over, else a new one. */
int openLock() {
    const int opened = open(LOCKED, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const char* const text = std::getenv(HANDED_OVER);
    const int given = text != nullptr ? std::atoi(text) : -1;
    unsetenv(HANDED_OVER);
    if (given <= STDERR_FILENO || given == opened || !isSameFile(given, opened)) {
        return opened;
    }
    close(opened);
    fcntl(given, F_SETFD, FD_CLOEXEC);
    return given;
}

} // namespace

instanceLock::instanceLock()
    : fd(openLock()), held(flock(fd, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK) {}

instanceLock::~instanceLock() {
    if (fd >= 0) {
        close(fd);
    }
}

void instanceLock::handOver() const {
    if (fd >= 0) {
        fcntl(fd, F_SETFD, 0);
        setenv(HANDED_OVER, std::to_string(fd).c_str(), 1);
    }
}
