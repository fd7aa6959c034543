#include "system/replyBox.h"

#include "system/threadTermination.h"

#include <QThread>
#include <algorithm>
#include <chrono>
#include <gtest/gtest.h>

namespace {

using busMessages::ANSWER;

constexpr unsigned LONG = 100'000; // polls
const shared<bool> NEVER{false};

ANSWER forRow(std::uint32_t row) {
    ANSWER answer;
    answer.reply.row = row;
    return answer;
}

/** Waits for answers, and takes them, until it is terminated. */
class Waiter : public QThread {
public:
    explicit Waiter(replyBox& waitedAt) : box_(waitedAt) {}
    void run() override {
        threadTermination::forbid();
        while (true) {
            box_.receive(LONG, NEVER);
        }
    }

private:
    replyBox& box_;
};

TEST(replyBoxTest, GivesTheLatestAnswersOutInTheirOrder) {
    const struct {
        std::uint32_t filed; ///< answers for row 1, 2...
        std::uint32_t first; ///< row of the first that is given out
    } rows[] = {{0, 1}, {3, 1}, {64, 1}, {65, 2}, {200, 137}};
    replyBox box;
    for (const auto& row : rows) {
        box.file(forRow(999)); // before the reset: forgotten
        box.reset();
        EXPECT_FALSE(box.record().hasResponse);
        for (std::uint32_t n = 1; n <= row.filed; ++n) {
            box.file(forRow(n));
        }
        for (std::uint32_t n = row.first; n <= row.filed; ++n) {
            EXPECT_EQ(box.take(), forRow(n)) << "of " << row.filed;
        }
        EXPECT_EQ(box.take(), std::nullopt) << row.filed;
        EXPECT_EQ(box.copy().hasResponse, row.filed > 0); // the record stays
        EXPECT_EQ(box.copy().page, row.filed > 0 ? row.filed : 0xFFFF);
    }
}

TEST(replyBoxTest, AWaitLastsItsPollsAndEndsOnCancel) {
    const shared<bool> cancelled{true};
    replyBox box;
    for (std::uint32_t n = 0; n < 50; ++n) { // the wakes of answers that were taken shorten nothing
        box.file(forRow(n));
        box.take();
    }
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(box.receive(50, NEVER), std::nullopt);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(49));
    box.reset();
    EXPECT_FALSE(box.await(LONG, cancelled));
    box.file(forRow(1));
    EXPECT_EQ(box.receive(LONG, cancelled), std::nullopt);
    EXPECT_TRUE(box.await(0, cancelled));
}

TEST(replyBoxTest, AThreadThatIsTerminatedLeavesNothingLocked) {
    replyBox box;
    for (std::uint32_t round = 0; round < 100; ++round) {
        Waiter waiter(box);
        waiter.start();
        for (std::uint32_t n = 0; n < round * 10; ++n) {
            box.file(forRow(n));
        }
        waiter.terminate();
        waiter.wait();
        box.reset();
        box.file(forRow(round));
        EXPECT_EQ(box.receive(LONG, NEVER), forRow(round));
    }
}

} // namespace
