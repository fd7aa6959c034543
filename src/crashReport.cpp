#include "crashReport.h"

#include "system/busRecorder.h"

#include <cstdio>
#include <cstdlib>
#include <execinfo.h>
#include <fcntl.h>
#include <iterator>
#include <string_view>
#include <ucontext.h>
#include <unistd.h>

// Nothing here asks for memory or takes a lock: the crash may have struck in the midst of either.

namespace {

const char* const DUMP_FILE = "/keldra/logs/crash.dump";
constexpr int MAX_FRAMES = 100;
constexpr unsigned TIME_LIMIT_S = 4; // for the report and all that exit() does

constexpr struct SIGNAL_TEXT {
    int signal;
    const char* line;
    bool showsAddress;    // a bus error's is left out: the cause is the access, not the place
    const char* codes[8]; // of si_code, from 1
} SIGNAL_TEXTS[] = {
    {SIGILL,
     "Found Illegal Instruction Signal (SIGILL)\n",
     true,
     {"illegal opcode", "illegal operand", "illegal addressing mode", "illegal trap", "privileged opcode",
      "privileged register", "coprocessor error", "internal stack error"}},
    {SIGTRAP, "Found TRAP Signal (SIGTRAP)\n", true, {"process breakpoint", "process trace trap"}},
    {SIGBUS,
     "Found Bus Error (SIGBUS)\n",
     false,
     {"invalid address alignment", "nonexistent physical address", "object-specific hardware error"}},
    {SIGFPE,
     "Found Floating Point or Integer Exception (SIGFPE)\n",
     true,
     {"integer divide by zero", "integer overflow", "floating-point divide by zero",
      "floating-point overflow", "floating-point underflow", "floating-point inexact result",
      "floating-point invalid operation", "subscript out of range"}},
    {SIGSEGV,
     "Found Segmentation Violation (SIGSEGV)\n",
     true,
     {"address not mapped to object", "invalid permissions for mapped object"}},
};

/** What the report tells; the same goes to standard output and to the dump. */
struct CRASH {
    int signal;
    const siginfo_t& info;
    char address[60];
    void* frames[MAX_FRAMES];
    int frameCount;
};

void* programCounter(void* context) {
    const auto* interrupted = static_cast<const ucontext_t*>(context);
#if defined(__arm__)
    return reinterpret_cast<void*>(interrupted->uc_mcontext.arm_pc);
#elif defined(__aarch64__)
    return reinterpret_cast<void*>(interrupted->uc_mcontext.pc);
#elif defined(__x86_64__)
    return reinterpret_cast<void*>(interrupted->uc_mcontext.gregs[REG_RIP]);
#else
#error "the crash report does not know where this processor keeps its program counter"
#endif
}

void put(int out, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = write(out, text.data(), text.size());
        if (written <= 0) {
            return;
        }
        text.remove_prefix(static_cast<std::size_t>(written));
    }
}

void putRule(int out, std::size_t dashes) {
    static constexpr std::string_view LONGEST = "------------------------------------------------";
    put(out, LONGEST.substr(0, dashes));
    put(out, "\n");
}

void putSignal(int out, const CRASH& crash) {
    const int code = crash.info.si_code;
    for (const SIGNAL_TEXT& text : SIGNAL_TEXTS) {
        if (text.signal != crash.signal) {
            continue;
        }
        put(out, text.line);
        put(out, text.showsAddress ? crash.address : "");
        if (code >= 1 && code <= static_cast<int>(std::size(text.codes)) && text.codes[code - 1] != nullptr) {
            put(out, "Code: ");
            put(out, text.codes[code - 1]);
            put(out, "\n");
        }
        return;
    }
    char unexpected[80];
    std::snprintf(unexpected, sizeof unexpected, "Found Unexpected Signal %d\nCode: %d\n",
                  crash.info.si_signo, code);
    put(out, unexpected);
}

void putBacktrace(int out, const CRASH& crash) {
    putRule(out, 20);
    put(out, "Backtrace: \n");
    putRule(out, 20);
    backtrace_symbols_fd(crash.frames, crash.frameCount, out);
}

/** Headings that the readers of these reports look for; nothing stands under them. */
void putHeadings(int out) {
    for (const char* heading : {"Uptime\n", "Mem Info\n", "Memory Dump\n"}) {
        putRule(out, 19);
        put(out, heading);
    }
}

void putReport(int out, const CRASH& crash) {
    putRule(out, 48);
    put(out, "Detected Segmentation Fault in K+Main.  Program will Exit.\n");
    putRule(out, 48);
    putSignal(out, crash);
    putBacktrace(out, crash);
    putHeadings(out);
}

/** Whatever the report or exit() waits for then: the process ends, with the same status. */
void limitTime() {
    std::signal(SIGALRM, [](int) { _exit(1); });
    alarm(TIME_LIMIT_S);
}

} // namespace

void segfault_sigaction(int signal, siginfo_t* si, void* arg) {
    limitTime();
    void* const counter = programCounter(arg);
    CRASH crash{signal, *si, {}, {}, 0};
    crash.frameCount = backtrace(crash.frames, MAX_FRAMES);
    crash.frames[1] = counter; // frame 0 is this handler, frame 1 the kernel's way into it
    std::snprintf(crash.address, sizeof crash.address, "Address: %p from %p -- ", si->si_addr, counter);
    putReport(STDOUT_FILENO, crash);
    put(STDOUT_FILENO, "\n");
    const int dump = open(DUMP_FILE, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    putReport(dump, crash);
    close(dump);
    busRecorder::saveAtCrash();
    std::exit(1);
}

void installCrashReport() {
    void* unused[1];
    backtrace(unused, 1); // the first one loads a library, which a crash must not have to
    struct sigaction handler {};
    sigemptyset(&handler.sa_mask);
    handler.sa_sigaction = segfault_sigaction;
    handler.sa_flags = SA_SIGINFO;
    for (const int signal : {SIGBUS, SIGSEGV, SIGILL, SIGFPE, SIGTRAP}) {
        sigaction(signal, &handler, nullptr);
    }
}
