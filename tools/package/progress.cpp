#include "progress.h"

#include "platform.h"

#include <cstdio>

namespace package {

namespace {

constexpr unsigned WIDTH = 40;
constexpr std::uint64_t LARGE = 4'000'000; // what nobody waits for needs none

} // namespace

ProgressBar::ProgressBar(const std::string& title, std::uint64_t total)
    : title_(title),
      total_(total),
      visible_(total >= LARGE && platform::isTerminal(platform::Stream::Errors)) {}

ProgressBar::~ProgressBar() {
    if (visible_)
        std::fputs("\r\033[K", stderr);
}

void ProgressBar::show(std::uint64_t done) {
    const unsigned percent = total_ == 0 ? 100 : static_cast<unsigned>(done * 100 / total_);
    if (!visible_ || percent == percent_)
        return;
    percent_ = percent;
    const std::string bar(percent * WIDTH / 100, '#');
    std::fprintf(stderr, "\r%s [%-*s] %3u %%\033[K", title_.c_str(), static_cast<int>(WIDTH), bar.c_str(),
                 percent);
}

} // namespace package
