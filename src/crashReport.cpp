#include "crashReport.h"

#include "lib/functs.h"

#include <cstdio>
#include <cstdlib>
#include <execinfo.h>
#include <iostream>
#include <sstream>
#include <string>
#include <ucontext.h>
#include <vector>

namespace {

const char* const DUMP_FILE = "/keldra/logs/crash.dump";
constexpr int MAX_FRAMES = 100;

struct SIGNAL_TEXT {
    int signal;
    const char* line;
    bool showsAddress;              // a bus error's is left out: the cause is the access, not the place
    std::vector<const char*> codes; // of si_code, from 1
};

const std::vector<SIGNAL_TEXT>& signalTexts() {
    static const std::vector<SIGNAL_TEXT> texts = {
        {SIGILL,
         "Found Illegal Instruction Signal (SIGILL)",
         true,
         {"illegal opcode", "illegal operand", "illegal addressing mode", "illegal trap", "privileged opcode",
          "privileged register", "coprocessor error", "internal stack error"}},
        {SIGTRAP, "Found TRAP Signal (SIGTRAP)", true, {"process breakpoint", "process trace trap"}},
        {SIGBUS,
         "Found Bus Error (SIGBUS)",
         false,
         {"invalid address alignment", "nonexistent physical address", "object-specific hardware error"}},
        {SIGFPE,
         "Found Floating Point or Integer Exception (SIGFPE)",
         true,
         {"integer divide by zero", "integer overflow", "floating-point divide by zero",
          "floating-point overflow", "floating-point underflow", "floating-point inexact result",
          "floating-point invalid operation", "subscript out of range"}},
        {SIGSEGV,
         "Found Segmentation Violation (SIGSEGV)",
         true,
         {"address not mapped to object", "invalid permissions for mapped object"}},
    };
    return texts;
}

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

void writeRule(std::ostream& out, int dashes) {
    out << std::string(static_cast<std::size_t>(dashes), '-') << "\n";
}

void writeSignal(std::ostream& out, int signal, const siginfo_t& info, const char* address) {
    for (const SIGNAL_TEXT& text : signalTexts()) {
        if (text.signal != signal) {
            continue;
        }
        out << text.line << "\n" << (text.showsAddress ? address : "");
        const auto code = static_cast<std::size_t>(info.si_code);
        if (info.si_code >= 1 && code <= text.codes.size()) {
            out << "Code: " << text.codes[code - 1] << "\n";
        }
        return;
    }
    out << "Found Unexpected Signal " << info.si_signo << "\nCode: " << info.si_code << "\n";
}

void writeBacktrace(std::ostream& out, void* const* frames, int count) {
    char** symbols = backtrace_symbols(frames, count);
    if (symbols == nullptr) {
        return;
    }
    writeRule(out, 20);
    out << "Backtrace: \n";
    writeRule(out, 20);
    for (int i = 0; i < count; ++i) {
        out << symbols[i] << "\n";
    }
    // The symbols are not freed: the heap may be what has crashed.
}

/** Headings that the readers of these reports look for; nothing stands under them. */
void writeHeadings(std::ostream& out) {
    writeRule(out, 19);
    out << "Uptime\n";
    writeRule(out, 19);
    out << "Mem Info\n";
    writeRule(out, 19);
    out << "Memory Dump\n";
}

} // namespace

void segfault_sigaction(int signal, siginfo_t* si, void* arg) {
    void* const counter = programCounter(arg);
    void* frames[MAX_FRAMES];
    const int count = backtrace(frames, MAX_FRAMES);
    frames[1] = counter; // frame 0 is this handler, frame 1 the kernel's way into it
    char address[60];
    std::snprintf(address, sizeof address, "Address: %p from %p -- ", si->si_addr, counter);
    std::ostringstream report;
    writeRule(report, 48);
    report << "Detected Segmentation Fault in K+Main.  Program will Exit.\n";
    writeRule(report, 48);
    writeSignal(report, signal, *si, address);
    writeBacktrace(report, frames, count);
    writeHeadings(report);
    std::cout << report.str() << std::endl;
    functs().writeFileContents(DUMP_FILE, report.str());
    std::exit(1);
}

void installCrashReport() {
    struct sigaction handler {};
    sigemptyset(&handler.sa_mask);
    handler.sa_sigaction = segfault_sigaction;
    handler.sa_flags = SA_SIGINFO;
    for (const int signal : {SIGBUS, SIGSEGV, SIGILL, SIGFPE, SIGTRAP}) {
        sigaction(signal, &handler, nullptr);
    }
}
