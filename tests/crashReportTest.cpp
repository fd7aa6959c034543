#include "crashReport.h"

#include "support/panel.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <regex>
#include <sys/mman.h>
#include <sys/wait.h>
#include <thread>
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
template <class Crash>
std::string outputOf(Crash crash) {
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
    const std::string ill = "Found Illegal Instruction Signal (SIGILL)";
    const std::string trap = "Found TRAP Signal (SIGTRAP)";
    const std::string bus = "Found Bus Error (SIGBUS)";
    const std::string fpe = "Found Floating Point or Integer Exception (SIGFPE)";
    const std::string segv = "Found Segmentation Violation (SIGSEGV)";
    const struct {
        int signal;
        int code;
        std::string line;
        const char* codeLine; ///< null: none, the next line begins right behind the address
    } rows[] = {
        {SIGILL, 1, ill, "illegal opcode"},
        {SIGILL, 8, ill, "internal stack error"},
        {SIGILL, 9, ill, nullptr},
        {SIGTRAP, 1, trap, "process breakpoint"},
        {SIGTRAP, 2, trap, "process trace trap"},
        {SIGBUS, 1, bus, "invalid address alignment"},
        {SIGBUS, 2, bus, "nonexistent physical address"},
        {SIGBUS, 3, bus, "object-specific hardware error"},
        {SIGFPE, 1, fpe, "integer divide by zero"},
        {SIGFPE, 6, fpe, "floating-point inexact result"},
        {SIGFPE, 8, fpe, "subscript out of range"},
        {SIGSEGV, 1, segv, "address not mapped to object"},
        {SIGSEGV, 2, segv, "invalid permissions for mapped object"},
        {SIGSEGV, 0, segv, nullptr},
        {SIGSEGV, -6, segv, nullptr},
        {SIGUSR1, -1, "Found Unexpected Signal 12", "-1"},
    };
    for (const auto& row : rows) {
        const std::string report = outputOf([&row] {
            ucontext_t context{};
            getcontext(&context);
            siginfo_t info{};
            info.si_signo = SIGUSR2; // told of an unexpected signal only
            info.si_code = row.code;
            info.si_addr = reinterpret_cast<void*>(0x1234);
            segfault_sigaction(row.signal, &info, &context);
        });
        const bool hasAddress = row.signal != SIGBUS && row.signal != SIGUSR1;
        const std::string pattern =
            std::regex_replace(row.line, std::regex("[()]"), "\\$&") + "\n" + (hasAddress ? ADDRESS : "") +
            (row.codeLine != nullptr ? "Code: " + std::string(row.codeLine) + "\n" : "");
        EXPECT_TRUE(std::regex_match(cause(report), std::regex(pattern))) << pattern << "\n" << report;
        EXPECT_EQ(report.substr(report.size() - END.size() - 1), END + "\n");
        EXPECT_EQ(contents("/keldra/logs/crash.dump") + "\n", report); // the latest crash only
    }
}

TEST(crashReport, EveryFatalSignalIsReported) { // platformTest has a real fault
    for (const int signal : {SIGSEGV, SIGBUS, SIGTRAP, SIGILL, SIGFPE}) {
        const std::string report = outputOf([signal] {
            installCrashReport();
            raise(signal);
        });
        EXPECT_EQ(cause(report).find("Unexpected"), std::string::npos) << report;
    }
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) // which bring a malloc of their own

/** Faults in the midst of malloc, which holds its lock: the heap's unused part is taken away. */
void faultInsideMalloc() {
    std::thread([] { pause(); }).detach(); // a single thread would not lock
    constexpr std::uintptr_t PAGE = 4096;
    void* last = nullptr; // of the heap, and given back to what is unused
    for (int n = 0; n < 20; ++n) {
        last = std::max(last, std::malloc(100'000));
    }
    const std::uintptr_t unused = (reinterpret_cast<std::uintptr_t>(last) + 2 * PAGE) & ~(PAGE - 1);
    std::free(last);
    mprotect(reinterpret_cast<void*>(unused), reinterpret_cast<std::uintptr_t>(sbrk(0)) - unused, PROT_NONE);
    for (int n = 0; n < 100'000; ++n) {
        [[maybe_unused]] void* volatile taken = std::malloc(2000);
    }
}

TEST(crashReport, AFaultInsideMallocIsReportedAndEndsInTime) {
    const auto start = std::chrono::steady_clock::now();
    const std::string report = outputOf([] {
        installCrashReport();
        faultInsideMalloc();
    });
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
    EXPECT_NE(cause(report).find("(SIGSEGV)"), std::string::npos);
    EXPECT_EQ(contents("/keldra/logs/crash.dump") + "\n", report);
}

#endif

} // namespace
