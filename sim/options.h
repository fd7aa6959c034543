// The command line.
#pragma once

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace sim {

struct Options {
    std::string link;
    std::string inventory;
    std::string trace;
    std::string report;
    std::string dump;
    unsigned baud = 0; // 0: not paced
    std::chrono::microseconds relayDelay{0};
    std::chrono::milliseconds statusPeriod{1000};
    std::uint64_t seed = 1;
    std::vector<std::string> faultFiles;
    std::vector<std::string> faults;
};

void declare(CLI::App& app, Options& options);

} // namespace sim
