#include "bench.h"

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <fstream>
#include <unistd.h>

namespace {

constexpr struct {
    const char* name;
    const char* takes;
    void (*measure)(const bench::Arguments& arguments);
} MEASUREMENTS[] = {
    {"time", "COMMAND...", bench::timeCommand},
    {"hex", "IMAGE...", bench::parseHex},
    {"crc", "updater|table|boost", bench::checkCrc},
    {"copy", "SOURCE DESTINATION", bench::copyFile},
    {"check", "FILE", bench::checkPackage},
    {"flash", "SIMULATOR IMAGE KIND MODULES BAUD TRACE", bench::flash},
    {"receive-share", "updater|unrecorded|bare", bench::receiveShare},
    {"receive-rate", "updater|unrecorded|bare", bench::receiveRate},
    {"load", "SIMULATOR PACKAGE", bench::loadPackage},
    {"window", "STARTED updater|bare", bench::paintWindow},
    {"progress-line", "FILE", bench::progressLine},
    {"update", "SIMULATOR PACKAGE", bench::updatePanel},
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
    CLI::App app("One measurement, which bench/run starts often.", "keldra-bench");
    app.require_subcommand(1);
    for (const auto& measurement : MEASUREMENTS) {
        CLI::App* const command = app.add_subcommand(measurement.name, measurement.takes)->prefix_command();
        command->callback([command, &measurement] {
            muteStandardOutput();
            measurement.measure(command->remaining());
        });
    }
    try {
        app.parse(argc, argv);
        return 0;
    } catch (const CLI::ParseError& error) {
        return app.exit(error);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s\n", failure.what());
        return 1;
    }
}
