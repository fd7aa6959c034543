// The command line.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
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

// None when the line was answered already (help) or is wrong; `status` is then the program's exit status.
std::optional<Options> parseOptions(int argc, char** argv, int& status);

} // namespace sim
