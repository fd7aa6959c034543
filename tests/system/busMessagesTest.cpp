#include "system/busMessages.h"

#include "support/bus.h"
#include "support/hexImage.h"

#include <gtest/gtest.h>
#include <sstream>

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

/** "4 510 -119" of a reply, "250 1.2.3 6s 13" of an identification; nothing for none. */
std::string shown(const std::optional<ANSWER>& answer) {
    std::ostringstream text;
    if (answer && answer->identification) {
        const IDENTIFICATION& said = *answer->identification;
        text << int{said.hwRev} << ' ' << said.versionText() << ' ' << int{said.type}
             << (said.serial ? "s " : " ") << int{said.module};
    } else if (answer) {
        text << int{answer->reply.status} << ' ' << answer->reply.row << ' ' << int{answer->reply.module};
    }
    return text.str();
}

TEST(busMessagesTest, AnAnswerCountsByItsLength) {
    const Bytes replied = hex("04 FE 01 89 00 00 00 00 00 00 00 00");
    const Bytes identified = hex("FA 03 02 01 86 0D 00 00 00 00 00 00");
    const std::string whole = "4 510 -119";
    const std::string named = "250 1.2.3 6s 13";
    const struct {
        std::string reply;
        std::string identification;
    } rows[] = {
        {"4 0 -1", "250 0.0.0 0 0"},
        {"4 0 -1", "250 0.0.3 0 0"},
        {"4 510 -1", "250 0.2.3 0 0"},
        {whole, "250 1.2.3 0 0"},
        {whole, "250 1.2.3 6s 0"},
        {"", named},
        {whole, named},
        {whole, named},
        {whole, named},
        {whole, named},
        {whole, ""},
        {whole, named},
    };
    for (std::size_t length = 1; length <= std::size(rows); ++length) {
        const auto cut = [length](std::uint8_t id, Bytes bytes) {
            bytes.resize(length);
            return message(id, bytes);
        };
        for (const std::uint8_t id : Bytes{3, 5}) {
            EXPECT_EQ(shown(decodeAnswer(cut(id, replied))), rows[length - 1].reply) << length;
            EXPECT_EQ(isObsolete(cut(id, replied)), length == 6);
        }
        EXPECT_EQ(shown(decodeAnswer(cut(6, identified))), rows[length - 1].identification) << length;
        EXPECT_EQ(isObsolete(cut(6, identified)), length == 11);
    }
    EXPECT_EQ(shown(decodeAnswer(message(3, {0, 253}))), "0 253 -1"); // of a short reply, the last row
    EXPECT_EQ(shown(decodeAnswer(message(6, {251}))), "0 0.0.0 0 0");
    EXPECT_EQ(decodeAnswer(message(21, {0, 0, 0, 0})), std::nullopt);
}

} // namespace
