#include "processSettings.h"

#include "lib/ConfigFile.h"
#include "outputRelay.h"
#include "stopSignals.h"

#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace {

void openStandardDescriptors() {
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        if (fcntl(fd, F_GETFD) == -1 && open("/dev/null", O_RDWR) == -1) {
            open("/", O_RDONLY); // takes the number, no more
        }
    }
}

/** A handler, and not SIG_IGN: the programs that are started get the default back. */
void pass(int) {}

void settleSignals() {
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    std::signal(SIGCHLD, SIG_DFL);
    std::signal(SIGPIPE, pass);
    std::signal(SIGHUP, pass);
    stopSignals::installHandlers();
}

/** One that is missing wants nothing; the core says so. */
bool wantsTimes(const char* configuration) {
    unsigned wanted = 0;
    try {
        ConfigFile(configuration, "=", "#", "EndConfigFile").readInto(wanted, "output_times");
    } catch (const ConfigFile::file_not_found&) {
        return false;
    }
    return wanted == 1;
}

} // namespace

void settleProcess(const char* configuration) {
    openStandardDescriptors();
    settleSignals();
    outputRelay::begin(wantsTimes(configuration));
}
