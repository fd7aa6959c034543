#include "system/lineQuality.h"

#include <gtest/gtest.h>

namespace {

using busMessages::requestStatus;
using busMessages::systemCommand;
using std::chrono::milliseconds;

TEST(lineQuality, CountsWhatBecomesOfRequests) {
    lineQuality quality;
    auto now = lineQuality::clock::time_point(milliseconds(1000));
    const auto ask = [&](std::uint8_t module, int answeredAfter) {
        quality.sent(systemCommand(module, 1), now);
        now += milliseconds(50);
        if (answeredAfter >= 0) {
            quality.answered(now - milliseconds(50 - answeredAfter));
        }
    };
    ask(1, 3); // of the module before
    quality.damagedFrame();
    quality.begin();
    EXPECT_FALSE(quality.wasHeard());
    for (std::uint8_t n = 1; n < 100; ++n) {
        ask(n, n <= 60 ? 3 : 30);
    }
    quality.answered(now); // once more, for nobody
    for (int n = 0; n < 2; ++n) {
        quality.sent(busMessages::markRow(), now); // one without an answer
    }
    quality.answered(now);
    ask(99, -1);
    quality.sent(requestStatus(9), now);
    quality.answered(now + milliseconds(200));
    quality.damagedFrame();
    EXPECT_EQ(quality.text(),
              "100 exchanges, 1 repeated, 1 silent, 1 damaged, reply 3.0 ms, 200.0 ms at most");
    EXPECT_FALSE(quality.isBad()); // 1 % is still well
    ask(99, 1);
    EXPECT_TRUE(quality.isBad());
    quality.begin();
    ask(1, 3);
    ask(1, 3);
    EXPECT_FALSE(quality.isBad()); // too few to judge by
}

} // namespace
