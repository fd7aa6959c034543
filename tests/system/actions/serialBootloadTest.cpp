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
    EXPECT_TRUE(holds(newlyLogged(), "[Warning]: Unfinished module, and nothing in the package for it"));
}

TEST_F(serialBootloadTest, ABadImageIsRefusedBeforeAnythingIsErased) {
    const struct {
        std::uint8_t kind;
        const char* item;
        const char* text;
    } rows[] = {
        {RECORDS, "image.hex", ""},
        {RECORDS, "image.hex", "no record\n"},
        {RECORDS, "", ""},
        {RECORDS, "missing", ""},
        {RECORDS, "image.hex", ":0400000001020304F3\n"}, // sums up to F2
        {RECORDS, "image.hex", ":0500000001020304F1\n"}, // a byte is missing
        {PAGES, "image.hex", ""},
        {PAGES, "", ""},
        {PAGES, "image.hex", ":FF000000010203\n"},
        {0x81, "image.hex", ":020000040800F2\n:0400000001020304F2\n"}, // behind a PIC24's memory
    };
    for (const auto& row : rows) {
        put(IMAGE, row.text);
        item.update.items = {{row.item, "2.0.0"}};
        ASSERT_EQ(enter(row.kind), action::GOUPDATE);
        EXPECT_TRUE(run(false).empty());
        const bool records = row.kind == RECORDS;
        EXPECT_EQ(newlyLogged().back(),
                  records ? "[Error]: Serial: Bad HEX file" : "[Error]: SerialV2: Bad HEX file");
    }
}

} // namespace
