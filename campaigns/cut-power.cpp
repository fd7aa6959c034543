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

/**
 * Where a call says which file it means: by descriptor or by path, in the first argument or behind a
 * directory; or, where the first path is what a new symbolic link contains, behind that.
 */
enum class FILE_IN { DESCRIPTOR, PATH, DIRECTORY_AND_PATH, SECOND_PATH, DIRECTORY_AND_SECOND_PATH };

struct CALL {
    long number;
    const char* name;
    FILE_IN file;
    int flags = -1; ///< index of the argument with the flags of an open
};

constexpr CALL CALLS[] = {
    {SYS_write, "write", FILE_IN::DESCRIPTOR},
    {SYS_writev, "writev", FILE_IN::DESCRIPTOR},
    {SYS_pwrite64, "pwrite64", FILE_IN::DESCRIPTOR},
    {SYS_sendfile, "sendfile", FILE_IN::DESCRIPTOR},
    {SYS_copy_file_range, "copy_file_range",
     FILE_IN::DESCRIPTOR}, // its first file is read, but lies near the other
    {SYS_ftruncate, "ftruncate", FILE_IN::DESCRIPTOR},
    {SYS_fallocate, "fallocate", FILE_IN::DESCRIPTOR},
    {SYS_fchmod, "fchmod", FILE_IN::DESCRIPTOR},
    {SYS_fchown, "fchown", FILE_IN::DESCRIPTOR},
    {SYS_openat, "openat", FILE_IN::DIRECTORY_AND_PATH, 2},
    {SYS_mkdirat, "mkdirat", FILE_IN::DIRECTORY_AND_PATH},
    {SYS_unlinkat, "unlinkat", FILE_IN::DIRECTORY_AND_PATH},
    {SYS_renameat, "renameat", FILE_IN::DIRECTORY_AND_PATH},
    {SYS_renameat2, "renameat2", FILE_IN::DIRECTORY_AND_PATH},
    {SYS_symlinkat, "symlinkat", FILE_IN::DIRECTORY_AND_SECOND_PATH},
    {SYS_linkat, "linkat", FILE_IN::DIRECTORY_AND_PATH}, // the file, which is near its new name
    {SYS_fchmodat, "fchmodat", FILE_IN::DIRECTORY_AND_PATH},
    {SYS_fchownat, "fchownat", FILE_IN::DIRECTORY_AND_PATH},
    {SYS_utimensat, "utimensat", FILE_IN::DIRECTORY_AND_PATH}, // of a descriptor when there is no path
    {SYS_truncate, "truncate", FILE_IN::PATH},
#ifdef SYS_open // the older forms; newer machines have none of them
    {SYS_open, "open", FILE_IN::PATH, 1},
    {SYS_creat, "creat", FILE_IN::PATH},
    {SYS_mkdir, "mkdir", FILE_IN::PATH},
    {SYS_rmdir, "rmdir", FILE_IN::PATH},
    {SYS_unlink, "unlink", FILE_IN::PATH},
    {SYS_symlink, "symlink", FILE_IN::SECOND_PATH},
    {SYS_link, "link", FILE_IN::PATH},
    {SYS_rename, "rename", FILE_IN::PATH},
    {SYS_chmod, "chmod", FILE_IN::PATH},
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
    for (const CALL& call : CALLS) {
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

std::string pathOf(pid_t pid, const CALL& call, const std::uint64_t* arguments) {
    const std::string process = "/proc/" + std::to_string(pid);
    const bool behindAnother =
        call.file == FILE_IN::SECOND_PATH || call.file == FILE_IN::DIRECTORY_AND_SECOND_PATH;
    if (behindAnother) {
        ++arguments;
    }
    const int descriptor = static_cast<int>(arguments[0]);
    const std::string link = process + "/fd/" + std::to_string(descriptor);
    if (call.file == FILE_IN::DESCRIPTOR) {
        return target(link);
    }
    const bool inDirectory =
        call.file == FILE_IN::DIRECTORY_AND_PATH || call.file == FILE_IN::DIRECTORY_AND_SECOND_PATH;
    std::string path = textAt(process, arguments[inDirectory ? 1 : 0]);
    if (path.empty()) {
        return target(link);
    }
    if (path.front() == '/') {
        return path;
    }
    return target(inDirectory && descriptor != AT_FDCWD ? link : process + "/cwd") + "/" + path;
}

/** What the command is stopped at. */
class stop {
public:
    explicit stop(pid_t pid) {
        __ptrace_syscall_info info{};
        if (ptrace(PTRACE_GET_SYSCALL_INFO, pid, sizeof info, &info) <= 0) {
            return; // killed meanwhile
        }
        for (const CALL& call : CALLS) {
            if (call.number == static_cast<long>(info.seccomp.nr)) {
                const std::uint64_t* arguments = reinterpret_cast<const std::uint64_t*>(&info.seccomp.args);
                name = call.name;
                path = pathOf(pid, call, arguments);
                changes = call.flags < 0 || (arguments[call.flags] & (O_CREAT | O_TRUNC)) != 0;
            }
        }
    }
    bool counts(bool frames) const {
        return frames ? startsWithOneOf(BUS) : changes && startsWithOneOf(CARD);
    }
    std::string text() const { return name + " " + path; }

private:
    template <std::size_t SIZE>
    bool startsWithOneOf(const char* const (&places)[SIZE]) const {
        for (const char* place : places) {
            if (path.rfind(place, 0) == 0) {
                return true;
            }
        }
        return false;
    }

    std::string name;
    std::string path;
    bool changes = false;
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
            const stop call(pid);
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
