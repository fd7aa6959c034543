#include "childProcess.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr useconds_t POLL_US = 2000;
constexpr int LAST_POLLS = 250; // half a second for what was killed to end

[[noreturn]] void work(const std::function<int()>& task, bool mayBeLeft) {
    for (const int signal : {SIGBUS, SIGSEGV, SIGILL, SIGFPE, SIGTRAP, SIGTERM, SIGINT}) {
        std::signal(signal, SIG_DFL); // reports and requests are this process's parent's
    }
    if (mayBeLeft) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        closefrom(STDERR_FILENO + 1); // it must not keep a port or a lock
    }
    _exit(task());
}

int resultOf(int status) {
    return WIFEXITED(status) ? WEXITSTATUS(status) : childProcess::NOT_DONE;
}

/** Waits for the end of a child without staying in the wait; false when the time is up before. */
bool awaitEnd(pid_t child, int& status, int polls) {
    while (waitpid(child, &status, WNOHANG) == 0) {
        if (polls-- == 0) {
            return false;
        }
        usleep(POLL_US);
    }
    return true;
}

} // namespace

int childProcess::run(const std::function<int()>& task, const shared<bool>* unless, int limitMs) {
    const pid_t child = fork();
    if (child == 0) {
        work(task, unless != nullptr);
    }
    if (child < 0) {
        return NOT_DONE;
    }
    int status = -1; // as of no end that is known
    if (unless == nullptr) {
        while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
        }
        return resultOf(status);
    }
    const auto start = std::chrono::steady_clock::now();
    const auto isLate = [&] {
        return limitMs != 0 && std::chrono::steady_clock::now() - start > std::chrono::milliseconds(limitMs);
    };
    while (!*unless && !isLate()) {
        if (awaitEnd(child, status, 1)) {
            return resultOf(status);
        }
    }
    kill(-child, SIGKILL); // with what it has started, if it is a group
    kill(child, SIGKILL);
    awaitEnd(child, status, LAST_POLLS);
    return NOT_DONE;
}

int childProcess::shell(const std::string& command, const shared<bool>* unless) {
    const auto task = [&command] {
        setpgid(0, 0);
        return runInstead(command);
    };
    return run(task, unless);
}

int childProcess::runInstead(const std::string& command) {
    execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
    return 127; // as a shell says of what it does not find
}
