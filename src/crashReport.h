#pragma once

#include <csignal>

/** Makes a fatal processor signal end in a crash report. */
void installCrashReport();

/**
 * The signal handler: writes what happened and a backtrace to standard output and to
 * "/keldra/logs/crash.dump" (the latest crash only), then ends the process with status 1: within 5 s, even
 * when the crash struck in malloc and what exit() does would wait for ever.
 */
void segfault_sigaction(int signal, siginfo_t* si, void* arg);
