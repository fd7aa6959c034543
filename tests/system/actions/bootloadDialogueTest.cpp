#include "system/actions/bootloadDialogue.h"

#include "bootloader.h"

#include <atomic>
#include <dlfcn.h>
#include <semaphore.h>

namespace {
std::atomic<int> polls = 0;
}

/** Stands before the C library's, to count the polls in which a reply is waited for. */
int sem_clockwait(sem_t* semaphore, clockid_t clock, const timespec* deadline) {
    ++polls;
    const char* name = sizeof(time_t) > sizeof(long) ? "__sem_clockwait64" : "sem_clockwait";
    static const auto real = reinterpret_cast<decltype(&sem_clockwait)>(dlsym(RTLD_NEXT, name));
    return real(semaphore, clock, deadline);
}

namespace {

using dialogue = bootloadDialogue;

class bootloadDialogueTest : public BootloaderTest {
protected:
    bootloadDialogueTest() : BootloaderTest(CAN_MODULE) { page.data = counting(2048); }

    bootloadDialogue talk{core.get(), "CAN: "};
    hexpage::MEMORY_PAGE page;
    const Bytes oneRow = {1, 2, 3, 4, 5, 6, 7};
};

TEST_F(bootloadDialogueTest, EveryRequestIsThisFrame) {
    page.startAddress = 0x0803D800;
    page.dataLength = 0x123;
    hexpage::MEMORY_PAGE narrow;
    narrow.startAddress = 0x1400;
    narrow.dataLength = 0x600;
    const std::uint8_t id = CAN_MODULE;
    const struct {
        const char* name;
        std::function<void()> send;
        const char* frame;
    } rows[] = {
        {"status", [&] { talk.sendReqStat(id); }, "4B 2B 4D 42 01 02 09 03 F4 97 0D 0A"},
        {"enter", [&] { talk.sendSystemCommand(id, ','); }, "4B 2B 4D 42 10 02 09 2C 79 42 0D 0A"},
        {"leave", [&] { talk.sendSystemCommand(id, '!'); }, "4B 2B 4D 42 10 02 09 21 D4 93 0D 0A"},
        {"start, 16 bits", [&] { talk.startPage(id, narrow, false); },
         "4B 2B 4D 42 01 06 09 01 14 00 06 00 53 97 0D 0A"},
        {"start, 32 bits", [&] { talk.startPage(id, page, true); },
         "4B 2B 4D 42 01 08 09 01 D8 00 01 23 03 08 D9 04 0D 0A"},
        {"erase, 16 bits", [&] { talk.eraseBlock(id, 0x1400, 5, false); },
         "4B 2B 4D 42 01 06 09 05 14 00 05 00 06 4B 0D 0A"},
        {"erase, 32 bits", [&] { talk.eraseBlock(id, 0x08042800, 0, true); },
         "4B 2B 4D 42 01 08 09 05 28 00 00 00 04 08 16 64 0D 0A"},
        {"erase all", [&] { talk.eraseAll(id); }, "4B 2B 4D 42 01 08 09 06 00 00 00 00 00 00 12 C9 0D 0A"},
        {"first row", [&] { talk.sendDataRow(id, 0, page.data); },
         "4B 2B 4D 42 02 08 00 00 01 02 03 04 05 06 32 E8 0D 0A"},
        {"last row of 7 bytes", [&] { talk.sendDataRow(id, 250, page.data); },
         "4B 2B 4D 42 02 08 FA D6 D7 D8 D9 DA DB DC B3 6E 0D 0A"},
        {"first row of 6 bytes", [&] { talk.sendDataRow(id, 251, page.data); },
         "4B 2B 4D 42 04 08 FB 00 DD DE DF E0 E1 E2 92 9A 0D 0A"},
        {"last row", [&] { talk.sendDataRow(id, 299, page.data); },
         "4B 2B 4D 42 04 05 2B 01 FD FE FF CE 0C 0D 0A"},
        {"write", [&] { talk.sendPageWrite(id); }, "4B 2B 4D 42 01 02 09 04 13 E7 0D 0A"},
    };
    for (const auto& row : rows) {
        const std::size_t before = bus.sentBytes().size();
        row.send();
        const Bytes sent = bus.sentBytes();
        EXPECT_EQ(Bytes(sent.begin() + static_cast<std::ptrdiff_t>(before), sent.end()), hex(row.frame))
            << row.name;
    }
}

TEST_F(bootloadDialogueTest, SilenceEndsEveryRequestAfterItsTries) {
    const std::uint8_t id = CAN_MODULE;
    const struct {
        const char* name;
        std::function<int()> send;
        int result;
        int requests; // each with three passes, a status request behind each
        int polls;    // for the reply in each pass; the status has 20
    } rows[] = {
        {"any message", [&] { return int{talk.sendWithResponse(id, {}, 1)}; }, 0, 1, 10},
        {"system command", [&] { return int{talk.sendSystemCommand(id, '!')}; }, 0, 4, 200},
        {"enter", [&] { return int{talk.enterBootloader(id)}; }, 0, 4, 200},
        {"start", [&] { return int{talk.startPage(id, page, true)}; }, dialogue::BADCHECKSUM, 4, 50},
        {"row", [&] { return talk.sendDataRow(id, 5, page.data); }, -1, 4, 50},
        {"write", [&] { return int{talk.sendPageWrite(id)}; }, 0, 4, 100},
        {"erase", [&] { return int{talk.eraseBlock(id, 0, 1, true)}; }, dialogue::ERASEERR, 4, 712},
    };
    bus.autoAnswer([](const Frame&) { return Replies(); });
    for (const auto& row : rows) {
        polls = 0;
        const std::size_t before = bus.sent().size();
        const int status = sentOf(STATUS);
        EXPECT_EQ(row.send(), row.result) << row.name;
        EXPECT_GE(polls, row.requests * 3 * (row.polls + 20)) << row.name;
        // A frame is discarded by the next one when the bus was too busy to take it.
        EXPECT_NEAR(static_cast<int>(bus.sent().size() - before), row.requests * 4, 1) << row.name;
        EXPECT_NEAR(sentOf(STATUS) - status, row.requests * 3, 1) << row.name;
    }
}

TEST_F(bootloadDialogueTest, OnlyTheModulesOwnReplyToThisRowCounts) {
    const std::uint8_t id = CAN_MODULE;
    const Frame wrongs[] = {reply(0, 7, id), reply(0, 0, id + 1), {3, {0, 7}}, {3, {0, 0, 0, id, 0, 0}}};
    for (const Frame& wrong : wrongs) {
        const bool silent = wrong.payload.size() == 6; // of an obsolete bootloader
        answer([&](Request, int) { return Replies{wrong}; });
        EXPECT_EQ(talk.startPage(id, page, true), dialogue::BADCHECKSUM) << wrong;
        EXPECT_EQ(talk.sendDataRow(id, 0, page.data), silent ? -1 : dialogue::MISSEDPACKET) << wrong;
        EXPECT_FALSE(talk.sendPageWrite(id)) << wrong;
    }
    answer([&](Request, int) { return Replies{{3, {dialogue::WRITEERR, 254}}}; }); // above 253 stands for 0
    EXPECT_EQ(talk.startPage(id, page, true), dialogue::WRITEERR);
}

TEST_F(bootloadDialogueTest, ARepeatedReplyIsNoConfirmation) {
    // Only status requests are answered: with what the module said to the request before.
    answer(
        [&](Request request, int) { return request == STATUS ? Replies{status(dialogue::OK)} : Replies{}; });
    EXPECT_EQ(talk.startPage(CAN_MODULE, page, true), dialogue::OK); // its rows prove it, or not
    EXPECT_EQ(talk.eraseBlock(CAN_MODULE, 0, 1, true), dialogue::ERASEERR);
    EXPECT_EQ(talk.eraseAll(CAN_MODULE), dialogue::ERASEERR);
    EXPECT_EQ(talk.sendRows(CAN_MODULE, oneRow), dialogue::OK);
    EXPECT_FALSE(talk.sendPageWrite(CAN_MODULE)) << "of a single row";
    EXPECT_EQ(talk.sendRecord(CAN_MODULE, oneRow), dialogue::MISSEDPACKET);
}

TEST_F(bootloadDialogueTest, ALostReplyIsAskedFor) {
    for (const Request lost : {START, ROW, WRITE}) {
        std::uint16_t row = 0;
        answer([&](Request request, int nth) -> std::optional<Replies> {
            row = request == ROW ? static_cast<std::uint16_t>(nth - 1) : row;
            if (request == STATUS) {
                return Replies{status(dialogue::OK, lost == ROW ? row : std::uint16_t{0})};
            }
            return request == lost && nth == 1 ? std::optional(Replies()) : std::nullopt;
        });
        const int before = sentOf(lost);
        EXPECT_EQ(talk.startPage(CAN_MODULE, page, true), dialogue::OK);
        EXPECT_EQ(talk.sendRows(CAN_MODULE, {page.data.begin(), page.data.begin() + 14}), dialogue::OK);
        EXPECT_TRUE(talk.sendPageWrite(CAN_MODULE));
        EXPECT_EQ(sentOf(lost) - before, lost == ROW ? 2 : 1);
    }
}

TEST_F(bootloadDialogueTest, DoubledRepliesPutNothingOutOfStep) {
    bus.autoAnswer([&](const Frame& frame) {
        const Request request = kindOf(frame);
        const Frame once = status(dialogue::OK, request == ROW ? frame.payload[0] : std::uint16_t{0});
        return Replies{once, once};
    });
    for (int n = 0; n < 3; ++n) {
        EXPECT_EQ(talk.startPage(CAN_MODULE, page, true), dialogue::OK);
        EXPECT_EQ(talk.sendRows(CAN_MODULE, {page.data.begin(), page.data.begin() + 70}), dialogue::OK);
        EXPECT_TRUE(talk.sendPageWrite(CAN_MODULE));
    }
}

TEST_F(bootloadDialogueTest, APageIsIgnoredOnlyOnItsOwnWord) {
    // The start is lost, and the module repeats what it said of the page before.
    answer([&](Request request, int nth) -> std::optional<Replies> {
        if (request == STATUS) {
            return Replies{status(dialogue::IGNOREPG)};
        }
        return request == START && nth == 1 ? std::optional(Replies()) : std::nullopt;
    });
    EXPECT_EQ(talk.startPage(CAN_MODULE, page, true), dialogue::OK);
    EXPECT_EQ(sentOf(START), 2);
}

TEST_F(bootloadDialogueTest, AnIdentificationIsWaitedFor) {
    const Replies none;
    const Replies own = {identification(CAN_MODULE, 3, "1.2.3", 4)};
    const Replies another = {identification(CAN_MODULE + 1, 1, "9.9.9")};
    const Replies missed = {status(dialogue::MISSEDPACKET)};
    const Replies old = {status(dialogue::OK)};
    const Replies oldAndShort = {{3, {0, 0}}};
    const Replies anothersOld = {reply(0, 0, CAN_MODULE + 1)};
    const struct {
        const char* name;
        int early; ///< requests that are answered with `before`, the others with `then`
        Replies before;
        Replies then;
        Replies toStatus;
        bool entered;
        bool identified;
        int requests;
    } rows[] = {
        {"at once", 0, none, own, own, true, true, 1},
        {"lost twice, the status answered", 2, none, own, missed, true, true, 3},
        {"lost twice, the status answered well", 2, none, own, old, true, true, 3},
        {"always lost, the status answered", ALWAYS, none, none, missed, false, false, 4},
        {"another module's first", 1, another, own, own, true, true, 2},
        {"another module's, then an old bootloader's reply", 1, another, old, old, true, false, 2},
        {"an old bootloader", 0, none, old, old, true, false, 1},
        {"behind a reply", 1, {old[0], own[0]}, own, own, true, true, 2},
        {"an old bootloader with short replies", 0, none, oldAndShort, oldAndShort, true, false, 1},
        {"another module's reply", 0, none, anothersOld, anothersOld, false, false, 4},
    };
    for (const auto& row : rows) {
        bootloadDialogue fresh(core.get(), "");
        answer([&row](Request request, int nth) {
            return request == STATUS ? row.toStatus : nth <= row.early ? row.before : row.then;
        });
        const int before = sentOf(ENTER);
        EXPECT_EQ(fresh.enterBootloader(CAN_MODULE), row.entered) << row.name;
        EXPECT_EQ(core->bootloader.blInitData, row.identified) << row.name;
        EXPECT_EQ(sentOf(ENTER) - before, row.requests) << row.name;
    }
}

} // namespace
