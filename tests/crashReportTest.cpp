#include "crashReport.h"

#include "support/panel.h"

#include <csignal>
#include <fcntl.h>
#include <regex>
#include <sys/mman.h>
#include <sys/wait.h>
#include <ucontext.h>
#include <unistd.h>

namespace {

const std::string HEADER = std::string(48, '-') +
                           "\nDetected Segmentation Fault in K+Main.  Program will Exit.\n" +
                           std::string(48, '-') + "\n";
const std::string BACKTRACE = std::string(20, '-') + "\nBacktrace: \n" + std::string(20, '-') + "\n";
const std::string END = std::string(19, '-') + "\nUptime\n" + std::string(19, '-') + "\nMem Info\n" +
                        std::string(19, '-') + "\nMemory Dump\n";
const std::string ADDRESS = "Address: 0x1234 from 0x[0-9a-f]+ -- ";

/** Lets a child process crash; what it wrote to standard output. */
template <class CRASH>
std::string outputOf(CRASH crash) {
    const int out = open("/tmp/crash.out", O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0644);
    const pid_t child = fork();
    if (child == 0) {
        dup2(out, STDOUT_FILENO);
        crash();
        _exit(99);
    }
    close(out);
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 1);
    return contents("/tmp/crash.out");
}

/** What stands between the header and the backtrace. */
std::string cause(const std::string& report) {
    const std::size_t end = report.find(BACKTRACE);
    EXPECT_EQ(report.substr(0, HEADER.size()), HEADER);
    EXPECT_NE(end, std::string::npos) << report;
    return end == std::string::npos ? "" : report.substr(HEADER.size(), end - HEADER.size());
}

TEST(crashReport, EverySignalAndCode) {
    const struct {
        int signal;
        int code;
        const char* line;
        bool address;
        const char* codeLine; ///< null: none, the next line begins right behind the address
    } rows[] = {
        {SIGILL, 1, "Found Illegal Instruction Signal (SIGILL)", true, "illegal opcode"},
        {SIGILL, 8, "Found Illegal Instruction Signal (SIGILL)", true, "internal stack error"},
        {SIGILL, 9, "Found Illegal Instruction Signal (SIGILL)", true, nullptr},
        {SIGTRAP, 1, "Found TRAP Signal (SIGTRAP)", true, "process breakpoint"},
        {SIGTRAP, 2, "Found TRAP Signal (SIGTRAP)", true, "process trace trap"},
        {SIGBUS, 1, "Found Bus Error (SIGBUS)", false, "invalid address alignment"},
        {SIGBUS, 3, "Found Bus Error (SIGBUS)", false, "object-specific hardware error"},
        {SIGFPE, 1, "Found Floating Point or Integer Exception (SIGFPE)", true, "integer divide by zero"},
        {SIGFPE, 6, "Found Floating Point or Integer Exception (SIGFPE)", true,
         "floating-point inexact result"},
        {SIGFPE, 8, "Found Floating Point or Integer Exception (SIGFPE)", true, "subscript out of range"},
        {SIGSEGV, 1, "Found Segmentation Violation (SIGSEGV)", true, "address not mapped to object"},
        {SIGSEGV, 2, "Found Segmentation Violation (SIGSEGV)", true, "invalid permissions for mapped object"},
        {SIGSEGV, 0, "Found Segmentation Violation (SIGSEGV)", true, nullptr},
        {SIGSEGV, -6, "Found Segmentation Violation (SIGSEGV)", true, nullptr},
    };
    for (const auto& row : rows) {
        const std::string report = outputOf([&row] {
            ucontext_t context{};
            getcontext(&context);
            siginfo_t info{};
            info.si_signo = row.signal;
            info.si_code = row.code;
            info.si_addr = reinterpret_cast<void*>(0x1234);
            segfault_sigaction(row.signal, &info, &context);
        });
        const std::string line = row.line;
        const std::string pattern =
            std::regex_replace(line, std::regex("[()]"), "\\$&") + "\n" + (row.address ? ADDRESS : "") +
            (row.codeLine != nullptr ? "Code: " + std::string(row.codeLine) + "\n" : "");
        EXPECT_TRUE(std::regex_match(cause(report), std::regex(pattern))) << pattern << "\n" << report;
        EXPECT_EQ(report.substr(report.size() - END.size() - 1), END + "\n");
        EXPECT_EQ(contents("/keldra/logs/crash.dump") + "\n", report); // the latest crash only
    }
}

TEST(crashReport, AnUnexpectedSignalIsGivenInNumbers) {
    const std::string report = outputOf([] {
        ucontext_t context{};
        siginfo_t info{};
        info.si_signo = SIGUSR2;
        info.si_code = -1;
        segfault_sigaction(SIGUSR1, &info, &context);
    });
    EXPECT_EQ(cause(report), "Found Unexpected Signal 12\nCode: -1\n");
}

TEST(crashReport, RealFaults) {
    const struct {
        const char* cause;
        void (*crash)();
    } rows[] = {
        {"Found Segmentation Violation (SIGSEGV)\nAddress: 0x[0-9a-f]+ from 0x[0-9a-f]+ -- Code: invalid "
         "permissions "
         "for mapped object\n",
         [] {
             auto* page = static_cast<volatile char*>(
                 mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
             *page = 1;
         }},
        {"Found Bus Error (SIGBUS)\nCode: nonexistent physical address\n",
         [] {
             const int empty = open("/tmp/empty", O_CREAT | O_RDWR | O_CLOEXEC, 0644);
             auto* page = static_cast<volatile char*>(
                 mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, empty, 0));
             *page = 1;
         }},
        {"Found TRAP Signal (SIGTRAP)\nAddress: .* -- ", [] { raise(SIGTRAP); }},
        {"Found Illegal Instruction Signal (SIGILL)\nAddress: .* -- ", [] { raise(SIGILL); }},
        {"Found Floating Point or Integer Exception (SIGFPE)\nAddress: .* -- ", [] { raise(SIGFPE); }},
    };
    for (const auto& row : rows) {
        const std::string report = outputOf([&row] {
            installCrashReport();
            row.crash();
        });
        const std::string pattern = std::regex_replace(std::string(row.cause), std::regex("[()]"), "\\$&");
        EXPECT_TRUE(std::regex_match(cause(report), std::regex(pattern))) << report;
    }
}

} // namespace
