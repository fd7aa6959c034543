#include "format.h"

#include <cstdarg>
#include <cstdio>

std::string format(const char* pattern, ...) {
    va_list list;
    va_start(list, pattern);
    va_list again;
    va_copy(again, list);
    const int size = std::vsnprintf(nullptr, 0, pattern, list);
    va_end(list);
    std::string text(static_cast<std::size_t>(size), '\0');
    std::vsnprintf(text.data(), text.size() + 1, pattern, again);
    va_end(again);
    return text;
}
