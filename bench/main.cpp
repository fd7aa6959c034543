#include "bench.h"

#include <chrono>
#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <fstream>
#include <unistd.h>

namespace {

constexpr struct {
    const char* name;
    void (*measure)(const bench::Arguments& arguments);
} MEASUREMENTS[] = {
    {"time", bench::timeCommand},
    {"hex", bench::parseHex},
    {"crc", bench::checkCrc},
    {"copy", bench::copyFile},
    {"check", bench::checkPackage},
    {"flash", bench::flash},
    {"receive-share", bench::receiveShare},
    {"receive-rate", bench::receiveRate},
    {"load", bench::loadPackage},
    {"window", bench::paintWindow},
    {"progress-line", bench::progressLine},
    {"update", bench::updatePanel},
};

int results = STDOUT_FILENO;

/** What the updater prints itself must not mix with the results. */
void muteStandardOutput() {
    results = dup(STDOUT_FILENO);
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nowhere, STDOUT_FILENO);
    close(nowhere);
}

} // namespace

double bench::now() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

void bench::report(double value) {
    dprintf(results, "%.9g\n", value);
}

double bench::peakMemory() {
    std::ifstream status("/proc/self/status");
    std::string word;
    double kibibytes = 0;
    while (status >> word && word != "VmHWM:") {
    }
    status >> kibibytes;
    return kibibytes * 1024 / 1e6;
}

int main(int argc, char** argv) {
    const bench::Arguments arguments(argv + (argc > 1 ? 2 : 1), argv + argc);
    for (const auto& measurement : MEASUREMENTS) {
        if (argc < 2 || measurement.name != std::string(argv[1])) {
            continue;
        }
        muteStandardOutput();
        try {
            measurement.measure(arguments);
            return 0;
        } catch (const std::exception& failure) {
            std::fprintf(stderr, "%s: %s\n", measurement.name, failure.what());
            return 1;
        }
    }
    std::fprintf(stderr, "usage: keldra-bench MEASUREMENT ARGUMENT...\n");
    return 2;
}
