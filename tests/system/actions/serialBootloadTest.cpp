#include "system/actions/serialBootload.h"

#include "bootloader.h"

namespace {

using enum bootloadDialogue::BLSTATUS;

constexpr std::uint8_t PIC24 = 0x81; // kinds on the serial bootloader
constexpr std::uint8_t RECORDS = 0x82;
constexpr std::uint8_t PAGES = 0x85;
constexpr std::uint8_t STM32F4 = 0x86;

class serialBootloadTest : public ActionTest<serialBootload> {
protected:
    serialBootloadTest() : ActionTest(SERIAL_MODULE, &updateCore::ctrl) {}
};

TEST_F(serialBootloadTest, TheModulesAnswerDecides) {
    item.update.resetAfterUpdate = true;
    EXPECT_EQ(enter(PAGES), action::GOUPDATE);
    EXPECT_EQ(item.swVersion.get(), "1.0.0");
    EXPECT_EQ(sentOf(LEAVE), 0);
    EXPECT_EQ(enter(PAGES, "2.0.0"), action::NOUPDATE);
    EXPECT_EQ(sentOf(LEAVE), 1);
    EXPECT_EQ(enter(5), action::NOMODULE); // on CAN
    identity = std::nullopt;
    EXPECT_EQ(act.needsUpdate(true), action::NOMODULE);
    EXPECT_TRUE(holds(newlyLogged(), "[Notice]: Serial: Requested module bootloader"));
    bus.autoAnswer([](const Frame&) { return Replies(); });
    EXPECT_EQ(act.needsUpdate(true), action::NOMODULE);
    EXPECT_TRUE(holds(newlyLogged(), "[Warning]: Serial: Could not switch to bootload mode"));
}

TEST_F(serialBootloadTest, TheSecondGenerationsResetIsThisFrame) {
    serialBootload sender(core.get()); // for no item
    EXPECT_TRUE(sender.sendResetG1());
    EXPECT_EQ(bus.sentBytes(), hex("4B 2B 4D 42 01 01 02 B2 C1 0D 0A"));
    bus.autoAnswer([](const Frame&) { return Replies(); });
    EXPECT_FALSE(sender.sendResetG1());
    EXPECT_NEAR(static_cast<int>(bus.sent().size()), 1 + 4 * 4, 1);
}

TEST_F(serialBootloadTest, PagesAreSentWithTheWholeAddress) {
    put(IMAGE, hexImage({{0x1D000000, 8}, {0x1D07F000, 3}, {0x1D080000, 1}})); // the last is behind the flash
    item.update.resetAfterUpdate = true;
    ASSERT_EQ(enter(PAGES), action::GOUPDATE);
    const std::vector<Frame> sent = run(true);
    EXPECT_EQ(sent, std::vector<Frame>({{1, hex("02 01 00 00 00 08 00 1D")},
                                        {2, hex("00 00 01 02 03 04 05 06")},
                                        {2, hex("01 07")},
                                        {1, hex("02 04")},
                                        {1, hex("02 01 F0 00 00 03 07 1D")},
                                        {2, hex("00 00 01 02")},
                                        {1, hex("02 04")},
                                        {16, hex("02 21")}}));
    EXPECT_EQ(newlyLogged(), Texts({"[Notice]: Serial: Starting bootload",
                                    "[Notice]: SerialV2: Image: data outside of the flash is dropped: page "
                                    "0x1d080000, 0x1d080000 to 0x1d080000, 1 bytes, line 6",
                                    "[Notice]: SerialV2: Working on Address# 0x1d000000 (0/128) LEN: 8",
                                    "[Notice]: SerialV2: Page written successfully",
                                    "[Notice]: SerialV2: Working on Address# 0x1d07f000 (127/128) LEN: 3",
                                    "[Notice]: SerialV2: Page written successfully",
                                    "[Notice]: Serial: Bootload Finished"}));
}

TEST_F(serialBootloadTest, RecordsAreSentAsTheyAre) {
    put(IMAGE, hexRecord(4, 0, {0x1D, 0x00}) + hexRecord(0, 0x0010, {1, 2, 3, 4}) + ":00000001FF\n");
    ASSERT_EQ(enter(RECORDS), action::GOUPDATE);
    const std::vector<Frame> sent = run(true);
    EXPECT_EQ(sent, std::vector<Frame>({{1, hex("02 06 00 00 00 00 00 00")},
                                        {2, hex("00 02 00 00 04 1D 00 DD")},
                                        {1, hex("02 04")},
                                        {2, hex("00 04 00 10 00 01 02 03")},
                                        {2, hex("01 04 E2")},
                                        {1, hex("02 04")},
                                        {2, hex("00 00 00 00 01 FF")},
                                        {1, hex("02 04")}}));
    EXPECT_EQ(newlyLogged(),
              Texts({"[Notice]: Serial: Starting bootload", "[Notice]: Serial: Erasing Memory",
                     "[Notice]: Serial: Programming Memory", "[Notice]: Serial: Bootload Finished"}));
}

TEST_F(serialBootloadTest, AModuleThatFailsIsLeftUnfinished) {
    put(IMAGE, hexImage({{0x1D000000, 4}}));
    const struct {
        std::uint8_t kind;
        Request refused;
        const char* text;
    } rows[] = {{RECORDS, ROW, "[Error]: Serial: Program retry count exceeded...Exiting..."},
                {PAGES, START, "[Error]: SerialV2: Page retry count exceeded.  Exiting."}};
    for (const auto& row : rows) {
        item.unfinished = false;
        ASSERT_EQ(enter(row.kind), action::GOUPDATE);
        answer(refuse(row.refused, BADCHECKSUM));
        run(false);
        EXPECT_TRUE(holds(newlyLogged(), row.text)) << row.text;
        EXPECT_TRUE(item.unfinished);
        EXPECT_EQ(enter(row.kind, "2.0.0"), action::GOUPDATE) << "part of an image may report its version";
    }
    ASSERT_EQ(enter(0x80), action::GOUPDATE);
    run(false);
    EXPECT_TRUE(holds(newlyLogged(), "[Error]: SerialV2: Unsupported processor"));
    item.update.items.clear();
    EXPECT_EQ(act.needsUpdate(false), action::NOUPDATE);
    EXPECT_FALSE(holds(newlyLogged(), "Resetting Module"));
}

TEST_F(serialBootloadTest, AnImageThatCantArriveWholeIsRefusedWhereStrict) {
    const Frame erase{1, hex("02 06 00 00 00 00 00 00")};
    const Frame write{1, hex("02 04")};
    const struct {
        std::uint8_t kind;
        const char* image;
        const char* found;
        std::vector<Frame> sent; ///< where not strict
    } rows[] = {
        {RECORDS,
         ":0400000001020304F3\n",
         "damaged record: page 0x0, 0x0 to 0x3, 4 bytes, line 1", // sums up to F2
         {erase, {2, hex("00 04 00 00 00 01 02 03")}, {2, hex("01 04 F3")}, write}},
        {RECORDS,
         "\n:0500000001020304F1\n",
         "damaged record: page 0x0, 0x0 to 0x4, 5 bytes, line 2", // one is missing
         {erase, {2, hex("00 05 00 00 00 01 02 03")}, {2, hex("01 04 F1")}, write}},
        {RECORDS, "no record\n", "no data for the flash: page 0x0, 0x0 to 0x0, 0 bytes, line 0", {erase}},
        {PAGES, "", "no data for the flash: page 0x1d000000, 0x1d000000 to 0x1d07ffff, 0 bytes, line 0", {}},
        {0x81,
         ":020000040800F2\n:0400000001020304F2\n", // behind a PIC24's memory
         "no data for the flash: page 0x0, 0x0 to 0x7ffffd, 0 bytes, line 0",
         {}},
    };
    for (const auto& row : rows) {
        put(IMAGE, row.image);
        const std::string prefix = row.kind == RECORDS ? ": Serial: " : ": SerialV2: ";
        for (const bool strict : {true, false}) {
            core->strictImages = strict;
            ASSERT_EQ(enter(row.kind), action::GOUPDATE);
            EXPECT_EQ(run(!strict), strict ? std::vector<Frame>() : row.sent) << row.image;
            const Texts log = newlyLogged();
            EXPECT_TRUE(holds(log, (strict ? "[Error]" : "[Warning]") + prefix + "Image: " + row.found))
                << row.image;
            EXPECT_EQ(log.back() == "[Error]" + prefix + "Bad HEX file", strict) << row.image;
        }
    }
}

TEST_F(serialBootloadTest, ACarriageReturnHidesNoSum) {
    core->strictImages = true;
    put(IMAGE, ":0400000001020304F2\r\n");
    ASSERT_EQ(enter(RECORDS), action::GOUPDATE);
    const std::vector<Frame> sent = run(true);
    EXPECT_EQ(sent.at(2), (Frame{2, hex("01 04 F2")}));
    EXPECT_FALSE(holds(newlyLogged(), "Image"));
}

TEST_F(serialBootloadTest, AnUnreadableImageIsRefusedBeforeAnythingIsErased) {
    put(IMAGE, hexUpper(0x1D000000) + ":FF000000010203\n");
    const struct {
        std::uint8_t kind;
        const char* item;
    } rows[] = {{RECORDS, ""}, {RECORDS, "missing"}, {PAGES, ""}, {PAGES, "image.hex"}};
    for (const auto& row : rows) {
        item.update.items = {{row.item, "2.0.0"}};
        ASSERT_EQ(enter(row.kind), action::GOUPDATE);
        EXPECT_TRUE(run(false).empty());
        EXPECT_EQ(newlyLogged().back(),
                  row.kind == RECORDS ? "[Error]: Serial: Bad HEX file" : "[Error]: SerialV2: Bad HEX file");
    }
}

} // namespace
