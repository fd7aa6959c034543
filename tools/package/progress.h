// A progress bar on standard error, when that is a terminal and the work takes a while.
#pragma once

#include <cstdint>
#include <string>

namespace package {

class ProgressBar {
public:
    ProgressBar(const std::string& title, std::uint64_t total); // in bytes
    ~ProgressBar();                                             // wipes it
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
