// canBootload and serialBootload; the requests and what goes wrong with them are bootloadDialogue's and
// imageProgrammer's, which have tests of their own.

#include "support/hexImage.h"
#include "support/panel.h"
#include "system/actions/canBootload.h"
#include "system/actions/serialBootload.h"

#include <algorithm>
#include <optional>
#include <regex>
#include <sstream>

namespace {

const std::string FOLDER = "/keldra/tmp/keldra_update/";
const std::string IMAGE = FOLDER + "image.hex";

constexpr std::uint8_t CAN_MODULE = 9;
constexpr std::uint8_t SERIAL_MODULE = 2;

// Kinds of module: what one says of itself, or that it is too old to say anything.
constexpr std::uint8_t OLD = 0;
constexpr std::uint8_t PIC24 = 1;
constexpr std::uint8_t STM32F3 = 3;
constexpr std::uint8_t STM32F0 = 4;
constexpr std::uint8_t STM32F4 = 6;
constexpr std::uint8_t SERIAL_PIC24 = 0x81;
constexpr std::uint8_t RECORDS = 0x82;
constexpr std::uint8_t PAGES = 0x85;
constexpr std::uint8_t SERIAL_STM32F4 = 0x86;

bool isSerial(std::uint8_t kind) {
    return kind >= ON_SERIAL_BOOTLOADER;
}

// Requests as a bootloader tells them apart.
constexpr int START = 1;
constexpr int STATUS = 3;
constexpr int ERASE_ALL = 6;
constexpr int ROW = 100;
constexpr int ENTER = ENTER_BOOTLOADER;
constexpr int LEAVE = '!';

int kindOf(const Frame& request) {
    return request.id == 2 || request.id == 4 ? ROW : request.payload.size() > 1 ? request.payload[1] : 0;
}

/**
 * Requests in hex. Rows stand where they are written: how many, and how much they carry; a few as they are.
 */
std::string transcript(const std::vector<Frame>& sent) {
    std::ostringstream text;
    std::ostringstream few;
    std::size_t rows = 0;
    std::size_t bytes = 0;
    for (const Frame& frame : sent) {
        if (kindOf(frame) == ROW) {
            EXPECT_EQ(frame.id, rows < 251 ? 2 : 4);
            EXPECT_EQ(frame.payload[0], rows++ & 0xFF);
            bytes += frame.payload.size() - (frame.id == 2 ? 1 : 2);
            few << frame << "; ";
        } else if (frame.payload[1] != 4) {
            text << frame << "; ";
        } else if (bytes <= 12) {
            text << std::exchange(few, {}).str();
            rows = bytes = 0;
        } else {
            text << rows << " rows, " << bytes << " bytes; ";
            few = {};
            rows = bytes = 0;
        }
    }
    return std::regex_replace(text.str(), std::regex("message \\d+: "), "");
}

using Replies = std::vector<Frame>;

struct StartedPanel : Panel {
    StartedPanel() { start(); }
};

/** With a module on either link, in its bootloader, which answers every request well. */
class bootloadersTest : public StartedPanel {
protected:
    bootloadersTest() {
        for (const bool serial : {false, true}) {
            actionOf(serial).setBase(&itemOf(serial));
            itemOf(serial).update = {{{"image.hex", "2.0.0"}}, false};
        }
        answer();
    }

    action& actionOf(bool serial) { return serial ? static_cast<action&>(onSerial) : onCan; }
    updateCore::BASE_ITEM& itemOf(bool serial) { return serial ? core->ctrl.base : core->s1.base; }

    /** From now on; requests of this kind are answered with these. */
    void answer(int exception = -1, const Replies& replies = {}) {
        bus.autoAnswer([=, this](const Frame& request) {
            return kindOf(request) == exception ? replies : Replies{usual(request)};
        });
    }
    /** Makes the module one of this kind, which says so, and asks it. */
    action::STATUS enter(std::uint8_t kind, const std::string& version = "1.0.0") {
        module = isSerial(kind) ? SERIAL_MODULE : CAN_MODULE;
        identity = kind == OLD ? reply(0, 0, module) : identification(module, kind, version);
        answer();
        return actionOf(isSerial(kind)).needsUpdate(false);
    }
    /** Runs the action; the requests that it sent. */
    std::vector<Frame> run(std::uint8_t kind, bool result) {
        newlyLogged();
        const auto before = static_cast<std::ptrdiff_t>(bus.sent().size());
        EXPECT_EQ(actionOf(isSerial(kind)).run(), result);
        const std::vector<Frame> sent = bus.sent();
        return {sent.begin() + before, sent.end()};
    }
    /** The log since the last call. */
    Texts newlyLogged() {
        const Texts all = logged();
        Texts fresh(all.begin() + static_cast<std::ptrdiff_t>(seen_), all.end());
        seen_ = all.size();
        return fresh;
    }

    Frame identity; ///< what it answers to being asked in
    std::uint8_t module = CAN_MODULE;
    canBootload onCan{core.get()};
    serialBootload onSerial{core.get()};

private:
    Frame usual(const Frame& request) const {
        if (kindOf(request) == ENTER) {
            return identity;
        }
        const int high = request.id == 4 ? request.payload[1] : 0;
        const int row = kindOf(request) == ROW ? request.payload[0] + 256 * high : 0;
        return {static_cast<std::uint8_t>(module == SERIAL_MODULE ? 5 : 3),
                reply(0, static_cast<std::uint16_t>(row), module).payload};
    }

    std::size_t seen_ = 0; ///< lines of the log
};

TEST_F(bootloadersTest, TheModulesAnswerDecides) {
    const auto reports = [](std::uint8_t kind, const std::string& version, std::uint8_t hwRev) {
        return Replies{identification(isSerial(kind) ? SERIAL_MODULE : CAN_MODULE, kind, version, hwRev)};
    };
    const Replies another = {identification(8, STM32F3, "1.0.0")};
    const Replies old = {reply(0, 0, CAN_MODULE)};
    const struct {
        const char* name;
        bool serial;
        Replies answer;
        bool accurate;
        const char* version; ///< recorded before
        std::uint8_t hwRev;
        bool force;
        action::STATUS status;
        std::uint8_t hwRevAfter;
        bool unfinished = false;
    } rows[] = {
        {"older", false, reports(STM32F3, "1.0.0", 1), false, "2.0.0", 0, false, action::GOUPDATE, 1},
        {"equal", false, reports(STM32F3, "2.1.0", 1), false, "", 0, false, action::NOUPDATE, 0},
        {"equal, forced", false, reports(STM32F3, "2.1.0", 1), false, "", 0, true, action::GOUPDATE, 1},
        {"equal, unfinished", false, reports(STM32F3, "2.1.0", 1), true, "", 0, false, action::GOUPDATE, 1,
         true},
        {"no image", false, reports(STM32F3, "1.0.0", 2), false, "", 0, true, action::NOUPDATE, 0},
        {"no image, unfinished", false, reports(STM32F3, "1.0.0", 2), false, "", 0, true, action::NOUPDATE, 0,
         true},
        {"another module", false, another, false, "", 0, true, action::NOMODULE, 0},
        {"on serial", false, reports(SERIAL_PIC24, "1.0.0", 0), false, "", 0, true, action::NOMODULE, 0},
        {"old, not known", false, old, false, "2.0.0", 1, false, action::GOUPDATE, 0},
        {"old, equal", false, old, true, "2.1.0", 1, false, action::NOUPDATE, 1},
        {"old, equal, unfinished", false, old, true, "2.1.0", 1, false, action::GOUPDATE, 1, true},
        {"old, older", false, old, true, "1.0.0", 1, false, action::GOUPDATE, 1},
        {"old, no image", false, old, true, "1.0.0", 3, true, action::NOUPDATE, 3},
        {"serial", true, reports(PAGES, "1.0.0", 1), false, "", 0, false, action::GOUPDATE, 1},
        {"serial, equal", true, reports(PAGES, "2.1.0", 1), false, "", 0, false, action::NOUPDATE, 0},
        {"serial, unfinished", true, reports(PAGES, "2.1.0", 1), false, "", 0, false, action::GOUPDATE, 1,
         true},
        {"serial, no image", true, reports(PAGES, "1.0.0", 2), false, "", 0, true, action::NOUPDATE, 0, true},
        {"serial, on CAN", true, another, false, "", 0, true, action::NOMODULE, 0},
        {"serial, old", true, old, false, "", 0, true, action::NOMODULE, 0},
        {"serial, silent", true, {}, false, "", 0, true, action::NOMODULE, 0},
    };
    for (const auto& row : rows) {
        updateCore::BASE_ITEM& item = itemOf(row.serial);
        item.update = {{{"a", "2.0.0"}, {"b", "2.1.0"}}, true};
        item.isAccurate = row.accurate;
        item.swVersion = std::string(row.version);
        item.hwRev = row.hwRev;
        item.unfinished = row.unfinished;
        answer(ENTER, row.answer);
        if (row.answer.empty()) {
            bus.autoAnswer({});
        }
        newlyLogged();
        const std::size_t before = bus.sent().size();
        EXPECT_EQ(actionOf(row.serial).needsUpdate(row.force), row.status) << row.name;
        EXPECT_EQ(item.hwRev, row.hwRevAfter) << row.name;
        const bool isReset = row.status == action::NOUPDATE && !row.unfinished; // half a program must not run
        const std::vector<Frame> sent = bus.sent();
        EXPECT_EQ(std::count_if(sent.begin() + static_cast<std::ptrdiff_t>(before), sent.end(),
                                [](const Frame& frame) { return kindOf(frame) == LEAVE; }),
                  isReset ? 1 : 0)
            << row.name;
        const Texts log = newlyLogged();
        EXPECT_EQ(holds(log, "Could not switch to bootload mode"), row.answer.empty()) << row.name;
    }
}

TEST_F(bootloadersTest, OneThatSaysNothingButErrorsIsAnOldOneWhereThatIsBelieved) {
    int asked = 0;
    bus.autoAnswer([&asked](const Frame& request) {
        asked += kindOf(request) == ENTER ? 1 : 0;
        const bool answers = asked == 4 && kindOf(request) == STATUS; // before, it would only take longer
        return answers ? Replies{reply(2, 0, CAN_MODULE)} : Replies();
    });
    EXPECT_EQ(onCan.needsUpdate(false), action::GOUPDATE);
    EXPECT_TRUE(holds(newlyLogged(), "CAN: Nothing but errors from the module: taken for an old bootloader"));
}

TEST_F(bootloadersTest, EachProcessorsPagesAreSentAndErased) {
    const struct {
        std::uint8_t kind;
        std::string image;
        const char* sent;
    } rows[] = {
        {STM32F3, hexImage({{0x08000000, 2058}, {0x08001800, 5}}),
         "09 01 00 00 08 00 00 08; 300 rows, 2048 bytes; 09 01 08 00 00 0A 00 08; 00 00 01 02 03 04 05 06; "
         "01 07 08 09; 09 01 18 00 00 05 00 08; 00 00 01 02 03 04; "},
        {STM32F0, hexImage({{0x08000000, 1764}}), "09 01 00 00 06 E4 00 08; 253 rows, 1764 bytes; "},
        {STM32F4, hexImage({{0x08000000, 1757}, {0x08001800, 5}}),
         "09 06 00 00 00 00 00 00; 09 01 00 00 06 DD 00 08; 251 rows, 1757 bytes; 09 05 08 00 02 00 00 08; "
         "09 01 18 00 00 05 00 08; 00 00 01 02 03 04; "},
        {PIC24, hexImage({{0, 2048}, {0x2800, 16}}),
         "09 01 00 00 06 00; 220 rows, 1536 bytes; 09 05 10 00 01 00; 09 01 14 00 06 00; 220 rows, 1536 "
         "bytes; "},
        {OLD, hexImage({{0, 0x608}, {0xFC00, 0x400}}),
         "09 01 00 00 06 00; 220 rows, 1536 bytes; 09 01 06 00 00 08; 00 00 01 02 03 04 05 06; 01 07; "
         "09 01 FC 00 04 00; 147 rows, 1024 bytes; "}, // up to the last address
        {PAGES, hexImage({{0x1D000000, 8}, {0x1D07F000, 3}}),
         "02 01 00 00 00 08 00 1D; 00 00 01 02 03 04 05 06; 01 07; 02 01 F0 00 00 03 07 1D; 00 00 01 02; "},
        {SERIAL_STM32F4, hexImage({{0x08000000, 5}}),
         "02 06 00 00 00 00 00 00; 02 01 00 00 00 05 00 08; 00 00 01 02 03 04; "},
        {RECORDS, hexUpper(0x1D000000) + ":0400100001020304E2\r\n:00000001FF\n",
         "02 06 00 00 00 00 00 00; 00 02 00 00 04 1D 00 DD; 00 04 00 10 00 01 02 03; 01 04 E2; "
         "00 00 00 00 01 FF; "},
    };
    core->strictImages = true;
    for (const auto& row : rows) {
        put(IMAGE, row.image);
        ASSERT_EQ(enter(row.kind), action::GOUPDATE);
        EXPECT_EQ(transcript(run(row.kind, true)), row.sent);
        EXPECT_FALSE(holds(newlyLogged(), "Image: "));
    }
}

TEST_F(bootloadersTest, AnImageThatCantArriveWholeIsRefusedWhereStrict) {
    const std::string good = hexImage({{0x08000000, 4}});
    const struct {
        std::uint8_t kind;
        std::string image;
        std::string found; ///< the last line that tells of it
    } rows[] = {
        {STM32F3, hexImage({{0x08000000, 4}, {0x08000010, 4}}),
         "CAN: Image: gap inside a page, what follows moves up: page 0x8000000, 0x8000004 to 0x800000f, 12 "
         "bytes, line 4"},
        {STM32F3, hexImage({{0x0803D800, 2064}}),
         "CAN: Image: data across the edge of the flash is dropped: page 0x803e000, 0x803e000 to 0x803e00f, "
         "16 bytes, line 130"},
        {PIC24, hexImage({{0x2000, 16}}),
         "CAN: Image: data is not reached, since the region before it has none: page 0x1000, 0x1000 to "
         "0x1007, 16 bytes, line 2"},
        {PIC24, hexImage({{0, 16}, {0x20000, 16}}),
         "CAN: Image: data behind 16 address bits, which are cut: page 0x10000, 0x10000 to 0x10007, 16 "
         "bytes, line 4"},
        {STM32F3, good + ":0400040001020304F2\n",
         "CAN: Image: damaged record: page 0x8000000, 0x8000004 to 0x8000007, 4 bytes, line 4"},
        {STM32F3, good + ":020000021000EC\n",
         "CAN: Image: segment address, which is not applied: page 0x8000000, 0x8000000 to 0x8000001, 2 "
         "bytes, line 4"},
        {STM32F3, hexImage({{0x08000010, 4}, {0x08000000, 4}}),
         "CAN: Image: data out of order or twice, which goes to the page's end: page 0x8000000, 0x8000000 to "
         "0x8000003, 4 bytes, line 4"},
        {PIC24, hexImage({{2, 8}}),
         "CAN: Image: record begins inside an instruction: page 0x0, 0x1 to 0x4, 8 bytes, line 2"},
        {STM32F4, hexImage({{0x09000000, 4}}),
         "CAN: Image: no data for the flash: page 0x8000000, 0x8000000 to 0x803dfff, 0 bytes, line 0"},
        {RECORDS, "\n:0500000001020304F1\n",
         "Serial: Image: damaged record: page 0x0, 0x0 to 0x4, 5 bytes, line 2"}, // one is missing
        {RECORDS, "no record\n",
         "Serial: Image: no data for the flash: page 0x0, 0x0 to 0x0, 0 bytes, line 0"},
        {PAGES, "",
         "SerialV2: Image: no data for the flash: page 0x1d000000, 0x1d000000 to 0x1d07ffff, 0 bytes, line "
         "0"},
        {SERIAL_PIC24, hexUpper(0x08000000) + ":0400000001020304F2\n",
         "SerialV2: Image: no data for the flash: page 0x0, 0x0 to 0x7ffffd, 0 bytes, line 0"},
    };
    for (const auto& row : rows) {
        put(IMAGE, row.image);
        for (const bool strict : {true, false}) {
            core->strictImages = strict;
            ASSERT_EQ(enter(row.kind), action::GOUPDATE);
            const bool isSent = !run(row.kind, !strict).empty();
            EXPECT_FALSE(strict && isSent) << row.found;
            const Texts log = newlyLogged();
            EXPECT_TRUE(holds(log, (strict ? "[Error]: " : "[Warning]: ") + row.found)) << row.found;
            EXPECT_EQ(holds(log, "Bad HEX file"), strict) << row.found;
        }
    }
    std::string damaged;
    for (unsigned i = 0; i < 100; ++i) {
        damaged += ":0400000001020304FF\n";
    }
    put(IMAGE, damaged);
    ASSERT_EQ(enter(STM32F3), action::GOUPDATE);
    run(STM32F3, true);
    const Texts log = newlyLogged();
    EXPECT_LT(log.size(), 25U) << "many faults do not fill the log";
    EXPECT_TRUE(holds(log, "Image: more of these: 91"));
}

TEST_F(bootloadersTest, TheLogTellsAWholeRun) {
    const struct {
        std::uint8_t kind;
        std::string image;
        Texts log;
    } rows[] = {
        {STM32F4,
         hexImage({{0, 2}, {0x08000000, 3}, {0x08001000, 3}, {0x09000000, 4}}),
         {"CAN: Starting bootload", "CAN: STM32 Update " + IMAGE,
          "CAN: Image: data outside of the flash is dropped: page 0x0, 0x0 to 0x9000003, 6 bytes, line 2",
          "CAN: Working on Address# 0x8000000 (0/3) LEN: 3", "CAN: Page written successfully",
          "CAN: Erasing blocks at 0x8000800 (1)", "CAN: Blocks Erased",
          "CAN: Working on Address# 0x8001000 (2/3) LEN: 3", "CAN: Page written successfully",
          "CAN: Resetting Module", "CAN: Bootload Finished"}},
        {PAGES,
         hexImage({{0x1D000000, 8}}),
         {"Serial: Starting bootload", "SerialV2: Working on Address# 0x1d000000 (0/1) LEN: 8",
          "SerialV2: Page written successfully", "Serial: Bootload Finished"}},
        {RECORDS,
         hexImage({{0x1D000000, 8}}),
         {"Serial: Starting bootload", "Serial: Erasing Memory", "Serial: Programming Memory",
          "Serial: Bootload Finished"}},
    };
    core->strictImages = true;
    for (const auto& row : rows) {
        put(IMAGE, row.image);
        itemOf(isSerial(row.kind)).update.resetAfterUpdate = true;
        ASSERT_EQ(enter(row.kind), action::GOUPDATE);
        EXPECT_EQ(kindOf(run(row.kind, true).back()), LEAVE);
        Texts notices = row.log;
        for (std::string& line : notices) {
            line.insert(0, "[Notice]: ");
        }
        EXPECT_EQ(newlyLogged(), notices);
    }
    for (const auto& [kind, title] : {std::pair{PIC24, "New"}, {OLD, "Old"}}) {
        put(IMAGE, hexImage({{0, 4}}));
        ASSERT_EQ(enter(kind), action::GOUPDATE);
        run(kind, true);
        EXPECT_TRUE(holds(newlyLogged(), std::string("CAN: PIC ") + title + " " + IMAGE));
    }
}

TEST_F(bootloadersTest, AModuleThatFailsIsLeftUnfinished) {
    const struct {
        std::uint8_t kind;
        int refused;
        const char* text;
        bool unfinished;
    } rows[] = {
        {STM32F3, START, "[Error]: CAN: Page retry count exceeded.  Exiting.", true},
        {STM32F4, ERASE_ALL, "[Error]: CAN: Could not erase range (all)", true},
        {5, -1, "[Error]: CAN: Unsupported processor", false},
        {RECORDS, ROW, "[Error]: Serial: Program retry count exceeded...Exiting...", true},
        {PAGES, START, "[Error]: SerialV2: Page retry count exceeded.  Exiting.", true},
        {0x80, -1, "[Error]: SerialV2: Unsupported processor", false},
    };
    for (const auto& row : rows) {
        put(IMAGE, hexImage({{isSerial(row.kind) ? 0x1D000000 : 0x08000000, 16}}));
        itemOf(isSerial(row.kind)).unfinished = false;
        ASSERT_EQ(enter(row.kind), action::GOUPDATE);
        answer(row.refused, {reply(bootloadDialogue::WRITEERR, 0, module)});
        run(row.kind, false);
        EXPECT_TRUE(holds(newlyLogged(), row.text)) << row.text;
        EXPECT_EQ(itemOf(isSerial(row.kind)).unfinished, row.unfinished) << row.text;
    }
}

TEST_F(bootloadersTest, AnUnreadableImageIsRefusedBeforeAnythingIsErased) {
    const std::string cut = ":FF000400010203\n";
    put(IMAGE, hexUpper(0x08000000) + cut + hexUpper(0x1D000000) + cut);
    const struct {
        std::uint8_t kind;
        std::string item;
        std::string text;
    } rows[] = {{STM32F4, "image.hex", "[Error]: CAN: Bad HEX file: " + IMAGE},
                {STM32F4, "missing", "[Error]: CAN: Bad HEX file: " + FOLDER + "missing"},
                {STM32F4, "", "[Error]: CAN: Bad HEX file: " + FOLDER},
                {RECORDS, "", "[Error]: Serial: Bad HEX file"},
                {RECORDS, "missing", "[Error]: Serial: Bad HEX file"},
                {PAGES, "", "[Error]: SerialV2: Bad HEX file"},
                {PAGES, "image.hex", "[Error]: SerialV2: Bad HEX file"}};
    for (const auto& row : rows) {
        itemOf(isSerial(row.kind)).update.items = {{row.item, "2.0.0"}};
        ASSERT_EQ(enter(row.kind), action::GOUPDATE);
        EXPECT_TRUE(run(row.kind, false).empty());
        EXPECT_EQ(newlyLogged().back(), row.text);
    }
}

TEST_F(bootloadersTest, ItsRequestsAreTheModules) {
    using enum busProtocol::BLSTATUS;
    hexpage::MEMORY_PAGE page;
    page.startAddress = 0x1400;
    page.data = {1, 2, 3, 4, 5, 6, 7, 8};
    page.dataLength = 8;
    ASSERT_EQ(enter(PIC24), action::GOUPDATE);
    const std::size_t before = bus.sent().size();
    EXPECT_TRUE(onCan.sendReqStat());
    EXPECT_EQ(onCan.send_SOH(page), OK);
    EXPECT_EQ(onCan.sendDataRow(1, page), OK);
    EXPECT_TRUE(onCan.sendPageWrite());
    EXPECT_EQ(onCan.eraseBlock(0x1400, 2), OK);
    EXPECT_EQ(onCan.eraseAll(), OK);
    EXPECT_TRUE(serialBootload(core.get()).sendResetG1()); // for no item
    EXPECT_TRUE(onSerial.sendReqStat());
    EXPECT_EQ(onSerial.mem_sendSOH(page), OK);
    EXPECT_EQ(onSerial.mem_sendData(1, page), OK);
    EXPECT_TRUE(onSerial.mem_sendPageWrite());
    EXPECT_EQ(onSerial.mem_eraseBlock(0x1400, 2, 7), OK);
    const std::vector<Frame> sent = bus.sent();
    std::ostringstream text;
    std::for_each(sent.begin() + static_cast<std::ptrdiff_t>(before), sent.end(),
                  [&text](const Frame& frame) { text << frame << "; "; });
    EXPECT_EQ(text.str(),
              "message 1: 09 03; message 1: 09 01 14 00 00 08; message 2: 01 08; message 1: 09 04; "
              "message 1: 09 05 14 00 02 00; message 1: 09 06 00 00 00 00 00 00; message 1: 02; "
              "message 1: 02 03; message 1: 02 01 14 00 00 08 00 00; message 2: 01 08; message 1: 02 04; "
              "message 1: 07 05 14 00 02 00 00 00; ");
}

TEST_F(bootloadersTest, ACancelledOneEndsAtOnceAndAnotherWorks) {
    put(IMAGE, hexImage({{0, 16}}));
    for (const int where : {ENTER, ROW}) {
        ASSERT_EQ(enter(PIC24), action::GOUPDATE);
        bus.autoAnswer([this, where](const Frame& request) { // which outlives the turn
            if (kindOf(request) != where) {
                return Replies{reply(0, 0, CAN_MODULE)};
            }
            core->cancel = true;
            return Replies();
        });
        EXPECT_TRUE(where == ENTER ? onCan.needsUpdate(true) == action::UPERROR : !onCan.run());
        core->cancel = false;
    }
    ASSERT_EQ(enter(PIC24), action::GOUPDATE);
    EXPECT_TRUE(onCan.run());
}

} // namespace
