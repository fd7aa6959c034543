// Runs a command and cuts the power, so to speak: right before the N-th call of one kind, counted over
// everything that the command starts, every process in this process namespace is killed. Run it in a sandbox
// only.

#include "commandLine/run.h"

#include <array>
#include <climits>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <string>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr int CUT = 99;
constexpr int NONE = -1;

/** A call that changes a file, and which of its arguments say where that is. */
struct Call {
    long number;
    const char* name;
    int path = NONE;      ///< a path; without one the first argument is a descriptor
    int directory = NONE; ///< descriptor of what a relative path starts from
    int flags = NONE;     ///< of an open
};

constexpr Call CALLS[] = {
    {SYS_write, "write"},
    {SYS_writev, "writev"},
    {SYS_pwrite64, "pwrite64"},
    {SYS_sendfile, "sendfile"},
    {SYS_copy_file_range, "copy_file_range"}, // its first file is read, but lies near the other
    {SYS_ftruncate, "ftruncate"},
    {SYS_fallocate, "fallocate"},
    {SYS_fchmod, "fchmod"},
    {SYS_fchown, "fchown"},
    {SYS_openat, "openat", 1, 0, 2},
    {SYS_mkdirat, "mkdirat", 1, 0},
    {SYS_unlinkat, "unlinkat", 1, 0},
    {SYS_renameat, "renameat", 1, 0},
    {SYS_renameat2, "renameat2", 1, 0},
    {SYS_symlinkat, "symlinkat", 2, 1},
    {SYS_linkat, "linkat", 1, 0}, // the file, which is near its new name
    {SYS_fchmodat, "fchmodat", 1, 0},
    {SYS_fchownat, "fchownat", 1, 0},
    {SYS_utimensat, "utimensat", 1, 0}, // of a descriptor when there is no path
    {SYS_truncate, "truncate", 0},
#ifdef SYS_open // the older forms; newer machines have none of them
    {SYS_open, "open", 0, NONE, 1},
    {SYS_creat, "creat", 0},
    {SYS_mkdir, "mkdir", 0},
    {SYS_rmdir, "rmdir", 0},
    {SYS_unlink, "unlink", 0},
    {SYS_symlink, "symlink", 1},
    {SYS_link, "link", 0},
    {SYS_rename, "rename", 0},
    {SYS_chmod, "chmod", 0},
#endif
};

/** What lies on the panel's card; /tmp (the log in the making), /run and devices are no part of it. */
constexpr const char* CARD[] = {"/keldra/", "/usr/", "/lib/", "/etc/", "/opt/", "/srv/", "/dev/mmcblk0p1"};
constexpr const char* BUS[] = {"/dev/ttyKB"};

[[noreturn]] void fail(const char* what) {
    std::perror(what);
    std::exit(2);
}

/** Lets the kernel stop the calling process and its children at the calls above, and at no other. */
void stopAtCalls() {
    std::vector<sock_filter> program = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
    for (const Call& call : CALLS) {
        program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<std::uint32_t>(call.number), 0, 1));
        program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_TRACE));
    }
    program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    sock_fprog filter{static_cast<unsigned short>(program.size()), program.data()};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
        prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) != 0) {
        fail("seccomp");
    }
}

std::string target(const std::string& link) {
    std::array<char, PATH_MAX> path{};
    const ssize_t size = readlink(link.c_str(), path.data(), path.size());
    return {path.data(), size > 0 ? static_cast<std::size_t>(size) : 0};
}

/** The text at an address of another process. */
std::string textAt(const std::string& process, std::uint64_t address) {
    std::ifstream memory(process + "/mem", std::ios::binary);
    memory.seekg(static_cast<std::streamoff>(address));
    std::string text;
    std::getline(memory, text, '\0');
    return text;
}

std::string pathOf(pid_t pid, const Call& call, const std::uint64_t* arguments) {
    const std::string process = "/proc/" + std::to_string(pid);
    const int from = call.path == NONE        ? static_cast<int>(arguments[0])
                     : call.directory == NONE ? AT_FDCWD
                                              : static_cast<int>(arguments[call.directory]);
    const std::string link = process + (from == AT_FDCWD ? "/cwd" : "/fd/" + std::to_string(from));
    const std::string path = call.path == NONE ? "" : textAt(process, arguments[call.path]);
    if (path.empty()) {
        return target(link);
    }
    const std::filesystem::path whole = path.front() == '/' ? path : target(link) + "/" + path;
    return whole.lexically_normal(); // an installed file comes as //lib/...
}

std::string commandOf(pid_t pid) {
    std::string name;
    std::ifstream file("/proc/" + std::to_string(pid) + "/comm");
    std::getline(file, name);
    return name;
}

/** What the command is stopped at. */
class Stop {
public:
    explicit Stop(pid_t pid) {
        __ptrace_syscall_info info{};
        if (ptrace(PTRACE_GET_SYSCALL_INFO, pid, sizeof info, &info) <= 0) {
            return; // killed meanwhile
        }
        for (const Call& call : CALLS) {
            if (call.number == static_cast<long>(info.seccomp.nr)) {
                const std::uint64_t* arguments = reinterpret_cast<const std::uint64_t*>(&info.seccomp.args);
                name_ = commandOf(pid) + " " + call.name;
                path_ = pathOf(pid, call, arguments);
                changes_ = call.flags < 0 || (arguments[call.flags] & (O_CREAT | O_TRUNC)) != 0;
            }
        }
    }
    bool counts(bool frames) const {
        return frames ? startsWithOneOf(BUS) : changes_ && startsWithOneOf(CARD);
    }
    std::string text() const { return name_ + " " + path_; }

private:
    template <std::size_t SIZE>
    bool startsWithOneOf(const char* const (&places)[SIZE]) const {
        for (const char* place : places) {
            if (path_.rfind(place, 0) == 0) {
                return true;
            }
        }
        return false;
    }

    std::string name_;
    std::string path_;
    bool changes_ = false;
};

pid_t start(const std::vector<std::string>& command) {
    std::vector<char*> words;
    for (const std::string& word : command) {
        words.push_back(const_cast<char*>(word.c_str()));
    }
    words.push_back(nullptr);
    int go[2];
    if (pipe(go) != 0) {
        fail("pipe");
    }
    const pid_t child = fork();
    if (child == 0) {
        char byte = 0;
        close(go[1]);
        if (read(go[0], &byte, 1) != 1) { // until it is traced
            _exit(2);
        }
        close(go[0]);
        stopAtCalls();
        execvp(words[0], words.data());
        fail(words[0]);
    }
    const long options = PTRACE_O_TRACEFORK | PTRACE_O_TRACEVFORK | PTRACE_O_TRACECLONE |
                         PTRACE_O_TRACESECCOMP | PTRACE_O_EXITKILL;
    if (ptrace(PTRACE_SEIZE, child, nullptr, options) != 0 || write(go[1], "", 1) != 1) {
        fail("ptrace");
    }
    close(go[0]);
    close(go[1]);
    return child;
}

/** Lets a stopped process go on; a signal that was on its way to it arrives. */
void resume(pid_t pid, int status) {
    const int event = status >> 16;
    if (event == PTRACE_EVENT_STOP && WSTOPSIG(status) != SIGTRAP) {
        ptrace(PTRACE_LISTEN, pid, nullptr, nullptr); // stopped by a signal: it stays so
        return;
    }
    const long signal = event == 0 ? WSTOPSIG(status) : 0;
    ptrace(PTRACE_CONT, pid, nullptr, signal);
}

int follow(pid_t command, bool frames, long cutAt, std::ofstream& list) {
    long count = 0;
    int status = 0;
    for (pid_t pid = waitpid(-1, &status, __WALL); pid > 0; pid = waitpid(-1, &status, __WALL)) {
        if (!WIFSTOPPED(status)) {
            if (pid == command) {
                return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
            }
            continue;
        }
        if (status >> 16 == PTRACE_EVENT_SECCOMP) {
            const Stop call(pid);
            if (call.counts(frames)) {
                list << call.text() << std::endl;
                if (++count == cutAt) {
                    kill(-1, SIGKILL); // everything but the namespace's first process and this one
                    return CUT;
                }
            }
        }
        resume(pid, status);
    }
    fail("wait");
}

} // namespace

int main(int argc, char** argv) {
    std::string row;
    long cutAt = 0;
    std::string list;
    CLI::App app("Exit status: the command's; 99 after a cut, 2 when it could not be followed.", "cut-power");
    app.add_option("ROW", row, "what is counted: calls that change files of the panel, or writes to the bus")
        ->required()
        ->check(CLI::IsMember({"files", "frames"}));
    app.add_option("N", cutAt, "the call to cut before; 0 for none")->required();
    app.add_option("LIST", list,
                   "file for the calls, \"NAME PATH\" each; last the one that was not let through")
        ->required();
    app.prefix_command();
    return commandLine::run(app, argc, argv, 2, [&] {
        std::ofstream calls(list);
        return follow(start(app.remaining()), row == "frames", cutAt, calls);
    });
}
