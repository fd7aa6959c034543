// The command line.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace sim {

struct Options {
    std::string answer; // to --help or --version; the program then ends
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

extern const char* const usage;

// Throws std::invalid_argument for a command line it can't use.
Options parseOptions(const std::vector<std::string>& arguments);

} // namespace sim
