// Counts of what was executed are written when a process ends, but not by _exit(), as children end here, nor
// when it becomes another program.
#include <cstdarg>
#include <unistd.h>
#include <vector>

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

int __wrap_execl(const char* path, const char* argument, ...) {
    std::vector<char*> arguments;
    std::va_list list;
    va_start(list, argument);
    for (const char* each = argument; each != nullptr; each = va_arg(list, const char*)) {
        arguments.push_back(const_cast<char*>(each));
    }
    va_end(list);
    arguments.push_back(nullptr);
    __gcov_dump();
    return execv(path, arguments.data());
}
}
