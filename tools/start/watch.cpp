#include "watch.h"

#include "system/startRecord.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr const char* UPDATER = "K+Updater";
constexpr int POLL_S = 1;
constexpr int NOT_STARTED = 127;
constexpr double LAST_WORDS_S = 40; // for an updater that was asked to end

double now() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

sigset_t heard() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : {SIGCHLD, SIGUSR1, SIGTERM, SIGINT}) {
        sigaddset(&set, signal);
    }
    return set;
}

std::string firstLineOf(const std::string& path) {
    std::string line;
    std::ifstream file(path);
    std::getline(file, line);
    return line;
}

[[noreturn]] void become(const std::string& program, const std::vector<std::string>& arguments) {
    const sigset_t set = heard();
    sigprocmask(SIG_UNBLOCK, &set, nullptr);
    setpgid(0, 0);
    std::vector<char*> words = {const_cast<char*>(UPDATER)};
    for (const std::string& argument : arguments) {
        words.push_back(const_cast<char*>(argument.c_str()));
    }
    words.push_back(nullptr);
    execv(program.c_str(), words.data());
    std::perror(program.c_str());
    _exit(NOT_STARTED);
}

int asShell(int status) {
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

} // namespace

Watch::Watch(double patience) : limit_(patience) {
    const sigset_t set = heard();
    sigprocmask(SIG_BLOCK, &set, nullptr);
    prctl(PR_SET_CHILD_SUBREAPER, 1); // an updater that was started by one that has ended is this one's, too
    setenv(startRecord::WAITING_STARTER, std::to_string(getpid()).c_str(), 1);
}

Watch::End Watch::follow(const std::string& program, const std::vector<std::string>& arguments,
                         const std::function<bool()>& isOnTrial) {
    End end;
    hasWindow_ = isEmpty_ = false;
    begun_ = now();
    first_ = fork();
    if (first_ == 0) {
        become(program, arguments);
    }
    setpgid(first_, first_);
    double asked = 0;
    while (!isEmpty_) {
        const sigset_t set = heard();
        const timespec second{POLL_S, 0};
        const int signal = sigtimedwait(&set, nullptr, &second);
        reap(end); // before its successor's window is noted
        hasWindow_ = hasWindow_ || signal == SIGUSR1;
        if ((signal == SIGTERM || signal == SIGINT) && !end.onRequest) {
            end.onRequest = true;
            asked = now();
            ask();
        }
        if (end.onRequest && now() - asked > LAST_WORDS_S) {
            endBecause("does not end");
        } else if (!hasWindow_ && running() > limit_ && isOnTrial()) {
            endBecause("has no window");
        }
        reap(end);
    }
    return end;
}

void Watch::endBecause(const char* reason) {
    std::printf("keldra-start: it %s, and is ended\n", reason);
    std::fflush(stdout);
    kill(-first_, SIGKILL);
    begun_ = now();
}

double Watch::running() const {
    return now() - begun_;
}

/** Takes note of all that has ended. */
void Watch::reap(End& end) {
    siginfo_t info{};
    while (waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid != 0) {
        const std::string name = firstLineOf("/proc/" + std::to_string(info.si_pid) + "/comm");
        int status = 0;
        waitpid(info.si_pid, &status, 0);
        if (info.si_pid == first_ || name == UPDATER ||
            name == "sh") { // the shell, where it found none to start
            end.status = asShell(status);
            end.seconds = running();
            begun_ = now();
            hasWindow_ = false;
        }
        info = {};
    }
    isEmpty_ = waitpid(-1, nullptr, WNOHANG) < 0 && errno == ECHILD;
}

/** Asks the updater to end; what it has started ends by itself. */
void Watch::ask() const {
    const std::string self = std::to_string(getpid());
    std::ifstream children("/proc/self/task/" + self + "/children");
    bool found = false;
    for (pid_t child = 0; children >> child;) {
        found = kill(child, SIGTERM) == 0 || found;
    }
    if (!found) {
        kill(first_, SIGTERM);
    }
}
