// Work to be done at given times. Used by one thread only.
#pragma once

#include "text.h"

#include <functional>
#include <map>
#include <optional>

namespace sim {

class Scheduler {
public:
    // Gets the time it was due at, which may lie a little in the past: what follows from it is reckoned from
    // there, so that a late wake-up does not add up.
    using Task = std::function<void(TimePoint due)>;

    // Tasks of one time run in the order in which they came.
    void at(TimePoint due, Task task);
    std::optional<TimePoint> next() const;
    void run(TimePoint now);

private:
    std::multimap<TimePoint, Task> tasks_;
};

} // namespace sim
