#include "runProgress.h"

#include "../lib/filePosition.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

// By how many seconds of measuring an expectation is outweighed.
constexpr double TRUST_IN_FILES = 0.5; // cards differ
constexpr double TRUST_IN_MODULES = 3;
constexpr double MOST_GROWTH = 1.08;   // of the time left, over the least that was shown
constexpr double GROWTH_SECONDS = 120; // in which that may happen once more
constexpr double MINUTE = 60;
constexpr double MEGABYTE = 1e6;

double secondsBetween(runProgress::clock::time_point from, runProgress::clock::time_point to) {
    return std::chrono::duration<double>(to - from).count();
}

std::string minutes(double seconds) {
    const int whole = static_cast<int>(std::lround(seconds));
    char text[32];
    std::snprintf(text, sizeof text, "%d:%02d", whole / 60, whole % 60);
    return text;
}

/** To 10 s, below a minute to 5. */
std::string roughly(double seconds) {
    const bool isShort = seconds < MINUTE - 5;
    const int whole = std::max(5, 5 * static_cast<int>(std::lround(seconds / 5)));
    return isShort ? std::to_string(whole) + " s" : minutes(10 * std::round(seconds / 10)) + " min";
}

} // namespace

void runProgress::start(std::vector<STEP> planned) {
    const std::lock_guard lock(guard);
    steps = std::move(planned);
    current = {};
    running = true;
    writing = false;
    files = {TRUST_IN_FILES, TRUST_IN_FILES};
    modules = {TRUST_IN_MODULES, TRUST_IN_MODULES};
    leastLeft = -1;
}

/** Takes the step at hand, should it have been written, for a measurement. */
void runProgress::settle() {
    if (writing) {
        PACE& pace = paceOf(current.kind);
        pace.expected += current.seconds * fraction();
        pace.taken += secondsBetween(began, latest);
    }
    writing = false;
    file.clear();
    done = total = 0;
}

void runProgress::check(const std::string& name, clock::time_point now) {
    const std::lock_guard lock(guard);
    latest = now;
    done = total;
    settle();
    const auto next =
        std::find_if(steps.begin(), steps.end(), [&](const STEP& step) { return step.name == name; });
    current = next == steps.end() ? STEP{name, KIND::BYTES, 0} : *next;
    steps.erase(steps.begin(), next == steps.end() ? steps.begin() : next + 1);
}

void runProgress::write(KIND kind, std::uint64_t units, double seconds, clock::time_point now) {
    const std::lock_guard lock(guard);
    current.kind = kind;
    current.seconds = seconds;
    writing = true;
    done = 0;
    total = units;
    began = latest = now;
}

void runProgress::reached(std::uint64_t units, std::uint64_t ofUnits, clock::time_point now) {
    const std::lock_guard lock(guard);
    file.clear();
    done = units;
    total = ofUnits;
    latest = now;
}

void runProgress::reading(const std::string& path) {
    const std::lock_guard lock(guard);
    file = path;
}

void runProgress::end() {
    const std::lock_guard lock(guard);
    running = false;
    writing = false;
    steps.clear();
}

std::string runProgress::stepName() const {
    const std::lock_guard lock(guard);
    return current.name;
}

double runProgress::fraction() const {
    return total == 0 ? 0 : std::min(1.0, static_cast<double>(done) / static_cast<double>(total));
}

double runProgress::secondsLeftOfStep(clock::time_point now) {
    if (!writing) {
        return current.seconds * paceOf(current.kind).ratio();
    }
    const PACE& known = paceOf(current.kind);
    const PACE pace{known.expected + current.seconds * fraction(),
                    known.taken + secondsBetween(began, latest)};
    const double left = current.seconds * (1 - fraction()) * pace.ratio();
    const double unit = total == 0 ? left : current.seconds / static_cast<double>(total) * pace.ratio();
    return std::max(0.0, left - std::min(unit, secondsBetween(latest, now)));
}

/** Never much more than was shown before: an operator would not believe the next number. */
double runProgress::secondsLeft(double ofStep, clock::time_point now) {
    double left = ofStep;
    for (const STEP& step : steps) {
        left += step.seconds * paceOf(step.kind).ratio();
    }
    if (leastLeft >= 0) {
        leastLeft *= std::pow(MOST_GROWTH, secondsBetween(asked, now) / GROWTH_SECONDS);
        left = std::min(left, MOST_GROWTH * leastLeft);
    }
    leastLeft = leastLeft < 0 ? left : std::min(left, leastLeft);
    asked = now;
    return left;
}

std::string runProgress::unitsText() const {
    char text[64];
    if (current.kind == KIND::BYTES) {
        std::snprintf(text, sizeof text, "%.1f of %.1f MB", static_cast<double>(done) / MEGABYTE,
                      static_cast<double>(total) / MEGABYTE);
    } else {
        std::snprintf(text, sizeof text, "%s %llu of %llu", current.kind == KIND::PAGES ? "page" : "record",
                      static_cast<unsigned long long>(done), static_cast<unsigned long long>(total));
    }
    return text;
}

runProgress::STATE runProgress::state(clock::time_point now) {
    const std::lock_guard lock(guard);
    if (!running || current.name.empty()) {
        return {};
    }
    const std::uint64_t before = done;
    if (!file.empty()) {
        done = std::min(total, before + filePosition::of(file));
        latest = now;
    }
    const double ofStep = secondsLeftOfStep(now);
    const std::string all = "about " + roughly(secondsLeft(ofStep, now)) + " left in all";
    const std::string text = current.name + " · " +
                             (writing ? unitsText() + " · " + minutes(ofStep) + " · " : "is asked · ") + all;
    done = before;
    return {text, writing};
}
