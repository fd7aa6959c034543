#include "system/busMessages.h"

#include "support/bus.h"
#include "support/hexImage.h"

#include <gtest/gtest.h>

namespace {

using namespace busMessages;

PROCBUS_MSG message(std::uint8_t id, const Bytes& payload) {
    PROCBUS_MSG msg;
    msg.id = id;
    msg.length = static_cast<std::uint8_t>(payload.size());
    std::fill(std::begin(msg.data), std::end(msg.data), std::uint8_t{0xEE}); // as an earlier frame left it
    std::copy(payload.begin(), payload.end(), msg.data);
    return msg;
}

TEST(busMessagesTest, EveryRequestIsThisFrame) {
    const Bytes page = counting(2048);
    const struct {
        const char* name;
        PROCBUS_MSG msg;
        const char* frame;
    } rows[] = {
        {"enter", systemCommand(9, ','), "4B 2B 4D 42 10 02 09 2C 79 42 0D 0A"},
        {"leave", systemCommand(9, '!'), "4B 2B 4D 42 10 02 09 21 D4 93 0D 0A"},
        {"reset, second generation", resetG1(), "4B 2B 4D 42 01 01 02 B2 C1 0D 0A"},
        {"status", requestStatus(9), "4B 2B 4D 42 01 02 09 03 F4 97 0D 0A"},
        {"start, 16 bits", startPage(9, 0x1400, 0x600, false),
         "4B 2B 4D 42 01 06 09 01 14 00 06 00 53 97 0D 0A"},
        {"start, 32 bits", startPage(9, 0x0803D800, 0x123, true),
         "4B 2B 4D 42 01 08 09 01 D8 00 01 23 03 08 D9 04 0D 0A"},
        {"erase, 16 bits", eraseBlocks(9, 0x1400, 5, false),
         "4B 2B 4D 42 01 06 09 05 14 00 05 00 06 4B 0D 0A"},
        {"erase, 32 bits", eraseBlocks(9, 0x08042800, 0, true),
         "4B 2B 4D 42 01 08 09 05 28 00 00 00 04 08 16 64 0D 0A"},
        {"erase all", eraseAll(9), "4B 2B 4D 42 01 08 09 06 00 00 00 00 00 00 12 C9 0D 0A"},
        {"first row", dataRow(0, page), "4B 2B 4D 42 02 08 00 00 01 02 03 04 05 06 32 E8 0D 0A"},
        {"last row of 7 bytes", dataRow(250, page), "4B 2B 4D 42 02 08 FA D6 D7 D8 D9 DA DB DC B3 6E 0D 0A"},
        {"first row of 6 bytes", dataRow(251, page), "4B 2B 4D 42 04 08 FB 00 DD DE DF E0 E1 E2 92 9A 0D 0A"},
        {"last row", dataRow(299, page), "4B 2B 4D 42 04 05 2B 01 FD FE FF CE 0C 0D 0A"},
        {"write", writePage(9), "4B 2B 4D 42 01 02 09 04 13 E7 0D 0A"},
    };
    for (const auto& row : rows) {
        Bytes frame(busProtocol::MAX_PAYLOAD + busProtocol::FRAME_OVERHEAD);
        frame.resize(encodeFrame(row.msg, frame.data()));
        EXPECT_EQ(frame, hex(row.frame)) << row.name;
    }
    for (const auto& [bytes, count] :
         {std::pair{0, 0U}, {7, 1U}, {8, 2U}, {1757, 251U}, {1758, 252U}, {2048, 300U}}) {
        EXPECT_EQ(rowsOf(static_cast<std::size_t>(bytes)), count) << bytes;
    }
}

TEST(busMessagesTest, AnAnswerCountsByItsLength) {
    const Bytes said = {4, 254, 1, 0x89, 0x86, 13, 0, 0, 0, 0, 0, 0};
    const REPLY whole{4, 0x1FE, -119};
    const REPLY replies[] = {{4, 0, NO_MODULE}, {4, 0, NO_MODULE}, {4, 0x1FE, NO_MODULE}}; // by length
    const Bytes told = {250, 3, 2, 1, 0x86, 13, 0, 0, 0, 0, 0, 0};
    const IDENTIFICATION full{250, {1, 2, 3}, 6, true, 13};
    const IDENTIFICATION identities[] = {{250, {0, 0, 0}, 0, false, 0},
                                         {250, {0, 0, 3}, 0, false, 0},
                                         {250, {0, 2, 3}, 0, false, 0},
                                         {250, {1, 2, 3}, 0, false, 0},
                                         {250, {1, 2, 3}, 6, true, 0}};
    for (std::size_t length = 1; length <= 12; ++length) {
        const auto cut = [length](const Bytes& whole_) {
            return Bytes(whole_.begin(), whole_.begin() + static_cast<std::ptrdiff_t>(length));
        };
        for (const std::uint8_t id : Bytes{3, 5}) {
            const PROCBUS_MSG reply = message(id, cut(said));
            const ANSWER expected{{}, length < 4 ? replies[length - 1] : whole};
            EXPECT_EQ(isObsolete(reply), length == 6);
            EXPECT_EQ(decodeAnswer(reply), length == 6 ? std::nullopt : std::optional(expected)) << length;
        }
        const PROCBUS_MSG identity = message(6, cut(told));
        const ANSWER expected{length < 6 ? identities[length - 1] : full, {}};
        EXPECT_EQ(isObsolete(identity), length == 11);
        EXPECT_EQ(decodeAnswer(identity), length == 11 ? std::nullopt : std::optional(expected)) << length;
    }
    EXPECT_EQ(full.versionText(), "1.2.3");
    EXPECT_EQ(decodeAnswer(message(3, {0, 253}))->reply.row, 253U); // of a short reply, the last row
    EXPECT_EQ(decodeAnswer(message(6, {251}))->identification->hwRev, 0);
    EXPECT_EQ(decodeAnswer(message(21, {0, 0, 0, 0})), std::nullopt);
}

} // namespace
