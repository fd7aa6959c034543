#include "system/actions/canBootload.h"

#include "bootloader.h"

#include <regex>
#include <sstream>

namespace {

using enum bootloadDialogue::BLSTATUS;

constexpr std::uint8_t OLD_BOOTLOADER = 0; // kinds
constexpr std::uint8_t PIC24 = 1;
constexpr std::uint8_t STM32F3 = 3;
constexpr std::uint8_t STM32F0 = 4;
constexpr std::uint8_t STM32F4 = 6;

class canBootloadTest : public ActionTest<canBootload> {
protected:
    canBootloadTest() : ActionTest(CAN_MODULE, &updateCore::s1) {}
};

TEST_F(canBootloadTest, TheModulesAnswerDecides) {
    const auto reports = [](std::uint8_t kind, const std::string& version, std::uint8_t hwRev) {
        return identification(CAN_MODULE, kind, version, hwRev);
    };
    const Frame another = identification(8, STM32F3, "1.0.0");
    const Frame old = reply(0, 0, CAN_MODULE);
    const struct {
        const char* name;
        Frame answer;
        bool accurate;
        const char* version; ///< recorded before
        std::uint8_t hwRev;
        bool force;
        action::STATUS status;
        std::uint8_t hwRevAfter;
    } rows[] = {
        {"older", reports(STM32F3, "1.0.0", 1), false, "2.0.0", 0, false, action::GOUPDATE, 1},
        {"equal", reports(STM32F3, "2.1.0", 1), false, "", 0, false, action::NOUPDATE, 0},
        {"equal, forced", reports(STM32F3, "2.1.0", 1), false, "", 0, true, action::GOUPDATE, 1},
        {"no image", reports(STM32F3, "1.0.0", 2), false, "", 0, true, action::NOUPDATE, 0},
        {"another module", another, false, "", 0, true, action::NOMODULE, 0},
        {"on the serial bootloader", reports(0x81, "1.0.0", 0), false, "", 0, true, action::NOMODULE, 0},
        {"old, not known", old, false, "2.0.0", 1, false, action::GOUPDATE, 0},
        {"old, equal", old, true, "2.1.0", 1, false, action::NOUPDATE, 1},
        {"old, older", old, true, "1.0.0", 1, false, action::GOUPDATE, 1},
        {"old, no image", old, true, "1.0.0", 3, true, action::NOUPDATE, 3},
    };
    item.update.items = {{"a", "2.0.0"}, {"b", "2.1.0"}};
    item.update.resetAfterUpdate = true;
    for (const auto& row : rows) {
        identity = row.answer;
        item.isAccurate = row.accurate;
        item.swVersion = std::string(row.version);
        item.hwRev = row.hwRev;
        const int resets = sentOf(LEAVE);
        EXPECT_EQ(act.needsUpdate(row.force), row.status) << row.name;
        EXPECT_EQ(item.hwRev, row.hwRevAfter) << row.name;
        const bool isReset = row.status == action::NOUPDATE;
        EXPECT_EQ(sentOf(LEAVE) - resets, isReset ? 1 : 0) << row.name;
        EXPECT_EQ(holds(newlyLogged(), "[Notice]: CAN: Resetting Module"), isReset) << row.name;
    }
}

TEST_F(canBootloadTest, AModuleLeftUnfinishedIsProgrammedWhateverItReports) {
    item.unfinished = true;
    for (const std::uint8_t kind : {STM32F3, OLD_BOOTLOADER}) {
        item.isAccurate = true;
        item.swVersion = std::string("2.0.0");
        EXPECT_EQ(enter(kind, "2.0.0"), action::GOUPDATE);
    }
    item.update.items.clear();
    EXPECT_EQ(act.needsUpdate(false), action::NOUPDATE);
    EXPECT_TRUE(holds(newlyLogged(), "[Warning]: Unfinished module, and nothing in the package for it"));
}

/** Starts of page and erases in hex, and how much the rows between them carry. */
std::string transcript(const std::vector<Frame>& sent) {
    std::ostringstream text;
    std::size_t rows = 0;
    std::size_t bytes = 0;
    for (const Frame& frame : sent) {
        if (frame.id != 1) { // a row
            EXPECT_EQ(frame.id, rows < 251 ? 2 : 4);
            EXPECT_EQ(frame.payload[0], rows++ & 0xFF);
            bytes += frame.payload.size() - (frame.id == 2 ? 1 : 2);
        } else if (frame.payload[1] == 4) { // write
            text << rows << " rows, " << bytes << " bytes; ";
            rows = bytes = 0;
        } else {
            text << frame << "; ";
        }
    }
    return std::regex_replace(text.str(), std::regex("message 1: "), "");
}

TEST_F(canBootloadTest, EachProcessorsPagesAreSentAndErased) {
    const struct {
        const char* title;
        std::uint8_t kind;
        std::string image;
        const char* sent;
    } rows[] = {
        {"CAN: STM32 Update ", STM32F3, hexImage({{0x08000000, 2058}, {0x08001800, 5}}),
         "09 01 00 00 08 00 00 08; 300 rows, 2048 bytes; 09 01 08 00 00 0A 00 08; 2 rows, 10 bytes; "
         "09 01 18 00 00 05 00 08; 1 rows, 5 bytes; "},
        {"CAN: STM32 Update ", STM32F0, hexImage({{0x08000000, 1764}}),
         "09 01 00 00 06 E4 00 08; 253 rows, 1764 bytes; "},
        {"CAN: STM32 Update ", STM32F4, hexImage({{0x08000000, 1757}, {0x08001800, 5}}),
         "09 06 00 00 00 00 00 00; 09 01 00 00 06 DD 00 08; 251 rows, 1757 bytes; "
         "09 05 08 00 02 00 00 08; 09 01 18 00 00 05 00 08; 1 rows, 5 bytes; "},
        {"CAN: PIC New ", PIC24, hexImage({{0, 2048}, {0x2800, 16}}),
         "09 01 00 00 06 00; 220 rows, 1536 bytes; 09 05 10 00 01 00; "
         "09 01 14 00 06 00; 220 rows, 1536 bytes; "},
        {"CAN: PIC Old ", OLD_BOOTLOADER, hexImage({{0, 0x608}, {0x1200, 3}}),
         "09 01 00 00 06 00; 220 rows, 1536 bytes; 09 01 06 00 00 08; 2 rows, 8 bytes; "
         "09 01 12 00 00 03; 1 rows, 3 bytes; "},
    };
    for (const auto& row : rows) {
        put(IMAGE, row.image);
        ASSERT_EQ(enter(row.kind), action::GOUPDATE);
        EXPECT_EQ(transcript(run(true)), row.sent);
        EXPECT_TRUE(holds(newlyLogged(), row.title + IMAGE));
    }
}

TEST_F(canBootloadTest, ItsRequestsAreTheModules) {
    hexpage::MEMORY_PAGE page;
    page.startAddress = 0x1400;
    page.data = {1, 2, 3, 4, 5, 6, 7, 8};
    page.dataLength = 8;
    ASSERT_EQ(enter(PIC24), action::GOUPDATE);
    const std::size_t before = bus.sent().size();
    EXPECT_TRUE(act.sendReqStat());
    EXPECT_EQ(act.send_SOH(page), OK);
    EXPECT_EQ(act.sendDataRow(1, page), OK);
    EXPECT_TRUE(act.sendPageWrite());
    EXPECT_EQ(act.eraseBlock(0x1400, 2), OK);
    EXPECT_EQ(act.eraseAll(), OK);
    std::vector<Frame> sent = bus.sent();
    sent.erase(sent.begin(), sent.begin() + static_cast<std::ptrdiff_t>(before));
    EXPECT_EQ(sent, std::vector<Frame>({{1, hex("09 03")},
                                        {1, hex("09 01 14 00 00 08")},
                                        {2, hex("01 08")},
                                        {1, hex("09 04")},
                                        {1, hex("09 05 14 00 02 00")},
                                        {1, hex("09 06 00 00 00 00 00 00")}}));
}

TEST_F(canBootloadTest, TheLogTellsAWholeRun) {
    put(IMAGE, hexImage({{0x08000000, 3}, {0x08001000, 3}}));
    item.update.resetAfterUpdate = true;
    ASSERT_EQ(enter(STM32F4), action::GOUPDATE);
    run(true);
    EXPECT_EQ(
        newlyLogged(),
        Texts({"[Notice]: CAN: Starting bootload", "[Notice]: CAN: STM32 Update " + IMAGE,
               "[Notice]: CAN: Working on Address# 0x8000000 (0/3) LEN: 3",
               "[Notice]: CAN: Page written successfully", "[Notice]: CAN: Erasing blocks at 0x8000800 (1)",
               "[Notice]: CAN: Blocks Erased", "[Notice]: CAN: Working on Address# 0x8001000 (2/3) LEN: 3",
               "[Notice]: CAN: Page written successfully", "[Notice]: CAN: Resetting Module",
               "[Notice]: CAN: Bootload Finished"}));
}

TEST_F(canBootloadTest, AModuleThatFailsIsLeftUnfinished) {
    put(IMAGE, hexImage({{0x08000000, 16}}));
    const struct {
        std::uint8_t kind;
        Request refused;
        const char* text;
    } rows[] = {{STM32F3, START, "[Error]: CAN: Page retry count exceeded.  Exiting."},
                {STM32F4, ERASE_ALL, "[Error]: CAN: Could not erase range (all)"},
                {5, LEAVE, "[Error]: CAN: Unsupported processor"}};
    for (const auto& row : rows) {
        item.unfinished = false;
        ASSERT_EQ(enter(row.kind), action::GOUPDATE);
        answer(refuse(row.refused, WRITEERR));
        run(false);
        EXPECT_TRUE(holds(newlyLogged(), row.text)) << row.text;
        EXPECT_EQ(item.unfinished, row.refused != LEAVE);
    }
}

TEST_F(canBootloadTest, AnImageThatCantArriveWholeIsRefusedWhereStrict) {
    const std::string good = hexImage({{0x08000000, 4}});
    const struct {
        const char* name;
        std::uint8_t kind;
        std::string image;
        const char* found; ///< the last line that tells it
        const char* sent;  ///< where not strict
    } rows[] = {
        {"gap", STM32F3, hexImage({{0x08000000, 4}, {0x08000010, 4}}),
         "gap inside a page, what follows moves up: page 0x8000000, 0x8000004 to 0x800000f, 12 bytes, line 4",
         "09 01 00 00 00 08 00 08; 2 rows, 8 bytes; "},
        {"over the end", STM32F3, hexImage({{0x0803D800, 2064}}),
         "data across the edge of the flash is dropped: page 0x803e000, 0x803e000 to 0x803e00f, 16 bytes, "
         "line 130",
         "09 01 D8 00 08 00 03 08; 300 rows, 2048 bytes; "},
        {"not reached", PIC24, hexImage({{0x2000, 16}}),
         "data is not reached, since the region before it has none: page 0x1000, 0x1000 to 0x1007, 16 bytes, "
         "line 2",
         ""},
        {"16 address bits", PIC24, hexImage({{0, 16}, {0x20000, 16}}),
         "data behind 16 address bits, which are cut: page 0x10000, 0x10000 to 0x10007, 16 bytes, line 4",
         "09 01 00 00 06 00; 220 rows, 1536 bytes; 09 05 10 00 3C 00; "
         "09 01 00 00 06 00; 220 rows, 1536 bytes; "},
        {"16 address bits, old", OLD_BOOTLOADER, hexImage({{0xFC00, 0x400}, {0x10000, 1}}),
         "data behind 16 address bits, which are cut: page 0xfc00, 0x10000 to 0x10000, 1 bytes, line 67",
         "09 01 FC 00 04 01; 147 rows, 1025 bytes; "},
        {"wrong sum", STM32F3, good + ":0400040001020304F2\n",
         "damaged record: page 0x8000000, 0x8000004 to 0x8000007, 4 bytes, line 4",
         "09 01 00 00 00 08 00 08; 2 rows, 8 bytes; "},
        {"no data", STM32F4, hexImage({{0x09000000, 4}}),
         "no data for the flash: page 0x8000000, 0x8000000 to 0x803dfff, 0 bytes, line 0",
         "09 06 00 00 00 00 00 00; "},
    };
    for (const auto& row : rows) {
        put(IMAGE, row.image);
        for (const bool strict : {true, false}) {
            core->strictImages = strict;
            ASSERT_EQ(enter(row.kind), action::GOUPDATE);
            EXPECT_EQ(transcript(run(!strict)), strict ? "" : row.sent) << row.name;
            const Texts log = newlyLogged();
            const std::string level = strict ? "[Error]" : "[Warning]";
            EXPECT_TRUE(holds(log, level + ": CAN: Image: " + row.found)) << row.name;
            EXPECT_EQ(holds(log, "[Error]: CAN: Bad HEX file: " + IMAGE), strict) << row.name;
        }
    }
}

TEST_F(canBootloadTest, WhatLiesOutsideOfTheFlashIsLoggedInOneLine) {
    core->strictImages = true;
    put(IMAGE, hexImage({{0, 2}, {0x08000000, 4}, {0x09000000, 4}}));
    ASSERT_EQ(enter(STM32F3), action::GOUPDATE);
    EXPECT_EQ(transcript(run(true)), "09 01 00 00 00 04 00 08; 1 rows, 4 bytes; ");
    const Texts log = newlyLogged();
    EXPECT_TRUE(holds(log, "[Notice]: CAN: Image: data outside of the flash is dropped: page 0x0, 0x0 to "
                           "0x9000003, 6 bytes, line 2"));
    EXPECT_EQ(
        std::count_if(log.begin(), log.end(), [](const std::string& line) { return holds({line}, "Image"); }),
        1);
    put(IMAGE, hexImage({{0xFC00, 0x400}}));
    ASSERT_EQ(enter(OLD_BOOTLOADER), action::GOUPDATE);
    EXPECT_EQ(transcript(run(true)), "09 01 FC 00 04 00; 147 rows, 1024 bytes; ") << "up to the last address";
    EXPECT_FALSE(holds(newlyLogged(), "Image"));
}

TEST_F(canBootloadTest, AnImageWithManyErrorsDoesNotFillTheLog) {
    core->strictImages = true;
    std::string image;
    for (unsigned i = 0; i < 100; ++i) {
        image += ":0400000001020304FF\n";
    }
    put(IMAGE, image);
    ASSERT_EQ(enter(STM32F3), action::GOUPDATE);
    run(false);
    const Texts log = newlyLogged();
    EXPECT_LT(log.size(), 20U);
    EXPECT_TRUE(holds(log, "[Error]: CAN: Image: more of these: 91")) << "and no data in the flash";
}

TEST_F(canBootloadTest, AnUnreadableImageIsRefusedBeforeAnythingIsErased) {
    put(IMAGE, hexImage({{0x08000000, 4}}) + ":FF000400010203\n");
    const std::string directory = IMAGE.substr(0, IMAGE.rfind('/') + 1);
    ASSERT_EQ(enter(STM32F4), action::GOUPDATE);
    for (const char* const name : {"image.hex", "missing", ""}) {
        item.update.items = {{name, "2.0.0"}};
        EXPECT_TRUE(run(false).empty()) << name;
        EXPECT_TRUE(holds(newlyLogged(), "[Error]: CAN: Bad HEX file: " + directory + name));
    }
    item.hwRev = std::uint8_t{7};
    EXPECT_TRUE(run(false).empty()) << "no item of this revision";
    EXPECT_TRUE(holds(newlyLogged(), "[Error]: CAN: Bad HEX file: " + directory));
}

TEST_F(canBootloadTest, ACancelledOneEndsAtOnceAndAnotherWorks) {
    put(IMAGE, hexImage({{0, 16}}));
    for (const Request where : {ENTER, ROW}) {
        ASSERT_EQ(enter(PIC24), action::GOUPDATE);
        answer([&](Request request) -> std::optional<Replies> {
            core->cancel = core->cancel || request == where;
            return request == where ? std::optional(Replies()) : std::nullopt;
        });
        EXPECT_TRUE(where == ENTER ? act.needsUpdate(true) == action::UPERROR : !act.run());
        core->cancel = false;
    }
    ASSERT_EQ(enter(PIC24), action::GOUPDATE);
    EXPECT_TRUE(act.run());
}

} // namespace
