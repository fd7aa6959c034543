#include "lineQuality.h"

#include "../lib/format.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr double STEPS_A_MS = 10;
constexpr std::uint32_t SHARE = 100;  // one in so many repeated is too much
constexpr std::uint32_t ENOUGH = 100; // exchanges to judge by

bool asksForStatus(const busMessages::PROCBUS_MSG& msg) {
    return msg.id == busProtocol::BOOTLOADER_COMMAND && msg.length > 1 &&
           msg.data[1] == busProtocol::REQUEST_STATUS;
}

bool isSame(const busMessages::PROCBUS_MSG& a, const busMessages::PROCBUS_MSG& b) {
    return a.id == b.id && a.length == b.length && std::memcmp(a.data, b.data, a.length) == 0;
}

} // namespace

void lineQuality::begin() {
    exchanges = repeated = silent = 0;
    damagedBefore = damaged;
    asked.reset();
    last = {};
    replies.fill(0);
    longestMs = 0;
}

void lineQuality::sent(const busMessages::PROCBUS_MSG& request, clock::time_point now) {
    silent += asked ? 1 : 0;
    asked.reset();
    if (isSame(request, busMessages::markRow())) {
        return; // sent to see what the module makes of it, if anything
    }
    asked = now;
    if (!asksForStatus(request)) {
        repeated += isSame(request, last) ? 1 : 0;
        last = request;
    }
}

void lineQuality::answered(clock::time_point now) {
    if (!asked) {
        return; // doubled, or late
    }
    const double ms = milliseconds(now - *asked).count();
    asked.reset();
    ++exchanges;
    ++replies[std::min(STEPS, static_cast<std::size_t>(ms * STEPS_A_MS))];
    longestMs = std::max(longestMs, ms);
}

bool lineQuality::isBad() const {
    return exchanges >= ENOUGH && repeated * SHARE > exchanges;
}

double lineQuality::medianMs() const {
    std::uint32_t passed = 0;
    std::size_t step = 0;
    while (step < STEPS && (passed += replies[step]) <= exchanges / 2) {
        ++step;
    }
    return static_cast<double>(step) / STEPS_A_MS;
}

std::string lineQuality::text() const {
    return format("%u exchanges, %u repeated, %u silent, %u damaged, reply %.1f ms, %.1f ms at most",
                  exchanges, repeated, silent, damaged - damagedBefore, medianMs(), longestMs);
}
