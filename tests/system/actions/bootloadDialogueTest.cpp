#include "system/actions/bootloadDialogue.h"

#include "scriptedHost.h"

#include <gtest/gtest.h>

namespace {

using namespace bootloadTiming;
using namespace std::chrono_literals;
using PROOF = bootloadDialogue::PROOF;
using REQUEST = bootloadDialogue::REQUEST;

constexpr std::uint8_t MODULE = scriptedHost::MODULE;

/** Requests by a letter: S, R and its number, W, E, A; s and r of a page of one row, m a record's only row.
 */
REQUEST requestOf(const std::string& word) {
    const std::vector<std::uint8_t> bytes(100);
    REQUEST request;
    request.module = MODULE;
    request.work = ROW_WORK;
    switch (word[0]) {
    case 'S':
    case 's':
        request.msg = busMessages::startPage(MODULE, 0, 100, true);
        request.kind = KIND::START;
        request.proof = word[0] == 's' ? PROOF::MARK : PROOF::LATER;
        break;
    case 'W':
        request.msg = busMessages::writePage(MODULE);
        request.kind = KIND::WRITE;
        request.proof = PROOF::NOTHING;
        request.work = WRITE_WORK;
        request.mustBeOk = true;
        request.attempt = word.size() > 1 ? TRIES - 1 : 0;
        break;
    case 'E':
    case 'A':
        request.msg =
            word[0] == 'E' ? busMessages::eraseBlocks(MODULE, 0, 1, true) : busMessages::eraseAll(MODULE);
        request.kind = KIND::ERASE;
        request.proof = PROOF::MARK;
        request.work = eraseWork(word[0] == 'E' ? 1 : 0);
        request.attempt = TRIES - 1;
        break;
    default:
        request.row = word[0] == 'R' ? static_cast<std::uint32_t>(std::stoi(word.substr(1))) : 0;
        request.msg = busMessages::dataRow(request.row, bytes);
        request.kind = KIND::ROW;
        request.proof = word[0] == 'r' ? PROOF::NOTHING : word[0] == 'm' ? PROOF::MARK : PROOF::LATER;
    }
    return request;
}

/** What comes of calls such as ", S R0 W", a word for each; "?" behind it for one that is not certain. */
std::string outcome(bootloadDialogue& dialogue, scriptedHost& host, const std::string& calls) {
    static const char* const ENTRIES[] = {"none", "plain", "another", "own"};
    std::string text;
    std::istringstream words(calls);
    for (std::string word; words >> word;) {
        text += text.empty() ? "" : " ";
        if (word[0] == ',') {
            text += ENTRIES[static_cast<int>(dialogue.enter(word == ",8" ? 8 : MODULE, word != ",any"))];
        } else if (word[0] == '!' || word[0] == '?') {
            text += (word[0] == '!' ? dialogue.sendSystemCommand(MODULE, '!') : dialogue.sendReqStat(MODULE))
                        ? "yes"
                        : "no";
        } else if (word[0] == '+') {
            host.pause(milliseconds(std::stoi(word)));
            text += "-";
        } else {
            const auto result = dialogue.ask(requestOf(word));
            text += !result.reply               ? result.answered ? "missed" : "none"
                    : result.reply->status == 0 ? "ok"
                                                : std::to_string(result.reply->status);
            text += result.reply && !result.certain ? "?" : "";
        }
    }
    return text;
}

struct CASE {
    const char* name;
    const char* calls;
    const char* script;
    const char* outcome;
    const char* sent;
};

/** Plays every case on a line of its own. */
template <std::size_t N>
void check(const CASE (&cases)[N]) {
    for (const CASE& row : cases) {
        scriptedHost host(row.script);
        bootloadDialogue dialogue(host);
        EXPECT_EQ(outcome(dialogue, host, row.calls), row.outcome) << row.name;
        EXPECT_EQ(host.transcript(), row.sent) << row.name;
    }
}

TEST(bootloadDialogueTest, AnUndisturbedLineCarriesThePlainRequests) {
    const char* const pages = ", S R0 R1 W s r W E A !";
    const char* const sent = ", S R0 R1 W S R0 W E A !";
    const char* const well = "own ok ok ok ok ok ok ok ok ok yes";
    check({
        {"pages", pages, "", well, sent},
        {"records", ", A m W m W !", "", "own ok ok ok ok ok yes", ", A R0 W R0 W !"},
        {"an old bootloader", pages, ",: plain", "plain ok ok ok ok ok ok ok ok ok yes", sent},
        {"replies that name nobody", pages, "S: short; R: short; W: short; E: short; A: short", well, sent},
        {"another name from the first reply on", pages, "S: by8; R: by8; W: by8; E: by8; A: by8", well, sent},
        {"slow, but no slower than is waited", pages, "S: work45; R: work45; W: work90; E: work45; A: work45",
         well, sent},
        {"refusals", ", S S R0 W E", "S: =6 ok; R: =1; W: =4; E: =5", "own 6 ok 1 missed 5",
         ", S S R0 W W W W E"},
        {"a write refused once", ", S R0 R1 W", "W: =4 ok", "own ok ok ok ok", ", S R0 R1 W W"},
    });
}

TEST(bootloadDialogueTest, WhoseAnAnswerIsDecides) {
    check({
        {"a row's lost reply", ", S R0 R1", "R: ok lost ok", "own ok ok ok", ", S R0 R1 ?"},
        {"an unheard row", ", S R0 R1", "R: ok deaf ok", "own ok ok ok", ", S R0 R1 ?+ R1"},
        {"a write's lost reply", ", S R0 R1 W", "W: lost ok", "own ok ok ok ok", ", S R0 R1 W ?"},
        {"an unheard write", ", S R0 R1 W", "W: deaf ok", "own ok ok ok ok", ", S R0 R1 W ?+ W"},
        {"a start's lost reply", ", S R0 R1 W S", "S: ok lost ok", "own ok ok ok ok ok?", ", S R0 R1 W S ?+"},
        {"an unheard start: the row shows it", ", S R0 R1 W S R0", "S: ok deaf; R: ok ok =2+row1",
         "own ok ok ok ok ok? missed", ", S R0 R1 W S ?+ R0 ? R0 R0 R0"},
        {"the first start unheard", ", S", "S: deaf ok", "own ok", ", S ?+ S"},
        {"one row, the write's lost reply", ", s r W", "W: lost ok", "own ok ok ok", ", S R0 W ?+ W"},
        {"one row, the write never answered directly", ", s r W", "W: lost", "own ok ok ok?",
         ", S R0 W ?+ W ?+ W ?+ W ?+"},
        {"the same at the page's last attempt", ", s r W3", "W: lost", "own ok ok ok?", ", S R0 W ?+"},
        {"the same where such replies came before", ", s r W s r W", "W: ok lost",
         "own ok ok ok ok ok missed", ", S R0 W S R0 W ?+ W ?+ W ?+ W ?+"},
        {"one row, its lost reply", ", s r W", "R: lost ok", "own ok ok ok", ", S R0 ?+ R0 W"},
        {"a lost refusal", ", s r W", "W: =4+lost ok", "own ok ok ok", ", S R0 W ? W"},
        {"a refusal by status only", ", S", "S: =4+lost", "own 4?", ", S ?+ S ?+ S ?+ S ?+"},
        {"an unheard erase", ", E", "E: deaf ok", "own ok", ", E ? M ? M ? E"},
        {"an erase's lost replies", ", E", "E: lost", "own ok", ", E ? M ? M ? E ?"},
        {"a failed erase's lost replies", ", E", "E: =5+lost", "own 5", ", E ? M ? M ? E ?"},
        {"an erase never heard", ", E", "E: deaf", "own 2?", ", E ? M ? M ? E ? M ? M ? E ? M ? M ? E ? M ?"},
        {"the same behind one with a direct reply", ", E E", "E: ok deaf", "own ok missed",
         ", E E ? M ? M ? E ? M ? M ? E ? M ? M ? E ? M ?"},
        {"a status that is always OK", ", E", "E: deaf; ?: =0", "own ok?",
         ", E ? M ? M ? M M E ? M ? M ? M M E ? M ? M ? M M E ? M ?"},
        {"a mark's reply like the erase's", ", E", "E: deaf ok; M: =0", "own ok", ", E ? M ?+ M E"},
        {"no reply to marks", ", E", "E: deaf ok; M: deaf", "own ok", ", E ? M ?+ M E"},
        {"an unheard start of one row", ", s", "S: deaf deaf ok", "own ok", ", S ? M ? M ? S ? M ? M ? S"},
        {"an unheard record of one row", ", A m W m", "R: ok deaf ok", "own ok ok ok ok",
         ", A R0 W R0 ? M ? M ? R0"},
        {"a slow write", ", S R0 R1 W", "W: work2500", "own ok ok ok ok", ", S R0 R1 W ?+"},
        {"a slow write in silence", ", S R0 R1 W", "W: busy2500", "own ok ok ok ok", ", S R0 R1 W ?+"},
        {"a slow erase", ", S R5 E", "E: busy800", "own ok ok ok", ", S R5 E ?+"},
        {"late replies to rows", ", S R0 R1 R2 W", "R: late100", "own ok ok ok ok ok",
         ", S R0 ? R1 ? R2 ? W"},
        {"a late reply, then an unheard start", ", S R0 R1 W s", "W: late200; S: ok deaf ok",
         "own ok ok ok ok ok", ", S R0 R1 W ? S ? M ? M ? S"},
        {"a late reply that is out of the way", ", S R0 R1 W +600 S", "W: lost", "own ok ok ok ok - ok",
         ", S R0 R1 W ? S"},
        {"everything doubled", ", S R0 R1 W +10 s r W", "S: twice; R: twice; W: twice",
         "own ok ok ok ok - ok ok ok", ", S R0 R1 W S R0 W"},
        {"a doubled reply, then an unheard erase", ", S R0 R1 W +10 E", "W: twice; E: deaf ok",
         "own ok ok ok ok - ok", ", S R0 R1 W E ? M ? M ? E"},
        {"one row's doubled reply, an unheard write", ", s r W", "R: twice; W: deaf ok", "own ok ok ok",
         ", S R0 W ?+ W"},
        {"another row's reply", ", S R0 R1", "R: ok row7 ok", "own ok ok ok", ", S R0 R1 ?+ R1"},
        {"always another row's reply", ", S R0 R1", "R: ok row7", "own ok ok missed",
         ", S R0 R1 ?+ R1 ?+ R1 ?+ R1 ?+"},
        {"another module's reply", ", S R0 R1", "R: ok by8 ok", "own ok ok ok", ", S R0 R1 ?+ R1"},
    });
}

TEST(bootloadDialogueTest, AModuleIsKnownByWhatItAnswersToEnter) {
    check({
        {"itself, slowly", ",", ",: work1200", "own", ", ?+"},
        {"itself behind a reply", ",", ",: plain|late60", "own", ","},
        {"itself, asked three times", ",", ",: lost lost ok; ?: =0", "own", ", ?+ , ?+ ,"},
        {"itself behind another", ",", ",: id8|late60", "own", ","},
        {"another, and a reply by its own name", ",", ",: id8|plain+late60", "own", ","},
        {"another, and a reply by another name", ",", ",: id8|plain+by8+late60", "another", ","},
        {"another", ",", ",: id8 ok", "another", ","},
        {"whatever it is", ",any", ",: id8", "own", ","},
        {"an old bootloader", ",", ",: plain+by8+row7", "plain", ","},
        {"an old bootloader, short", ",", ",: plain+short", "plain", ","},
        {"an old bootloader, once lost", ",", ",: plain+lost plain", "plain", ", ?+ ,"},
        {"an error, then an old bootloader", ",", ",: plain+=2 plain", "plain", ", ?+ ,"},
        {"nothing but its status", ",", ",: lost", "none", ", ?+ , ?+ , ?+ , ?+"},
        {"the module before, late", ",8 ,", ",: deaf deaf deaf id8+late1000 deaf ok; ?: deaf", "none own",
         ", ?+ , ?+ , ?+ , ?+ , ?+ ,"},
        {"a reply of the module before", ",8 ! ,", ",: id8 plain+by8; !: deaf; ?: deaf", "own no none",
         ", ! ?+ ! ?+ ! ?+ ! ?+ , ?+ , ?+ , ?+ , ?+"},
    });
}

TEST(bootloadDialogueTest, SilenceEndsEveryRequestAfterItsTries) {
    const struct {
        const char* call;
        milliseconds least; ///< 3 passes for each of 4 tries
        milliseconds most;
    } rows[] = {
        {",", 2760ms, 2800ms}, {"!", 2760ms, 2800ms}, {"S", 600ms, 10s},  {"s", 600ms, 11s},
        {"R7", 600ms, 10s},    {"m", 600ms, 11s},     {"W", 1200ms, 14s}, {"W3", 1200ms, 15s},
        {"E", 600ms, 13s},     {"A", 30s, 40s},
    };
    for (const auto& row : rows) {
        scriptedHost host(",: deaf; !: deaf; S: deaf; R: deaf; W: deaf; E: deaf; A: deaf; M: deaf; ?: deaf");
        bootloadDialogue dialogue(host);
        const auto start = host.time;
        EXPECT_EQ(outcome(dialogue, host, row.call), row.call[0] == '!' ? "no" : "none") << row.call;
        EXPECT_GE(host.time - start, row.least) << row.call;
        EXPECT_LE(host.time - start, row.most) << row.call;
        const auto isTry = [&](const auto& sent) {
            return sent.second.id == host.sent[0].second.id &&
                   std::equal(sent.second.data, sent.second.data + 8, host.sent[0].second.data);
        };
        EXPECT_EQ(std::count_if(host.sent.begin(), host.sent.end(), isTry), TRIES) << row.call;
    }
}

TEST(bootloadDialogueTest, ASessionIsKeptAliveWhileALostReplyIsWaitedOut) {
    for (const char* script :
         {"S: ok lost ok", "S: ok deaf ok", "R: ok lost ok", "R: ok deaf ok", "W: lost ok", "W: deaf ok",
          "W: late450 ok", "E: lost ok", "E: deaf ok", "A: lost ok", "A: deaf ok"}) {
        scriptedHost host(script);
        bootloadDialogue dialogue(host);
        EXPECT_EQ(outcome(dialogue, host, ", A S R0 R1 W").find("missed"), std::string::npos) << script;
        outcome(dialogue, host, "E S R0 R1 W s");
        for (std::size_t n = 1; n < host.sent.size(); ++n) {
            EXPECT_LT(host.sent[n].first - host.sent[n - 1].first, 300ms) << script << ", request " << n;
        }
    }
}

TEST(bootloadDialogueTest, ACancelEndsEveryWaitAtOnce) {
    const char* const scripts[] = {",: deaf ok; ?: deaf", "W: late450; E: late300; A: busy900",
                                   "S: lost ok; R: deaf ok; W: lost ok; E: deaf ok; A: lost ok; !: lost"};
    for (const std::string script : scripts) {
        for (milliseconds cancel = 1014ms; cancel < 7s; cancel += 17ms) {
            scriptedHost host(script);
            bootloadDialogue dialogue(host);
            host.cancelTime = cancel;
            std::istringstream calls(", S R0 R1 W E s m W A !");
            for (std::string call; !host.cancelled() && calls >> call;) {
                outcome(dialogue, host, call);
            }
            const auto isLate = [&](const auto& sent) { return sent.first >= cancel; };
            EXPECT_LE(std::count_if(host.sent.begin(), host.sent.end(), isLate), 1)
                << script << cancel.count();
            EXPECT_LE(host.time, cancel + LINGER) << script << cancel.count();
        }
    }
}

} // namespace
