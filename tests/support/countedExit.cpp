// Counts of what was executed are written when a process ends, but not by _exit(), as children end here.

extern "C" {
void __gcov_dump();
[[noreturn]] void __real__exit(int status);

/** A failed one writes none: a crash report that is stuck ends so, and must not take a lock. */
[[noreturn]] void __wrap__exit(int status) {
    if (status == 0) {
        __gcov_dump();
    }
    __real__exit(status);
}
}
