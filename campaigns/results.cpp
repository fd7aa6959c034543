#include "results.h"

#include <stdexcept>
#include <unistd.h>

namespace {

std::FILE* stream = stdout;

} // namespace

std::FILE* results() {
    return stream;
}

bool isAmong(const std::string& outcomes, const std::string& outcome) {
    return ("," + outcomes + ",").find("," + outcome + ",") != std::string::npos;
}

void silenceOthers(const char* file) {
    stream = fdopen(dup(STDOUT_FILENO), "w");
    if (stream == nullptr || std::freopen(file, "w", stdout) == nullptr) {
        throw std::runtime_error("no standard output");
    }
}
