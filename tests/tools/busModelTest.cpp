#include "busModel.h"

#include "files.h"
#include "support/hexImage.h"

#include <gtest/gtest.h>

namespace package {
namespace {

constexpr double BETWEEN = 0.00008; // an exchange and the next, in s

// A full page of 2048 bytes: 251 rows of 7 bytes, then 49 of 6 (the last of 3), between start and write.
TEST(busModelTest, CountsTheDialogue) {
    const TemporaryDirectory directory;
    const auto path = directory.path() / "image.hex";
    const struct {
        const char* processor;
        std::vector<std::pair<std::uint32_t, std::size_t>> runs;
        std::uint32_t pages;
        std::uint32_t erases;
        std::uint32_t messages;
        double seconds; // at 115200
    } rows[] = {
        // 302 exchanges: 9655 wire bytes, two pauses
        {"stm32f3", {{0x08000000, 2048}}, 1, 0, 2 * 302, 9655 * 10 / 115200.0 + 302 * BETWEEN + 0.02},
        // besides, everything is erased on a quiet line
        {"stm32f4", {{0x08000000, 2048}}, 1, 1, 2 * 303, 9687 * 10 / 115200.0 + 303 * BETWEEN + 0.02 + 0.11},
        // two full pages of 220 rows; the empty one that the reader makes behind them is not erased
        {"pic24", {{0, 0x800}, {0x2000, 0x800}}, 2, 0, 2 * 444, 14184 * 10 / 115200.0 + 444 * BETWEEN + 0.04},
        {"pic32-pages", {{0x1D000000, 16}}, 1, 0, 2 * 5, 149 * 10 / 115200.0 + 5 * BETWEEN + 0.02},
        // three records of 7, 21 and 5 bytes in 1, 3 and 1 rows; the short ones wait twice
        {"pic32-records", {{0x1D000000, 16}}, 3, 1, 2 * 9, 268 * 10 / 115200.0 + 9 * BETWEEN + 0.01 + 0.5},
    };
    for (const auto& row : rows) {
        writeFile(path, hexImage(row.runs));
        const Processor& processor = *findProcessor(row.processor);
        const BusCost cost = costOfImage(path, processor, !processor.onCan);
        EXPECT_EQ(cost.pages, row.pages) << row.processor;
        EXPECT_EQ(cost.erases, row.erases) << row.processor;
        EXPECT_EQ(cost.messages, row.messages) << row.processor;
        EXPECT_NEAR(cost.seconds(115200), row.seconds, 0.00005) << row.processor;
    }
}

} // namespace
} // namespace package
