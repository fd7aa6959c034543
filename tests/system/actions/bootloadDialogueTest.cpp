#include "system/actions/bootloadDialogue.h"

#include "scriptedHost.h"

#include <gtest/gtest.h>

namespace {

using namespace bootloadTiming;
using namespace std::chrono_literals;
using namespace busMessages;
using PROOF = bootloadDialogue::PROOF;
using REQUEST = bootloadDialogue::REQUEST;

constexpr std::uint8_t MODULE = ScriptedHost::MODULE;

/** Requests by a letter: S, R and its number, W, E, A; s, r and w of a page of one row, w when that is begun
 * for the third time; m a record's only row. */
REQUEST requestOf(const std::string& word) {
    const std::uint32_t row = word[0] == 'R' ? static_cast<std::uint32_t>(std::stoi(word.substr(1))) : 0;
    const PROCBUS_MSG start = startPage(MODULE, 0, 100, true);
    const PROCBUS_MSG rowMsg = dataRow(row, std::vector<std::uint8_t>(100));
    const struct {
        char letter;
        PROCBUS_MSG msg;
        KIND kind;
        PROOF proof;
        milliseconds work;
    } kinds[] = {
        {'S', start, KIND::START, PROOF::LATER, ROW_WORK},
        {'s', start, KIND::START, PROOF::MARK, ROW_WORK},
        {'R', rowMsg, KIND::ROW, PROOF::LATER, ROW_WORK},
        {'r', rowMsg, KIND::ROW, PROOF::NOTHING, ROW_WORK},
        {'m', rowMsg, KIND::ROW, PROOF::MARK, ROW_WORK},
        {'W', writePage(MODULE), KIND::WRITE, PROOF::NOTHING, WRITE_WORK},
        {'w', writePage(MODULE), KIND::WRITE, PROOF::NOTHING, WRITE_WORK},
        {'E', eraseBlocks(MODULE, 0, 1, true), KIND::ERASE, PROOF::MARK, eraseWork(1)},
        {'A', eraseAll(MODULE), KIND::ERASE, PROOF::MARK, eraseWork(0)},
    };
    const auto& kind =
        *std::find_if(std::begin(kinds), std::end(kinds), [&](const auto& k) { return k.letter == word[0]; });
    REQUEST request;
    request.msg = kind.msg;
    request.module = MODULE;
    request.kind = kind.kind;
    request.row = row;
    request.proof = kind.proof;
    request.work = kind.work;
    request.mustBeOk = kind.kind == KIND::WRITE;
    if (kind.letter == 'w') {
        request.attempt = 2;
        request.onlyRow = rowMsg;
    }
    return request;
}

/** What comes of a call: a letter as above, "," enter, "!" leave, "?" status, "+20" wait. */
std::string outcome(bootloadDialogue& dialogue, ScriptedHost& host, const std::string& call) {
    static const char* const ENTRIES[] = {"none", "plain", "another", "own"};
    switch (call[0]) {
    case ',': {
        const auto entry = dialogue.enter(call == ",8" ? 8 : MODULE, call != ",any", call != ",lax");
        return ENTRIES[static_cast<int>(entry)] + std::string(dialogue.isPlainByErrors() ? "-by-errors" : "");
    }
    case '!':
        return dialogue.sendSystemCommand(MODULE, '!') ? "yes" : "no";
    case '?':
        return dialogue.sendReqStat(MODULE) ? "yes" : "no";
    case '+':
        host.pause(milliseconds(std::stoi(call)));
        return "-";
    default:
        const auto result = dialogue.ask(requestOf(call));
        if (!result.reply) {
            return result.answered ? "missed" : "none";
        }
        return (result.reply->status == 0 ? "ok" : std::to_string(result.reply->status)) +
               (result.certain ? "" : "?");
    }
}

/** Plays calls such as ", S R0 W". */
std::string play(bootloadDialogue& dialogue, ScriptedHost& host, const std::string& calls) {
    std::string text;
    std::istringstream words(calls);
    for (std::string call; !host.cancelled() && words >> call;) {
        text += (text.empty() ? "" : " ") + outcome(dialogue, host, call);
    }
    return text;
}

/** Plays the rows of a table: what it is about | calls | script | what comes of the calls | what is sent. */
void check(const std::string& table) {
    for (const auto& row : rowsOf(table)) {
        ScriptedHost host(row[2]);
        bootloadDialogue dialogue(host);
        EXPECT_EQ(play(dialogue, host, row[1]), row[3]) << row[0];
        EXPECT_EQ(host.transcript(), row[4]) << row[0];
    }
}

TEST(bootloadDialogueTest, AnUndisturbedLineCarriesThePlainRequests) {
    check(R"(
    pages | , S R0 R1 W s r W E A ! |  | own ok ok ok ok ok ok ok ok ok yes | , S R0 R1 W S R0 W E A !
    records | , A m W m W ! |  | own ok ok ok ok ok yes | , A R0 W R0 W !
    an old bootloader | , S R0 R1 W s r W E A ! | ,: plain | plain ok ok ok ok ok ok ok ok ok yes | , S R0 R1 W S R0 W E A !
    replies that name nobody | , S R0 R1 W s r W E A ! | S: short; R: short; W: short; E: short; A: short | own ok ok ok ok ok ok ok ok ok yes | , S R0 R1 W S R0 W E A !
    replies by another name | , S R0 R1 W s r W E A ! | S: by8; R: by8; W: by8; E: by8; A: by8 | own ok ok ok ok ok ok ok ok ok yes | , S R0 R1 W S R0 W E A !
    slowly | , S R0 R1 W s r W E A ! | S: work45; R: work45; W: work90; E: work45; A: work45 | own ok ok ok ok ok ok ok ok ok yes | , S R0 R1 W S R0 W E A !
    refusals | , S S R0 W E | S: =6 ok; R: =1; W: =4; E: =5 | own 6 ok 1 missed 5 | , S S R0 W W W W E
    a write refused once | , S R0 R1 W | W: =4 ok | own ok ok ok ok | , S R0 R1 W W
    )");
}

TEST(bootloadDialogueTest, WhoseAnAnswerIsDecides) {
    check(R"(
    a row's lost reply | , S R0 R1 | R: ok lost ok | own ok ok ok | , S R0 R1 ?
    an unheard row | , S R0 R1 | R: ok deaf ok | own ok ok ok | , S R0 R1 ? R1
    a write's lost reply | , S R0 R1 W | W: lost ok | own ok ok ok ok | , S R0 R1 W ?
    an unheard write | , S R0 R1 W | W: deaf ok | own ok ok ok ok | , S R0 R1 W ? W
    a start's lost reply | , S R0 R1 W S | S: ok lost ok | own ok ok ok ok ok? | , S R0 R1 W S ?
    an unheard start: the row shows it | , S R0 R1 W S R0 | S: ok deaf; R: ok ok =2+row1 | own ok ok ok ok ok? missed | , S R0 R1 W S ? R0 ? R0 R0 R0
    the first start unheard | , S | S: deaf ok | own ok | , S ? S
    one row, the write's lost reply | , s r W | W: lost | own ok ok ok | , S R0 W M W ?
    one row, an unheard write | , s r W | W: deaf ok | own ok ok ok | , S R0 W M W
    one row, no write heard | , s r W | W: deaf | own ok ok missed | , S R0 W M W M W M W ?
    only a status tells of a write | , s r W | W: lost; M: deaf | own ok ok ok? | , S R0 W M W M W M W ?
    the same, and a refusal | , s r W | W: =4+lost; M: deaf | own ok ok missed | , S R0 W M W M W M W ?
    only a status tells of a write and of a mark | , s r W | W: lost; M: lost | own ok ok ok | , S R0 W M W ?
    a mark at work, its status an error | , E | E: deaf deaf ok; M: ok work400 ok; ?: =0 =0 =1 =1 =0 | own ok | , E M E M E
    the same error comes twice | , E | E: deaf deaf ok; M: ok work400 ok; ?: =0 =0 =1+twice =1 =0 | own ok | , E M E M E
    the same mark is kept | , A m | R: deaf; M: work350+=0+row2 ok; ?: ok =1 =1 ok | own ok missed | , A R0 M
    a mark in a quiet, refused late | , A | ,: deaf ok; ?: deaf deaf deaf ok; M: late580 ok; A: work180 ok | own ok | , ? , M A M A
    a mark lost, the next in a quiet refused late | , E | ?: ok; E: deaf deaf ok; M: deaf ok late580 ok | own ok | , E M E M E
    a bad line, a doubled reply | , E m W m W m W m W m W m W | E: deaf ok; R: ok ok ok ok ok twice; W: ok ok ok ok ok deaf ok | own ok ok ok ok ok ok ok ok ok ok ok ok ok | , E M E M R0 W R0 W R0 W R0 W R0 W R0 W M W
    a late answer comes twice | , ? E | ?: late100+twice ok; E: deaf ok | own no ok | , M E M E
    one row, behind a mark in time | , s r w | | own ok ok ok | , S R0 M R0 M W
    the same, but a mark costs the page | , s r w s r w E | R: ok =2 ok; E: deaf ok | own ok ok none ok ok ok ok | , S R0 M R0 S R0 W E M E
    the same, but the mark is kept | , s r w | M: =0+row2 | own ok ok none | , S R0 M
    the same, but a second mark is not answered | , s r w | M: ok deaf | own ok ok ok | , S R0 M R0 M W
    a mark costs the page, twice | , s r W s r s r s r W | S: ok lost; R: ok =2 =2 =2 =2 ok | own ok ok ok ok 2 ok 2 ok ok ok | , S R0 W S M S ? R0 M R0 M S ? R0 M R0 ? S ? R0 ? R0 W ? W
    one row, its lost reply | , s r W | R: lost ok | own ok ok ok | , S R0 M R0 W M W
    a lost refusal | , s r W | W: =4+lost ok | own ok ok ok | , S R0 W M W
    a refusal by status only | , S | S: =4+lost | own 4? | , S ? S ? S ? S ?
    an unheard erase | , E | E: deaf ok | own ok | , E M E
    an erase's lost replies | , E | E: lost | own ok | , E M E ?
    a failed erase's lost replies | , E | E: =5+lost | own 5? | , E M E M E M E ?
    an erase never heard | , E | E: deaf | own 2? | , E M E M E M E ?
    the same behind one with a direct reply | , E E | E: ok deaf | own ok missed | , E E M E M E M E ?
    a status that is always OK | , E | E: deaf; ?: =0 | own ok? | , E M E M E M E M
    an answer as late as before needs no status | , E E | E: ok busy300; ?: =0+row4 | own ok ok | , E E M E
    a status that tells of a row | , E E | E: ok busy300 busy500; ?: =0+row4 | own ok ok | , E E M E ?
    at work, and says so by an error | , S R0 R1 W E | W: work800; E: work800; ?: =1 =1 =1 =1 =1 =1 =1 =1 =0 =1 | own ok ok ok ok ok | , S R0 R1 W ? E M E ?
    a mark's reply like the erase's | , E | E: deaf ok; M: =0 | own ok | , E M E
    a mark kept as a row of the page | , S R0 R1 W s r W | S: ok work120 ok; M: =0+row2 | own ok ok ok ok ok ok ok | , S R0 R1 W S M S R0 W
    a mark kept as a row of the record, told late | , A m W m m W | R: ok work120 ok; M: work300+=0+row2 | own ok ok ok missed ok ok | , A R0 W R0 M R0 W
    no reply to marks | , E | E: deaf ok; M: deaf | own ok | , E M E
    an error by itself, the last one lost | , S R0 R1 W | W: =4 =4 =4 lost; ?: =0 | own ok ok ok missed | , S R0 R1 W W W W ?
    an unheard start of one row | , s | S: deaf deaf ok | own ok | , S M S M S
    an unheard record of one row | , A m W m | R: ok deaf ok | own ok ok ok ok | , A R0 W R0 M R0
    a slow write | , S R0 R1 W | W: work2500 | own ok ok ok ok | , S R0 R1 W ?
    a slow write in silence | , S R0 R1 W | W: busy2500 | own ok ok ok ok | , S R0 R1 W ?
    a slow erase | , S R5 E | E: busy800 | own ok ok ok | , S R5 E ?
    late replies to rows | , S R0 R1 R2 W | R: late100 | own ok ok ok ok ok | , S R0 ? R1 R2 W
    a late reply, then an unheard start | , S R0 R1 W s | W: late200; S: ok deaf ok | own ok ok ok ok ok | , S R0 R1 W ? S M S
    a lost reply to a write, then an unheard erase | , S R0 R1 W E | W: lost ok; E: deaf ok | own ok ok ok ok ok | , S R0 R1 W M E M E
    slow erases, their status at once | , E E | E: work800 | own ok ok | , E ? E M
    a late reply that is out of the way | , S R0 R1 W +600 S | W: lost | own ok ok ok ok - ok | , S R0 R1 W ? S
    everything doubled | , S R0 R1 W +10 s r W | S: twice; R: twice; W: twice | own ok ok ok ok - ok ok ok | , S R0 R1 W S R0 W
    a doubled reply, then an unheard erase | , S R0 R1 W +10 E | W: twice; E: deaf ok | own ok ok ok ok - ok | , S R0 R1 W E M E
    one row's doubled reply, an unheard write | , s r W | R: twice; W: deaf ok | own ok ok ok | , S R0 W M W
    another row's reply | , S R0 R1 | R: ok row7 ok | own ok ok ok | , S R0 R1 ? R1
    always another row's reply | , S R0 R1 | R: ok row7 | own ok ok missed | , S R0 R1 ? R1 ? R1 ? R1 ?
    another module's reply | , S R0 R1 | R: ok by8; ?: lost | own ok ok ok? | , S R0 R1 ?
    another name from now on | , S R0 R1 W E | R: ok by8; ?: by8; W: by8; E: by8 | own ok ok ok ok ok | , S R0 R1 ? W E
    )");
}

TEST(bootloadDialogueTest, AModuleIsKnownByWhatItAnswersToEnter) {
    check(R"(
    itself, slowly | , | ,: work1200 | own | , ?
    itself behind a reply | , | ,: plain&late60 | own | ,
    itself, asked three times | , | ,: lost lost ok; ?: =0 | own | , ? , ? ,
    itself behind another | , | ,: id8&late60 | own | ,
    another, and a reply by its own name | , | ,: id8&plain+late60 | another | ,
    another, and a reply by another name | , | ,: id8&plain+by8+late60 | another | ,
    another | , | ,: id8 ok | another | ,
    whatever it is | ,any | ,: id8 | own | ,
    an old bootloader | , | ,: plain+by8+row7 | plain | ,
    an old bootloader, short | , | ,: plain+short | plain | ,
    an old bootloader, once lost | , | ,: plain+lost plain | plain | , ? ,
    an old bootloader with an error | , | ,: plain+=2 | plain | ,
    the same, late | , | ,: plain+=2+late300 plain | plain | , ? ,
    nothing but its status | , | ,: lost | none | , ? , ? , ? , ?
    the same, where that is believed | ,lax | ,: lost | plain-by-errors | , ? , ? , ? , ?
    the same, and an OK behind it | ,lax | ,: lost; ?: =2 =2 =2 =2 =2 =2 =2 =2 =2 =2 =2 =2 =2 =2 =2 =2 =2 =2 =2 =2 =2 =2 =2 =2 =0 | plain | , ? , ? , ? , ?
    the same, and what it is, as late as that can come | ,lax | ,: lost lost lost work1900 | own | , ? , ? , ? , ?
    the module before, late | ,8 , | ,: deaf deaf deaf id8+late1000 deaf ok; ?: deaf | none own | , ? , ? , ? , ? , ? ,
    a reply of the module before | ,8 ! , | ,: id8 plain+by8; !: deaf; ?: deaf | own no plain | , ! ? ! ? ! ? ! ? , ? , ? , ? ,
    )");
}

TEST(bootloadDialogueTest, SilenceEndsEveryRequestAfterItsTries) {
    // What it takes at least, 3 passes for each of 4 tries, and at most.
    for (const auto& row : rowsOf(R"(
        , | 2760 | 2800
        ! | 2760 | 2800
        S |  600 | 10000
        s |  600 | 12000
        R |  600 | 10000
        m |  600 | 12000
        W | 1200 | 16000
        E |  600 | 14000
        A | 30000 | 40000)")) {
        ScriptedHost host(",: deaf; !: deaf; S: deaf; R: deaf; W: deaf; E: deaf; A: deaf; M: deaf; ?: deaf");
        bootloadDialogue dialogue(host);
        const auto start = host.time;
        EXPECT_EQ(outcome(dialogue, host, row[0] == "R" ? "R7" : row[0]), row[0] == "!" ? "no" : "none")
            << row[0];
        EXPECT_GE((host.time - start).count(), std::stoi(row[1])) << row[0];
        EXPECT_LE((host.time - start).count(), std::stoi(row[2])) << row[0];
        const std::string sent = host.transcript();
        EXPECT_EQ(std::count(sent.begin(), sent.end(), sent[0]), TRIES) << row[0];
    }
}

TEST(bootloadDialogueTest, ASessionIsKeptAliveWhileALostReplyIsWaitedOut) {
    for (const std::string kind : {"S: ok ", "R: ok ", "W: ", "E: ", "A: "}) {
        for (const std::string fault : {"lost ok", "deaf ok", "late450 ok"}) {
            ScriptedHost host(kind + fault);
            bootloadDialogue dialogue(host);
            play(dialogue, host, ", A S R0 R1 W E S R0 R1 W s r W");
            for (std::size_t n = 1; n < host.sent.size(); ++n) {
                EXPECT_LT(host.sent[n].first - host.sent[n - 1].first, 300ms)
                    << kind << fault << host.transcript();
            }
        }
    }
}

TEST(bootloadDialogueTest, ACancelEndsEveryWaitAtOnce) {
    for (const char* script : {",: deaf ok; ?: deaf", "W: late450; E: late300; A: busy900",
                               "S: lost ok; R: deaf ok; W: lost ok; E: deaf ok; A: lost ok; !: lost"}) {
        for (milliseconds cancel = 1014ms; cancel < 7s; cancel += 17ms) {
            ScriptedHost host(script);
            bootloadDialogue dialogue(host);
            host.cancelTime = cancel;
            play(dialogue, host, ", S R0 R1 W E s m W A !");
            EXPECT_LE(host.time, std::max(cancel, host.sent.back().first) + LINGER)
                << script << cancel.count();
            EXPECT_LE(std::count_if(host.sent.begin(), host.sent.end(),
                                    [&](const auto& sent) { return sent.first >= cancel; }),
                      1)
                << script << cancel.count();
        }
    }
}

} // namespace
