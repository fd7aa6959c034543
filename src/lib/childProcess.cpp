#include "childProcess.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <iostream>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr useconds_t POLL_US = 2000;
constexpr int LAST_POLLS = 250;     // half a second for what was killed to end
constexpr int POLLS_WHEN_LATE = 10; // it has had its time

/** `errors`: a descriptor that becomes the standard error; negative for none. */
[[noreturn]] void work(const std::function<int()>& task, bool mayBeLeft, int errors) {
    for (const int signal : {SIGBUS, SIGSEGV, SIGILL, SIGFPE, SIGTRAP, SIGTERM, SIGINT}) {
        std::signal(signal, SIG_DFL); // reports and requests are this process's parent's
    }
    if (errors >= 0) {
        dup2(errors, STDERR_FILENO);
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

int runWith(const std::function<int()>& task, const shared<bool>* unless, int limitMs, int errors) {
    const pid_t child = fork();
    if (child == 0) {
        work(task, unless != nullptr, errors);
    }
    if (child < 0) {
        return childProcess::NOT_DONE;
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
    awaitEnd(child, status, isLate() ? POLLS_WHEN_LATE : LAST_POLLS);
    return childProcess::NOT_DONE;
}

int shellWith(const std::string& command, const shared<bool>* unless, int errors) {
    const auto task = [&command] {
        setpgid(0, 0);
        return childProcess::runInstead(command);
    };
    return runWith(task, unless, 0, errors);
}

/** Passes on what a file in memory holds; its last line that is not empty, of its last bytes. */
std::string passOn(int file) {
    std::string text;
    char piece[4096];
    lseek(file, 0, SEEK_SET);
    for (ssize_t count = 0; (count = read(file, piece, sizeof piece)) > 0;) {
        std::cerr.write(piece, count).flush();
        text.append(piece, static_cast<std::size_t>(count));
        text.erase(0, text.size() - std::min(text.size(), sizeof piece));
    }
    text.erase(text.find_last_not_of('\n') + 1);
    return text.substr(text.find_last_of('\n') + 1);
}

} // namespace

int childProcess::run(const std::function<int()>& task, const shared<bool>* unless, int limitMs) {
    return runWith(task, unless, limitMs, -1);
}

int childProcess::shell(const std::string& command, const shared<bool>* unless) {
    return shellWith(command, unless, -1);
}

int childProcess::shell(const std::string& command, const shared<bool>* unless, std::string& complaint) {
    const int errors = memfd_create("errors", MFD_CLOEXEC); // none: they go where they would have gone
    const int result = shellWith(command, unless, errors);
    if (errors >= 0) {
        complaint = passOn(errors);
        close(errors);
    }
    return result;
}

int childProcess::runInstead(const std::string& command) {
    execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
    return 127; // as a shell says of what it does not find
}
