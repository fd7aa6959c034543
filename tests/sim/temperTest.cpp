#include "sim/busProcessor.h"
#include "support/table.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <unistd.h>

namespace sim {
namespace {

using std::chrono::milliseconds;

constexpr std::uint8_t MODULE = 13;
constexpr milliseconds AFTERWARDS(400);

/** One module behind the bus processor; what it answers is written down with its time. */
class ModuleOnBus {
public:
    ModuleOnBus(const std::string& keys, const std::string& faultTexts)
        : trace_("", START),
          faults_(1),
          bus_(inventory(keys), withFaults(faultTexts), scheduler_, trace_,
               [this](const Bytes& frame, TimePoint when) { note(frame, when); },
               {std::chrono::microseconds(0), milliseconds(0)}) {
        bus_.start(START);
    }

    /** "MS VERB [NUMBER]" with commas between; what was answered until a while after the last one. */
    std::string play(const std::string& script) {
        std::istringstream steps(script);
        TimePoint now = START;
        for (std::string step; std::getline(steps, step, ',');) {
            std::istringstream words(step);
            long at = 0;
            unsigned number = 0;
            std::string verb;
            words >> at >> verb >> number;
            now = START + milliseconds(at);
            scheduler_.run(now);
            bus_.receive(*decode(encode(request(verb, number))), now);
        }
        scheduler_.run(now + AFTERWARDS);
        return answers_;
    }

    unsigned written() const { return bus_.modules()[0]->bootloader().written(); }

private:
    static constexpr TimePoint START{std::chrono::hours(1)};

    static std::vector<ModuleConfig> inventory(const std::string& keys) {
        std::string file = testing::TempDir() + "inventory.XXXXXX";
        ::close(::mkstemp(file.data()));
        const bool isJson = keys.starts_with('{');
        std::ofstream(file) << (isJson ? "{\"mf1\": " : "mf1 ") << keys << (isJson ? "}\n" : "\n");
        auto modules = loadInventory(file);
        std::remove(file.c_str());
        return modules;
    }

    FaultScript& withFaults(const std::string& texts) {
        std::istringstream stream(texts);
        for (std::string text; std::getline(stream, text, ';');) {
            faults_.add(text);
        }
        return faults_;
    }

    static Message request(const std::string& verb, unsigned number) {
        const auto low = static_cast<std::uint8_t>(number);
        const Bytes row{low, 1, 2, 3, 4, 5, 6, 7};
        const std::pair<const char*, Message> known[] = {
            {"enter", {id::SYSTEM_COMMAND, {MODULE, argument::ENTER}}},
            {"leave", {id::SYSTEM_COMMAND, {MODULE, argument::LEAVE}}},
            {"start", {id::COMMAND, {MODULE, command::START_PAGE, 0, 0, 0, low, 0, 8}}},
            {"row", {id::ROW, row}},
            {"write", {id::COMMAND, {MODULE, command::WRITE_PAGE}}},
            {"status", {id::COMMAND, {MODULE, command::STATUS}}},
            {"erase", {id::COMMAND, {MODULE, command::ERASE_BLOCKS, 0, 0, low, 0, 0, 8}}},
            {"erase-all", {id::COMMAND, {MODULE, command::ERASE_ALL, 0, 0, 0, 0, 0, 0}}},
        };
        for (const auto& [name, message] : known) {
            if (verb == name) {
                return message;
            }
        }
        throw std::invalid_argument(verb);
    }

    /** "MS STATUS/ROW", "MS id/MODULE", "MS hw/REVISION" or "MS damaged". */
    void note(const Bytes& bytes, TimePoint when) {
        const auto frame = decode(bytes);
        const long long at = std::chrono::duration_cast<milliseconds>(when - START).count();
        answers_ += answers_.empty() ? "" : ", ";
        answers_ += std::to_string(at) + ' ' +
                    (frame && frame->kind == Frame::Kind::Good ? text(frame->message) : "damaged");
    }

    static std::string text(const Message& message) {
        const Bytes& p = message.payload;
        if (message.id == id::IDENTIFICATION) {
            return format("id/%u", p[5]);
        }
        if (message.id == id::MODULE_IDENTITY) {
            return format("hw/%u", p[11]);
        }
        if (p.size() != 4) {
            return toHex(p);
        }
        return format("%s/%u", nameOf(static_cast<Status>(p[0])), p[1]) +
               (p[3] == MODULE ? "" : format("/%u", p[3]));
    }

    Trace trace_;
    FaultScript faults_;
    Scheduler scheduler_;
    std::string answers_;
    BusProcessor bus_;
};

// Keys of the module | faults | what it is asked, and when | what it answers, and when | pages written. PAGE
// is a page of two rows, its write at 40; ROWS what is answered before that.
void playAll(const std::string& table) {
    for (auto& row : rowsOf(table)) {
        const auto expand = [](std::string& cell, const std::string& word, const std::string& meaning) {
            const std::size_t at = cell.find(word);
            if (at != std::string::npos)
                cell.replace(at, word.size(), meaning);
        };
        expand(row[2], "PAGE", "0 enter, 10 start 14, 20 row 0, 30 row 1, 40 write");
        expand(row[3], "ROWS", "0 id/13, 10 OK/0, 20 OK/0, 30 OK/1");
        ModuleOnBus bus(row[0], row[1]);
        EXPECT_EQ(bus.play(row[2]), row[3]) << row[0] << "; " << row[1];
        EXPECT_EQ(std::to_string(bus.written()), row[4]) << row[0] << "; " << row[1];
    }
}

TEST(temperTest, WorkTakesItsTime) {
    playAll(R"(
    kind=stm32f3 |  | PAGE, 50 status, 60 write | ROWS, 40 OK/0, 50 OK/0, 60 OK/0 | 1
    kind=stm32f3 enter-ms=1 start-ms=2 row-ms=3 write-ms=4 |  | PAGE | 1 id/13, 12 OK/0, 23 OK/0, 33 OK/1, 44 OK/0 | 1
    kind=stm32f4 erase-page-ms=5 erase-all-ms=6 |  | 0 enter, 10 erase 2, 30 erase-all | 0 id/13, 20 OK/0, 36 OK/0 | 0
    # nothing is left to write the second time
    kind=stm32f3 write-ms=50 |  | PAGE, 100 write | ROWS, 90 OK/0, 100 OK/0 | 1
    # on its way an answer keeps nobody from asking on
    kind=stm32f3 latency-ms=15 |  | PAGE | 15 id/13, 25 OK/0, 35 OK/0, 45 OK/1, 55 OK/0 | 1
    # power that goes takes along what was begun and what waits
    kind=stm32f3 enter-ms=5 write-ms=50 | power-cycle on=start nth=2 ms=5 | PAGE, 50 status, 60 start 7, 70 enter, 80 write | 5 id/13, 10 OK/0, 20 OK/0, 30 OK/1, 75 id/13, 80 MISSEDPACKET/0 | 0
    )");
}

TEST(temperTest, RequestsMeetABusyModule) {
    playAll(R"(
    kind=stm32f3 write-ms=50 |  | PAGE, 50 status, 60 start 7 | ROWS, 90 OK/0, 90 OK/0, 90 OK/0 | 1
    kind=stm32f3 row-ms=50 |  | 0 enter, 10 start 7, 20 row 0, 30 write | 0 id/13, 10 OK/0, 70 OK/0, 70 OK/0 | 1
    kind=stm32f3 write-ms=50 busy=drop |  | PAGE, 50 status, 60 start 7, 95 status | ROWS, 90 OK/0, 95 OK/0 | 1
    kind=stm32f3 write-ms=50 busy=answer |  | PAGE, 50 status, 60 start 7 | ROWS, 50 OK/1, 90 OK/0 | 1
    kind=stm32f3 write-ms=50 busy=answer on-status=state |  | PAGE, 50 status, 95 status | ROWS, 50 BADCHECKSUM/0, 90 OK/0, 95 OK/1 | 1
    kind=stm32f3 write-ms=50 busy=answer on-status=nothing |  | PAGE, 50 status, 95 status | ROWS, 90 OK/0 | 1
    # it is in its application until it has entered
    kind=stm32f3 enter-ms=50 busy=answer |  | 0 enter, 10 status | 50 id/13 | 0
    )");
}

TEST(temperTest, ResultsComeDirectlyOrOnAStatusRequest) {
    playAll(R"(
    kind=stm32f3 write-ms=50 write-answer=status |  | PAGE, 50 status, 95 status | ROWS, 90 OK/0, 95 OK/0 | 1
    kind=stm32f3 write-answer=status on-status=state | write-error | PAGE, 50 status, 60 status | ROWS, 50 WRITEERR/0, 60 OK/1 | 0
    kind=stm32f3 write-ms=50 write-answer=status busy=answer | write-error | PAGE, 50 status, 95 status | ROWS, 50 OK/1, 95 WRITEERR/0 | 0
    kind=stm32f3 write-answer=status on-status=nothing |  | PAGE, 50 status | ROWS | 1
    kind=stm32f3 write-ms=50 write-answer=at-once busy=drop |  | PAGE, 50 start 7, 95 start 7 | ROWS, 40 OK/0, 95 OK/0 | 1
    # what was answered too early comes out later, and a repeated write does not say OK again
    kind=stm32f3 write-ms=50 write-answer=at-once | write-error | PAGE, 95 status, 99 write | ROWS, 40 OK/0, 95 WRITEERR/0, 99 WRITEERR/0 | 0
    kind=stm32f3 write-answer=at-once on-status=state | write-error | PAGE, 95 status, 99 status | ROWS, 40 OK/0, 95 WRITEERR/0, 99 OK/1 | 0
    # a failure that nobody asked for is forgotten with the next request
    kind=stm32f4 erase-answer=status on-status=state | erase-error | 0 enter, 10 erase 1, 20 start 7, 30 status | 0 id/13, 20 OK/0, 30 OK/0 | 0
    kind=stm32f4 erase-all-ms=50 erase-answer=at-once | erase-error | 0 enter, 10 erase-all, 20 status | 0 id/13, 10 OK/0, 60 ERASEERR/0 | 0
    kind=stm32f3 start-answer=status row-answer=status on-status=state |  | 0 enter, 10 start 14, 15 status, 20 row 0, 30 row 1, 35 status, 40 row 3, 45 status, 50 status, 60 write | 0 id/13, 15 OK/0, 35 OK/1, 45 MISSEDPACKET/1, 50 OK/1, 60 OK/0 | 1
    )");
}

TEST(temperTest, RowsComeOutOfOrder) {
    playAll(R"(
    kind=stm32f3 |  | 0 enter, 10 start 7, 20 row 2, 30 row 0, 40 write, 50 row 1 | 0 id/13, 10 OK/0, 20 MISSEDPACKET/0, 30 OK/0, 40 OK/0, 50 MISSEDPACKET/0 | 1
    # the status request behind it gets what was answered last
    kind=stm32f3 out-of-order=silent |  | 0 enter, 10 start 7, 20 row 2, 25 status, 30 row 0, 40 write, 50 row 1, 55 status | 0 id/13, 10 OK/0, 25 OK/0, 30 OK/0, 40 OK/0, 55 OK/0 | 1
    # a page that was written before speaks for the one that was dropped
    kind=stm32f3 out-of-order=drops |  | 0 enter, 10 start 7, 20 row 2, 30 row 0, 40 write, 50 start 7, 60 row 0, 70 write, 80 start 7, 90 row 0, 95 row 2, 99 write | 0 id/13, 10 OK/0, 20 MISSEDPACKET/0, 30 MISSEDPACKET/0, 40 MISSEDPACKET/0, 50 OK/0, 60 OK/0, 70 OK/0, 80 OK/0, 90 OK/0, 95 MISSEDPACKET/0, 99 OK/0 | 1
    )");
}

TEST(temperTest, RepliesOfOtherForms) {
    playAll(R"(
    renames=1 rows=any write-again=error kind=stm32f3 |  | 0 enter, 10 start 14, 20 row 1, 30 row 0, 40 write, 50 write | 0 id/13, 10 OK/0, 20 OK/1, 30 OK/0, 40 OK/0/1, 50 MISSEDPACKET/0/1 | 1
    names=1 identifies=99 kind=stm32f3 |  | 0 enter, 10 status | 0 id/99, 10 MISSEDPACKET/0/1 | 0
    reply=short kind=stm32f3 |  | 0 enter, 10 status | 0 id/13, 10 0200 | 0
    reply-length=3 kind=stm32f3 |  | 0 enter, 10 status | 0 id/13, 10 020000 | 0
    reply-length=6 kind=stm32f3 |  | 0 enter, 10 status, 20 leave | 0 id/13, 10 0200000D0000, 20 0000000D0000 | 0
    kind=pic24-old enter-row=258 names=0 reply-length=5 |  | 0 enter, 10 status | 0 0002010000, 10 0002010000 | 0
    )");
}

TEST(temperTest, SessionsBeginAndEnd) {
    playAll(R"(
    kind=pic24-old enter-nth=2 |  | 0 enter, 10 status, 20 enter, 30 status, 40 enter | 20 OK/0, 30 OK/0, 40 OK/0 | 0
    {"simulation": {"enter-nth": 2, "deaf": false, "ignore": ["0"]}, "kind": "pic24-old"} |  | 0 enter, 10 status, 20 enter | 20 OK/0 | 0
    kind=pic24-old enter-answer=silent enter-row=5 |  | 0 enter, 10 status | 10 MISSEDPACKET/0 | 0
    # the count begins anew with the power
    kind=pic24-old enter-nth=2 | power-cycle on=status ms=5 | 0 enter, 10 enter, 20 status, 30 enter, 40 enter | 10 OK/0, 40 OK/0 | 0
    kind=stm32f3 deaf |  | 0 enter, 10 start 7, 20 enter, 30 row 0, 40 leave, 50 enter | 0 id/13, 10 OK/0, 30 OK/0, 40 OK/0, 50 id/13 | 0
    # work is no silence, but what follows it is; every request puts the end off
    kind=stm32f3 idle-ms=100 write-ms=300 |  | PAGE, 445 status | ROWS, 340 OK/0 | 1
    kind=stm32f3 idle-ms=100 write-ms=300 |  | PAGE, 430 status, 520 status, 621 status, 630 enter | ROWS, 340 OK/0, 430 OK/0, 520 OK/0, 630 id/13 | 1
    )");
}

TEST(temperTest, RestlessModules) {
    playAll(R"(
    kind=stm32f3 restart-after=1 |  | PAGE, 50 status, 60 start 7, 70 row 0, 80 write | ROWS, 40 OK/0, 40 id/13, 50 MISSEDPACKET/0, 60 OK/0, 70 OK/0, 80 OK/0 | 2
    kind=stm32f3 babble-ms=20 |  | 25 enter, 50 leave | 25 id/13, 40 OK/0, 50 OK/0 | 0
    identity-ms=300 identity-hw=3,4 kind=stm32f3 |  | 0 enter, 500 leave | 0 id/13, 300 hw/3, 500 OK/0, 600 hw/4, 900 hw/3 | 0
    )");
}

TEST(temperTest, BytesAreDamagedOnTheirWay) {
    playAll(R"(
    kind=stm32f3 | flip-request on=start at=7 bit=0 | 0 enter, 10 start 7, 20 status | 0 id/13, 20 MISSEDPACKET/0 | 0
    kind=stm32f3 | drop-byte-request on=start | 0 enter, 10 start 7, 20 status | 0 id/13, 20 MISSEDPACKET/0 | 0
    kind=stm32f3 | insert-byte-request on=start at=8 | 0 enter, 10 start 7, 20 status | 0 id/13, 20 MISSEDPACKET/0 | 0
    # the closing bytes say nothing
    kind=stm32f3 | flip-request on=start at=17 | 0 enter, 10 start 7, 20 status | 0 id/13, 10 OK/0, 20 OK/0 | 0
    kind=stm32f3 | drop-byte on=start | 0 enter, 10 start 7, 20 status | 0 id/13, 10 damaged, 20 OK/0 | 0
    kind=stm32f3 | cut on=start at=1; flip on=start | 0 enter, 10 start 7, 20 status | 0 id/13, 10 damaged, 20 OK/0 | 0
    kind=stm32f3 | insert-byte on=start at=5 value=4 | 0 enter, 10 start 7, 20 status | 0 id/13, 10 damaged, 20 OK/0 | 0
    )");
}

} // namespace
} // namespace sim
