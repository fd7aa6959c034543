#include "responseSignal.h"

#include "termination.h"

#include <ctime>

namespace {

constexpr long POLL_NS = 1'000'000;
constexpr long SECOND_NS = 1'000'000'000;

} // namespace

void responseSignal::poll() {
    timespec deadline{};
    clock_gettime(CLOCK_MONOTONIC, &deadline);
    deadline.tv_nsec += POLL_NS;
    if (deadline.tv_nsec >= SECOND_NS) {
        deadline.tv_nsec -= SECOND_NS;
        ++deadline.tv_sec;
    }
    termination::allowDuring([&] { return sem_clockwait(&filed, CLOCK_MONOTONIC, &deadline); });
}
