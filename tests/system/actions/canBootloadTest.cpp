#include "system/actions/canBootload.h"

#include "bootloader.h"

#include <chrono>

namespace {

const std::string IMAGE = "/keldra/tmp/keldra_update/image.hex";

class canBootloadTest : public BootloaderTest {
protected:
    canBootloadTest() : BootloaderTest(CAN_MODULE) {
        act.setBase(&item);
        item.update.items = {{"image.hex", "2.0.0"}};
        item.update.resetAfterUpdate = false;
    }

    /** Makes the module one of this kind, on the new bootloader unless it is 0, and asks it. */
    action::STATUS enter(std::uint8_t kind) {
        identity = kind == 0 ? std::nullopt : std::optional(identification(module, kind, "1.0.0"));
        return act.needsUpdate(false);
    }
    void image(const std::vector<std::pair<std::uint32_t, std::size_t>>& runs) { put(IMAGE, hexImage(runs)); }
    /** The log since the last call. */
    Texts newlyLogged() {
        Texts all = logged();
        Texts fresh(all.begin() + static_cast<std::ptrdiff_t>(seen), all.end());
        seen = all.size();
        return fresh;
    }
    std::vector<Frame> sentSince(std::size_t count, Request request) {
        std::vector<Frame> frames;
        const auto all = bus.sent();
        std::copy_if(all.begin() + static_cast<std::ptrdiff_t>(count), all.end(), std::back_inserter(frames),
                     [&](const Frame& frame) { return kindOf(frame) == request; });
        return frames;
    }

    updateCore::BASE_ITEM& item = core->s1.base;
    canBootload act{core.get()};

private:
    std::size_t seen = 0;
};

TEST_F(canBootloadTest, TheModulesAnswerDecides) {
    constexpr std::uint8_t STM32F3 = 3;
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
        {"older", identification(CAN_MODULE, STM32F3, "1.0.0", 1), false, "2.0.0", 0, false, action::GOUPDATE,
         1},
        {"equal", identification(CAN_MODULE, STM32F3, "2.1.0", 1), false, "", 0, false, action::NOUPDATE, 0},
        {"equal, forced", identification(CAN_MODULE, STM32F3, "2.1.0", 1), false, "", 0, true,
         action::GOUPDATE, 1},
        {"no image", identification(CAN_MODULE, STM32F3, "1.0.0", 2), false, "", 0, true, action::NOUPDATE,
         0},
        {"another module", identification(8, STM32F3, "1.0.0"), false, "", 0, true, action::NOMODULE, 0},
        {"on the serial bootloader", identification(CAN_MODULE, 0x81, "1.0.0"), false, "", 0, true,
         action::NOMODULE, 0},
        {"old, not known", old, false, "2.0.0", 1, false, action::GOUPDATE, 0},
        {"old, equal", old, true, "2.1.0", 1, false, action::NOUPDATE, 1},
        {"old, older", old, true, "1.0.0", 1, false, action::GOUPDATE, 1},
        {"old, no image", old, true, "1.0.0", 3, true, action::NOUPDATE, 3},
    };
    item.update.items = {{"a", "2.0.0"}, {"b", "2.1.0"}};
    item.update.resetAfterUpdate = true;
    for (const auto& row : rows) {
        bus.autoAnswer([&](const Frame& frame) {
            return kindOf(frame) == Request::ENTER ? Replies{row.answer} : Replies{reply(0, 0, CAN_MODULE)};
        });
        item.isAccurate = row.accurate;
        item.swVersion = std::string(row.version);
        item.hwRev = row.hwRev;
        const int resets = sentOf(Request::LEAVE);
        EXPECT_EQ(act.needsUpdate(row.force), row.status) << row.name;
        EXPECT_EQ(item.hwRev, row.hwRevAfter) << row.name;
        const bool isReset = row.status == action::NOUPDATE;
        EXPECT_EQ(sentOf(Request::LEAVE) - resets, isReset ? 1 : 0) << row.name;
        EXPECT_EQ(holds(newlyLogged(), "[Notice]: CAN: Resetting Module"), isReset) << row.name;
    }
}

TEST_F(canBootloadTest, AModuleLeftUnfinishedIsProgrammedWhateverItReports) {
    item.unfinished = true;
    for (const std::optional<Frame>& answer : {std::optional(identification(CAN_MODULE, 3, "2.0.0")), {}}) {
        identity = answer;
        item.isAccurate = true;
        item.swVersion = std::string("2.0.0");
        EXPECT_EQ(act.needsUpdate(false), action::GOUPDATE);
    }
}

TEST_F(canBootloadTest, ASilentModuleIsNotThere) {
    bus.autoAnswer([](const Frame&) { return Replies(); });
    EXPECT_EQ(act.needsUpdate(true), action::NOMODULE);
    EXPECT_NEAR(sentOf(Request::ENTER), 4, 1);
    EXPECT_NEAR(sentOf(Request::STATUS), 12, 1);
    const Texts log = newlyLogged();
    EXPECT_TRUE(holds(log, "[Notice]: CAN: Requested module bootloader"));
    EXPECT_TRUE(holds(log, "[Warning]: CAN: Could not switch to bootload mode"));
}

TEST_F(canBootloadTest, EachProcessorsPagesAreSentAndErased) {
    using Payloads = Texts;
    const struct {
        const char* title;
        std::uint8_t kind;
        std::vector<std::pair<std::uint32_t, std::size_t>> runs;
        Payloads starts;
        Payloads erases;
        std::vector<std::size_t> pages; ///< rows and bytes of each
    } rows[] = {
        {"CAN: STM32 Update ",
         3,
         {{0x08000000, 2058}, {0x08001800, 5}},
         {"09 01 00 00 08 00 00 08", "09 01 08 00 00 0A 00 08", "09 01 18 00 00 05 00 08"},
         {},
         {300, 2048, 2, 10, 1, 5}},
        {"CAN: STM32 Update ", 4, {{0x08000000, 1764}}, {"09 01 00 00 06 E4 00 08"}, {}, {253, 1764}},
        {"CAN: STM32 Update ",
         6,
         {{0x08000000, 1757}, {0x08001800, 5}},
         {"09 01 00 00 06 DD 00 08", "09 01 18 00 00 05 00 08"},
         {"09 06 00 00 00 00 00 00", "09 05 08 00 02 00 00 08"},
         {251, 1757, 1, 5}},
        {"CAN: PIC New ",
         1,
         {{0, 2048}, {0x2800, 16}},
         {"09 01 00 00 06 00", "09 01 14 00 06 00"},
         {"09 05 10 00 01 00"},
         {220, 1536, 220, 1536}},
        {"CAN: PIC Old ",
         0,
         {{0, 0x608}, {0x1200, 3}},
         {"09 01 00 00 06 00", "09 01 06 00 00 08", "09 01 12 00 00 03"},
         {},
         {220, 1536, 2, 8, 1, 3}},
    };
    for (const auto& row : rows) {
        image(row.runs);
        ASSERT_EQ(enter(row.kind), action::GOUPDATE);
        const std::size_t before = bus.sent().size();
        EXPECT_TRUE(act.run());
        EXPECT_TRUE(holds(newlyLogged(), row.title + IMAGE));
        Payloads starts;
        Payloads erases;
        std::vector<std::size_t> pages;
        const auto all = bus.sent();
        for (std::size_t i = before; i < all.size(); ++i) {
            const Frame& frame = all[i];
            const Request request = kindOf(frame);
            std::ostringstream text;
            text << frame;
            const std::string payload = text.str().substr(text.str().find(':') + 2);
            if (request == Request::START) {
                starts.push_back(payload);
                pages.insert(pages.end(), {0, 0});
            } else if (request == Request::ERASE || request == Request::ERASE_ALL) {
                erases.push_back(payload);
            } else if (request == Request::ROW) {
                const std::size_t number = pages[pages.size() - 2]++;
                EXPECT_EQ(frame.id, number < 251 ? 2 : 4);
                EXPECT_EQ(frame.payload[0], number & 0xFF);
                pages.back() += frame.payload.size() - (frame.id == 2 ? 1 : 2);
            }
        }
        EXPECT_EQ(starts, row.starts) << row.title;
        EXPECT_EQ(erases, row.erases) << row.title;
        EXPECT_EQ(pages, row.pages) << row.title;
    }
}

TEST_F(canBootloadTest, TheLogTellsAWholeRun) {
    image({{0x08000000, 3}, {0x08001000, 3}});
    item.update.resetAfterUpdate = true;
    ASSERT_EQ(enter(6), action::GOUPDATE);
    newlyLogged();
    EXPECT_TRUE(act.run());
    EXPECT_EQ(
        newlyLogged(),
        Texts({"[Notice]: CAN: Starting bootload", "[Notice]: CAN: STM32 Update " + IMAGE,
               "[Notice]: CAN: Working on Address# 0x8000000 (0/3) LEN: 3",
               "[Notice]: CAN: Page written successfully", "[Notice]: CAN: Erasing blocks at 0x8000800 (1)",
               "[Notice]: CAN: Blocks Erased", "[Notice]: CAN: Working on Address# 0x8001000 (2/3) LEN: 3",
               "[Notice]: CAN: Page written successfully", "[Notice]: CAN: Resetting Module",
               "[Notice]: CAN: Bootload Finished"}));
}

TEST_F(canBootloadTest, WhatGoesWrongIsLogged) {
    using Code = bootloadDialogue::BLSTATUS;
    const auto refuse = [this](Request which, Code code, int times) -> Exception {
        return [=, this](Request request, int nth) -> std::optional<Replies> {
            return request == which && nth <= times ? std::optional(Replies{status(code)}) : std::nullopt;
        };
    };
    const Exception silentRow = [](Request request, int nth) -> std::optional<Replies> {
        const bool silent = request == Request::STATUS || (request == Request::ROW && nth <= 4);
        return silent ? std::optional(Replies()) : std::nullopt;
    };
    const std::string exceeded = "[Error]: CAN: Page retry count exceeded.  Exiting.";
    const struct {
        std::uint8_t kind;
        Exception exception;
        Texts texts;
        bool result;
        int starts;
    } rows[] = {
        {3,
         refuse(Request::START, Code::WRITEERR, 3),
         {"[Warning]: CAN: Could not send SOH.  Retrying."},
         true,
         4},
        {3,
         refuse(Request::START, Code::WRITEERR, 99),
         {"CAN: Could not send SOH.  Retrying.", exceeded},
         false,
         4},
        {3, refuse(Request::START, Code::IGNOREPG, 1), {"[Notice]: CAN: Page ignored"}, true, 1},
        {3, silentRow, {"[Warning]: CAN: No response from data send...retrying page"}, true, 2},
        {3,
         refuse(Request::ROW, Code::BADCHECKSUM, 1),
         {"[Warning]: CAN: Data TX error...retrying..."},
         true,
         2},
        {3, refuse(Request::ROW, Code::BADCHECKSUM, 99), {exceeded}, false, 4},
        {3, refuse(Request::WRITE, Code::WRITEERR, 3), {}, true, 1},
        {3,
         refuse(Request::WRITE, Code::WRITEERR, 4),
         {"[Warning]: CAN: Could not write page to internal flash...retrying..."},
         true,
         2},
        {3, refuse(Request::WRITE, Code::WRITEERR, 99), {exceeded}, false, 4},
        {6,
         refuse(Request::ERASE_ALL, Code::ERASEERR, 1),
         {"[Error]: CAN: Could not erase range (all)"},
         false,
         0},
        {1, refuse(Request::ERASE, Code::ERASEERR, 1), {"[Error]: CAN: Could not erase range"}, false, 1},
        {1, refuse(Request::ERASE, Code::IGNOREPG, 1), {"[Notice]: CAN: Blocks Erased"}, true, 2},
        {5, nullptr, {"[Error]: CAN: Unsupported processor"}, false, 0},
    };
    for (const auto& row : rows) {
        if (row.kind == 1) {
            image({{0, 16}, {0x2800, 16}});
        } else {
            image({{0x08000000, 16}});
        }
        answer();
        item.unfinished = false;
        ASSERT_EQ(enter(row.kind), action::GOUPDATE);
        newlyLogged();
        const std::size_t before = bus.sent().size();
        answer(row.exception);
        EXPECT_EQ(act.run(), row.result) << row.texts.back();
        const Texts log = newlyLogged();
        for (const std::string& text : row.texts) {
            EXPECT_TRUE(holds(log, text)) << text;
        }
        EXPECT_EQ(sentSince(before, Request::START).size(), row.starts) << testing::PrintToString(row.texts);
        EXPECT_EQ(item.unfinished, !row.result && row.kind != 5);
    }
}

TEST_F(canBootloadTest, ABadImageIsRefusedBeforeAnythingIsErased) {
    const std::string good = hexRecord(4, 0, {0x08, 0x00}) + hexRecord(0, 0, {1, 2, 3, 4});
    const struct {
        const char* name;
        std::uint8_t kind;
        std::string text;
    } rows[] = {
        {"more bytes than its line has", 6, good + ":FF000400010203\n"},
        {"empty", 6, ""},
        {"no data in any region", 6, hexRecord(4, 0, {0x09, 0x00}) + hexRecord(0, 0, {1, 2, 3, 4})},
        {"data that the walk does not reach", 1, hexRecord(0, 0x2000, {1, 2, 3, 0})},
        {"behind 16 address bits", 1, hexImage({{0, 16}, {0x20000, 16}})},
        {"behind 16 address bits, old", 0, hexImage({{0, 16}, {0x10000, 16}})},
    };
    const auto expectRefused = [this](const std::string& name, const std::string& path) {
        const std::size_t before = bus.sent().size();
        EXPECT_FALSE(act.run()) << name;
        EXPECT_EQ(bus.sent().size(), before) << name;
        EXPECT_TRUE(holds(newlyLogged(), "[Error]: CAN: Bad HEX file: " + path)) << name;
    };
    for (const auto& row : rows) {
        put(IMAGE, row.text);
        ASSERT_EQ(enter(row.kind), action::GOUPDATE);
        expectRefused(row.name, IMAGE);
    }
    const std::string directory = IMAGE.substr(0, IMAGE.rfind('/') + 1);
    item.update.items = {{"missing", "2.0.0"}};
    expectRefused("missing", directory + "missing");
    item.update.items = {{"", "2.0.0"}};
    expectRefused("directory", directory);
    item.hwRev = std::uint8_t{7};
    expectRefused("no item of this revision", directory);
}

TEST_F(canBootloadTest, ACancelledRunEndsSoonAndAnotherWorks) {
    using namespace std::chrono;
    image({{0, 16}, {0x2800, 16}});
    for (const Request where :
         {Request::ENTER, Request::START, Request::ROW, Request::WRITE, Request::ERASE}) {
        answer();
        core->cancel = false;
        if (where != Request::ENTER) {
            ASSERT_EQ(enter(1), action::GOUPDATE);
        }
        steady_clock::time_point cancelled;
        answer([&](Request request, int) -> std::optional<Replies> {
            if (request != where) {
                return std::nullopt;
            }
            cancelled = steady_clock::now();
            core->cancel = true;
            return Replies();
        });
        if (where == Request::ENTER) {
            EXPECT_EQ(act.needsUpdate(true), action::UPERROR);
        } else {
            EXPECT_FALSE(act.run());
        }
        EXPECT_LT(steady_clock::now() - cancelled, 100ms) << static_cast<int>(where);
    }
    answer();
    core->cancel = false;
    ASSERT_EQ(enter(1), action::GOUPDATE);
    EXPECT_TRUE(act.run());
}

} // namespace
