#include "scheduler.h"

namespace sim {

void Scheduler::at(TimePoint due, Task task) {
    tasks_.emplace(due, std::move(task));
}

std::optional<TimePoint> Scheduler::next() const {
    if (tasks_.empty())
        return {};
    return tasks_.begin()->first;
}

void Scheduler::run(TimePoint now) {
    while (!tasks_.empty() && tasks_.begin()->first <= now) {
        auto node = tasks_.extract(tasks_.begin());
        node.mapped()(node.key());
    }
}

} // namespace sim
