#include "lib/crc16.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string_view>

namespace {

// Bit by bit, without any table.
std::uint32_t shiftIn(std::uint32_t accum, std::uint8_t byte) {
    for (int bit = 7; bit >= 0; --bit) {
        const bool out = ((accum >> 15) & 1) != ((byte >> bit) & 1U);
        accum = ((accum << 1) ^ (out ? 0x1021U : 0U)) & 0xFFFF;
    }
    return accum;
}

TEST(crc16, PublishedValuesAndCheck) {
    const std::string_view digits = "123456789";
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(digits.data());
    const crc16 crc;
    EXPECT_EQ(crc.crc16_calculate(bytes, 9), 0x29B1U);
    EXPECT_EQ(crc.crc16_calculate(nullptr, 0), 0xFFFFU);
    EXPECT_EQ(crc.crc16_calculate(std::vector<std::uint8_t>(), true), 0xFFFFU);
    EXPECT_TRUE(crc.crc16_check(bytes, 9, 0x29B1));
    EXPECT_FALSE(crc.crc16_check(bytes, 8, 0x29B1));
    EXPECT_FALSE(crc.crc16_check(bytes, 9, 0x000129B1));
}

TEST(crc16, EqualsItsTableAndTheBitwiseRuleForEveryLengthAndAlignment) {
    std::mt19937 random(1);
    std::vector<std::uint8_t> bytes(308);
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<std::uint8_t>(random()); });
    const crc16 crc;
    for (std::uint32_t start = 0; start < 8; ++start) {
        std::uint32_t expected = 0xFFFF;
        for (std::uint32_t length = 0; length <= 300; ++length) {
            ASSERT_EQ(crc.crc16_calculate(&bytes[start], length), expected) << start << " " << length;
            std::vector<std::uint8_t> part(&bytes[start], &bytes[start] + length);
            ASSERT_EQ(crc.crc16_calculate(part, false), expected);
            std::reverse(part.begin(), part.end());
            ASSERT_EQ(crc.crc16_calculate(part, true), expected);
            const std::uint8_t next = bytes[start + length];
            const std::uint32_t byTable = ((expected << 8) ^ crc_table[(expected >> 8) ^ next]) & 0xFFFF;
            expected = shiftIn(expected, next);
            ASSERT_EQ(byTable, expected);
        }
    }
}

} // namespace
