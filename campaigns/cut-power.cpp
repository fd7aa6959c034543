// Runs a command and cuts the power, so to speak: right before the N-th call of one kind, counted over
// everything that the command starts, every process in this process namespace is killed. Run it in a sandbox
// only.

#include <CLI/CLI.hpp>
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
enum class FileIn { Descriptor, Path, DirectoryAndPath, SecondPath, DirectoryAndSecondPath };

struct Call {
    long number;
    const char* name;
    FileIn file;
    int flags = -1; ///< index of the argument with the flags of an open
};

constexpr Call CALLS[] = {
    {SYS_write, "write", FileIn::Descriptor},
    {SYS_writev, "writev", FileIn::Descriptor},
    {SYS_pwrite64, "pwrite64", FileIn::Descriptor},
    {SYS_sendfile, "sendfile", FileIn::Descriptor},
    {SYS_copy_file_range, "copy_file_range",
     FileIn::Descriptor}, // its first file is read, but lies near the other
    {SYS_ftruncate, "ftruncate", FileIn::Descriptor},
    {SYS_fallocate, "fallocate", FileIn::Descriptor},
    {SYS_fchmod, "fchmod", FileIn::Descriptor},
    {SYS_fchown, "fchown", FileIn::Descriptor},
    {SYS_openat, "openat", FileIn::DirectoryAndPath, 2},
    {SYS_mkdirat, "mkdirat", FileIn::DirectoryAndPath},
    {SYS_unlinkat, "unlinkat", FileIn::DirectoryAndPath},
    {SYS_renameat, "renameat", FileIn::DirectoryAndPath},
    {SYS_renameat2, "renameat2", FileIn::DirectoryAndPath},
    {SYS_symlinkat, "symlinkat", FileIn::DirectoryAndSecondPath},
    {SYS_linkat, "linkat", FileIn::DirectoryAndPath}, // the file, which is near its new name
    {SYS_fchmodat, "fchmodat", FileIn::DirectoryAndPath},
    {SYS_fchownat, "fchownat", FileIn::DirectoryAndPath},
    {SYS_utimensat, "utimensat", FileIn::DirectoryAndPath}, // of a descriptor when there is no path
    {SYS_truncate, "truncate", FileIn::Path},
#ifdef SYS_open // the older forms; newer machines have none of them
    {SYS_open, "open", FileIn::Path, 1},
    {SYS_creat, "creat", FileIn::Path},
    {SYS_mkdir, "mkdir", FileIn::Path},
    {SYS_rmdir, "rmdir", FileIn::Path},
    {SYS_unlink, "unlink", FileIn::Path},
    {SYS_symlink, "symlink", FileIn::SecondPath},
    {SYS_link, "link", FileIn::Path},
    {SYS_rename, "rename", FileIn::Path},
    {SYS_chmod, "chmod", FileIn::Path},
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
    const bool behindAnother = call.file == FileIn::SecondPath || call.file == FileIn::DirectoryAndSecondPath;
    if (behindAnother) {
        ++arguments;
    }
    const int descriptor = static_cast<int>(arguments[0]);
    const std::string link = process + "/fd/" + std::to_string(descriptor);
    if (call.file == FileIn::Descriptor) {
        return target(link);
    }
    const bool inDirectory =
        call.file == FileIn::DirectoryAndPath || call.file == FileIn::DirectoryAndSecondPath;
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
                name_ = call.name;
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
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    std::ofstream calls(list);
    return follow(start(app.remaining()), row == "frames", cutAt, calls);
}
