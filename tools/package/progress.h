// A progress bar on standard error, when that is a terminal.
#pragma once

#include <cstdint>
#include <string>

namespace package {

class ProgressBar {
public:
    ProgressBar(const std::string& title, std::uint64_t total);
    ~ProgressBar(); // wipes it
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    void show(std::uint64_t done);

private:
    const std::string title_;
    const std::uint64_t total_;
    const bool visible_;
    unsigned percent_ = 101; // shown last; none yet
};

} // namespace package
