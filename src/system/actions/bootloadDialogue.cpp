#include "bootloadDialogue.h"

#include <algorithm>

using namespace bootloadTiming;
using namespace busMessages;

// Commands

bool bootloadDialogue::sendReqStat(std::uint8_t module) {
    line.sendStatus(module, ABOUT::NOTHING);
    const auto answer = host.receive(STATUS_WAIT);
    if (answer) {
        line.judge(*answer);
    }
    return answer.has_value();
}

bool bootloadDialogue::sendWithResponse(std::uint8_t module, const PROCBUS_MSG& msg, unsigned timeout) {
    REQUEST request;
    request.msg = msg;
    line.begin(request);
    line.send(request);
    for (unsigned pass = 0; pass < PASSES && !host.cancelled(); ++pass) {
        auto answer = host.receive(milliseconds(timeout * UNIT_MS));
        if (!answer) {
            line.sendStatus(module, ABOUT::NOTHING);
            answer = host.receive(STATUS_WAIT + PAUSE);
        }
        if (answer) {
            line.judge(*answer);
            return true;
        }
    }
    return false;
}

bool bootloadDialogue::sendSystemCommand(std::uint8_t module, std::uint8_t arg) {
    for (unsigned n = 0; n < TRIES && !host.cancelled(); ++n) {
        if (sendWithResponse(module, systemCommand(module, arg), COMMAND_TIMEOUT)) {
            return true;
        }
    }
    return false;
}

bootloadDialogue::ENTRY bootloadDialogue::enter(std::uint8_t module, bool byName, bool strict) {
    return bootloaderEntry(host, line, session, module, {byName, strict}).enter();
}

// Tries

bootloadDialogue::RESULT bootloadDialogue::ask(const REQUEST& request) {
    RESULT result;
    line.begin(request);
    doubtedAfter = milliseconds(0);
    refusedItself = false;
    const bool wantsMark = request.proof == PROOF::MARK || line.provesNothing(request);
    const bool isOfPage = request.kind == KIND::ROW || request.kind == KIND::WRITE;
    const bool hadKept = session.keepsMarks;
    bool wasSent = false;
    for (unsigned n = 0; n < TRIES && !result.reply && !host.cancelled(); ++n) {
        HEARD unheard;
        // Some modules judge a second write anew: once, already the first is sent behind a mark.
        const bool isDoubted = n > 0 || (request.kind == KIND::WRITE && request.attempt + 2 == TRIES);
        const bool wantsOne = isDoubted && wantsMark && session.takesMarks(request.kind);
        bool isMarked = wantsOne && setMark(request, unheard);
        if (wantsMark) {
            line.linger(isDoubted);
        }
        if (request.proof != PROOF::LATER && !line.settle(request, n > 0 || wantsOne)) {
            continue;
        }
        if (wantsOne && !wasSent && request.onlyRow && !session.keepsMarks) {
            if (!outlivesMark(request)) {
                break; // the page is begun anew
            }
            isMarked = isMarked && setMark(request, unheard);
        }
        if (session.keepsMarks && !hadKept && isOfPage) {
            break; // it holds the mark now
        }
        wasSent = true;
        const bool answered = result.answered;
        result = tryOnce(request, n, isMarked);
        result.answered = result.answered || answered;
    }
    learn(request, result);
    return result;
}

/** Try `n`. `wasAlive`: the module answered something right before. */
bootloadDialogue::RESULT bootloadDialogue::tryOnce(const REQUEST& request, unsigned n, bool wasAlive) {
    HEARD heard;
    heard.wasAlive = wasAlive || line.isAnswered();
    session.hasRepeated = session.hasRepeated || n > 0;
    line.send(request);
    listen(request, n, directWait(request), heard);
    if (heard.mayBeWell() && !heard.own && request.proof == PROOF::MARK && session.takesMarks(request.kind)) {
        clarify(request, n, heard);
        if (mayHoldMark(request, n)) { // it is begun again
            heard.own.reset();
            heard.maybe.reset();
        }
    }
    const RESULT result = resultOf(request, n, heard);
    if (heard.own && heard.direct) {
        session.answersDirectly[indexOf(request.kind)] = true;
        refusedItself = refusedItself || heard.own->status != OK;
    }
    if (!result.reply && request.failed) {
        request.failed(heard.own ? heard.own : heard.maybe);
    }
    return result;
}

bootloadDialogue::RESULT bootloadDialogue::resultOf(const REQUEST& request, unsigned n,
                                                    const HEARD& heard) const {
    RESULT result;
    result.answered = heard.alive;
    if (heard.own) {
        result.reply = heard.refused ? std::nullopt : heard.own;
        result.certain = !heard.refused;
    } else if (takesDoubtful(request, n, heard)) {
        result.reply = heard.maybe;
        result.direct = heard.maybeDirect;
    } else {
        result.passedOver = heard.maybe;
    }
    return result;
}

/**
 * What may be another's answer is taken when the requests behind it will show, and in the end, unless the
 * module is known to answer by itself; a mere name refuses nobody then. No mark can tell with a module that
 * keeps them: when it begins a page or record for the last time, its doubtful answers are taken in the end as
 * well. A page's write is not sent again for that, since some modules answer a second one with an error; a
 * record's they answer as before.
 */
bool bootloadDialogue::takesDoubtful(const REQUEST& request, unsigned n, const HEARD& heard) const {
    if (!heard.maybe || (request.mustBeOk && !heard.mayBeWell())) {
        return false;
    }
    const bool isLast = n + 1 >= TRIES;
    const bool isLastBegin = session.keepsMarks && request.attempt + 1 >= TRIES;
    const bool isWrittenOnce = request.kind == KIND::WRITE && session.said.type != busProtocol::PIC32_REC;
    const bool isUntold = request.proof == PROOF::MARK && session.isDeafToMarks();
    const bool mayBeIts =
        !session.answersDirectly[indexOf(request.kind)] || heard.renamed || isLastBegin || isUntold;
    const bool isProvedLater = request.proof == PROOF::LATER && heard.mayBeWell();
    return (isLast && mayBeIts) || (isLastBegin && isWrittenOnce) ||
           (isProvedLater && (!heard.overdue || isLast));
}

/** What a status request would repeat now, how long this kind takes, and by which name the module goes. */
void bootloadDialogue::learn(const REQUEST& request, const RESULT& result) {
    // A doubtful answer that no status request had asked for may have come before the request was heard.
    session.noteReply(result.reply, !result.reply || result.certain || !result.direct);
    if (request.kind == KIND::START) {
        session.isOpen = result.certain && result.reply->status == OK;
    } else if (request.kind == KIND::ROW) {
        noteDropped(result);
    }
    if (!result.reply) {
        return;
    }
    line.learnTime(result.certain);
    if (result.certain && !session.name) {
        session.name = result.reply->module;
    } else if (session.name && result.reply->module != *session.name) {
        session.name = NO_MODULE; // it keeps to none
    }
}

/**
 * Of a page's row: one that was open for sure, and is not behind a mark, may have been forgotten at the mark.
 * Once it may be the line's fault.
 */
void bootloadDialogue::noteDropped(const RESULT& result) {
    const std::optional<REPLY> reply = result.reply ? result.reply : result.passedOver;
    if (!session.isOpen || !session.wasMarked || !reply) {
        return;
    }
    if (reply->status == MISSEDPACKET) {
        ++session.dropped;
    } else if (result.certain && !session.dropsPages()) {
        session.dropped = 0;
    }
}

// Listening

/** Until something settles the try, or its time is over: passes of a wait and a status request. */
void bootloadDialogue::listen(const REQUEST& request, unsigned n, milliseconds wait, HEARD& heard) {
    const auto start = host.now();
    const unsigned passes = PASSES * GROWTH[n];
    bool isSettled = hear(request, wait, heard);
    if (const milliseconds alone = aloneWait(request, n); !isSettled && !heard.alive && alone > wait) {
        isSettled = hear(request, alone - wait, heard);
    }
    for (unsigned pass = 1; !isSettled; ++pass) {
        heard.direct = false;
        line.sendStatus(request.module, ABOUT::REQUEST);
        if (hear(request, STATUS_WAIT + PAUSE, heard)) {
            return;
        }
        const bool mayWork =
            (n == 0 || heard.alive || heard.wasAlive) && host.now() - start < workOf(request);
        if (pass >= passes && !mayWork) {
            return;
        }
        // While it is silent it is at work, or gone: either way, one status request says as much as many.
        wait = heard.alive ? timeoutOf(request.kind) : std::min(2 * wait, KEEP_ALIVE);
        isSettled = hear(request, wait, heard);
    }
}

/** True when the try is settled; else nothing that settles it came in time. */
bool bootloadDialogue::hear(const REQUEST& request, milliseconds wait, HEARD& heard) {
    const auto until = host.now() + wait;
    while (!host.cancelled()) {
        const bool provisional = heard.maybe && !heard.overdue && request.proof == PROOF::LATER;
        const auto end = provisional ? std::min(until, heard.maybeUntil) : until;
        const auto now = host.now();
        const auto answer = host.receive(std::chrono::ceil<milliseconds>(std::max(end, now) - now));
        if (answer && consider(request, *answer, heard)) {
            return true;
        }
        if (!answer) {
            return provisional && host.now() >= heard.maybeUntil;
        }
    }
    return true;
}

/** True when the answer settles the try. */
bool bootloadDialogue::consider(const REQUEST& request, const ANSWER& answer, HEARD& heard) {
    const WHOSE whose = line.judge(answer);
    const REPLY& reply = answer.reply;
    heard.alive = true;
    if (heard.renamed && session.name == NO_MODULE) { // now it has shown that the name was its own
        heard.own = heard.maybe;
        heard.refused = request.mustBeOk && !heard.mayBeWell();
        return true;
    }
    if (answer.identification || whose == WHOSE::OTHER) {
        return false;
    }
    // One that has refused the request by itself may tell its state when asked, not what came of it.
    const bool mayBeState = refusedItself && !session.repeatsMarks && !heard.direct && reply.status == OK;
    if (whose == WHOSE::OWN && !mayBeState) {
        // Answers may overtake each other: of an OK and an error, either may be the other request's.
        const bool contradicted = reply.status == OK ? heard.erredDirectly : heard.mayBeWell();
        heard.own = reply;
        heard.refused = contradicted || reply.row != request.row || (request.mustBeOk && reply.status != OK);
        return true;
    }
    heard.erredDirectly = heard.erredDirectly || (heard.direct && reply.status != OK);
    if (reply.status == OK && !heard.mayBeWell()) {
        doubtedAfter = line.sinceRequest();
    }
    if (reply.status == OK || !heard.maybe) {
        heard.overdue = !heard.direct && isOverdue(request) && (!heard.maybe || heard.overdue);
        heard.maybe = reply;
        heard.maybeDirect = heard.direct;
        heard.renamed = whose == WHOSE::RENAMED;
        heard.maybeUntil = host.now() + BETTER_ANSWER[request.attempt];
    }
    return request.proof == PROOF::MARK && reply.status == OK;
}

/**
 * Whether a page's first row, or its answer, was lost for sure: its like were answered in half the time. It
 * is sent again, since a module that keeps rows in any order does not say at the next one what it has missed.
 * One that takes records does, as the first row opens its record.
 */
bool bootloadDialogue::isOverdue(const REQUEST& request) const {
    const milliseconds usual = session.pace.surelyUsual(request.kind);
    const bool isFirstRow = request.kind == KIND::ROW && request.row == 0;
    return isFirstRow && session.said.type != busProtocol::PIC32_REC && usual.count() > 0 &&
           line.sinceRequest() > 2 * usual;
}

/**
 * The wait of the first pass: a module whose answers take long is not asked for its status all the time. When
 * it answers by itself, and the try before heard what may have been that, then no status request comes first.
 */
milliseconds bootloadDialogue::directWait(const REQUEST& request) const {
    const milliseconds usual = timeoutOf(request.kind);
    const milliseconds known = std::max(2 * session.pace.fastest, session.pace.slowest(request.kind) * 5 / 4);
    const bool isDirect = session.answersDirectly[indexOf(request.kind)];
    const milliseconds doubted = isDirect ? std::min(doubtedAfter * 5 / 4, LONGEST_DIRECT) : milliseconds(0);
    return std::max({usual, std::min(known, KEEP_ALIVE), doubted});
}

/**
 * How long a silent module is given to answer by itself, where its answer to a status request would prove
 * nothing. One that answers rows only so would end its session meanwhile, and so may one that keeps marks:
 * there, what comes in the end is taken anyway.
 */
milliseconds bootloadDialogue::aloneWait(const REQUEST& request, unsigned n) const {
    static constexpr milliseconds ALONE[TRIES] = {milliseconds(0), milliseconds(0), milliseconds(1000),
                                                  WRITE_WORK};
    const bool wouldAnswer = request.kind != KIND::ROW || !session.answersRowsByStatus();
    return n == 0 && line.provesNothing(request) && wouldAnswer && !session.keepsMarks
               ? ALONE[request.attempt]
               : milliseconds(0);
}

/**
 * How long the request may be at work, by what it may take and what its like have taken so far: rows and
 * starts of page are much alike, what an erase or a write takes depends on what is erased or written.
 */
milliseconds bootloadDialogue::workOf(const REQUEST& request) const {
    const bool isAlike = request.kind == KIND::ROW || request.kind == KIND::START;
    const milliseconds known = session.pace.usual(request.kind);
    return !isAlike || known.count() == 0 ? request.work
                                          : std::min(request.work, std::max(LATEST / 2, known * SURELY_DONE));
}

// Marks

/**
 * Replaces the module's last reply by the one to a row that is out of its order. True when the module did
 * answer it, so that it is not at work any more. From then on it tells by a status request whether the next
 * request was carried out, provided that it is known what it says when that was not.
 */
bool bootloadDialogue::setMark(const REQUEST& request, HEARD& heard) {
    line.sendMark();
    const bool rowsAreDirect = session.answersDirectly[indexOf(KIND::ROW)];
    const milliseconds asRow = rowsAreDirect ? session.pace.slowest(KIND::ROW) * 5 / 4 : milliseconds(0);
    milliseconds wait = std::max({MARK_WAIT, 2 * session.pace.fastest, asRow});
    const auto limit = host.now() + LONGEST_SETTLE;
    while (const auto answer = line.receiveBefore(limit, wait)) {
        if (openRequests::isMarkReply(*answer)) {
            noteMarkAnswered(request, *answer);
            return true;
        }
        if (consider(request, *answer, heard) && heard.own) {
            if (session.refusesMarks) {
                return false;
            }
            // What the module makes of marks has to be heard, too; like a start or a row it takes about as
            // long.
            wait = request.kind == KIND::ERASE ? wait : std::max(wait, 2 * line.sinceRequest());
        }
    }
    return askOfMark(request);
}

/** The module has answered the mark by itself. */
void bootloadDialogue::noteMarkAnswered(const REQUEST& request, const ANSWER& answer) {
    line.noteMarkReply(answer);
    line.judge(answer);
    session.tellsMarks = false;
    if (!session.tellsState) {
        session.noteReply(answer.reply);
    }
    learnStatus(request, answer.reply, askStatus(request.module));
}

/**
 * Whether a page that was not written yet is open behind a mark for sure: its only row is taken again then.
 * Some modules forget it, and would answer the write as they did the one before.
 */
bool bootloadDialogue::outlivesMark(const REQUEST& write) {
    REQUEST row = write;
    row.msg = *write.onlyRow;
    row.kind = KIND::ROW;
    row.work = ROW_WORK;
    row.mustBeOk = false;
    row.failed = nullptr;
    line.begin(row);
    const RESULT result = tryOnce(row, 0, true);
    line.begin(write);
    session.noteReply(result.reply);
    if (result.certain && result.reply->status != OK) {
        session.dropped = SESSION::SURELY_DROPS;
    }
    return result.reply && result.reply->status == OK;
}

/**
 * Asks a module that has not answered a mark for its status, which keeps its session alive. Some answer rows
 * only so: true when it tells what became of the mark. A module that is at work may say so by an error, but
 * not one that said OK before the mark, and the same error for longer than a row takes: once, since from then
 * on it is known to repeat what the mark got.
 */
bool bootloadDialogue::askOfMark(const REQUEST& request) {
    const bool wasIdle = line.isIdle();
    const auto until = host.now() + ROW_WORK;
    std::optional<REPLY> refusal;
    while (!host.cancelled()) {
        line.sendStatus(request.module, ABOUT::NOTHING);
        const auto answer =
            host.receive(std::clamp(2 * session.pace.fastest, STATUS_WAIT + PAUSE, MARK_WAIT));
        const bool isMarks = answer && openRequests::isMarkReply(*answer);
        if (isMarks && answer->reply.status == OK) {
            line.noteMarkReply(*answer);
            line.judge(*answer);
            return true;
        }
        if (!isMarks || !wasIdle || (refusal && refusal != answer->reply)) {
            ++session.unansweredMarks;
            if (answer) {
                line.judge(*answer);
            }
            return false;
        }
        line.judgeTold(*answer);
        refusal = answer->reply;
        if (session.tellsMarks || host.now() >= until) {
            session.answersMarks = true;
            session.tellsMarks = true;
            learnStatus(request, *refusal, refusal);
            return true;
        }
        if (const auto late = host.receive(KEEP_ALIVE); late == answer) { // doubled on its way
            line.judgeTold(*late);
        } else if (late && openRequests::isMarkReply(*late)) {
            noteMarkAnswered(request, *late);
            return true;
        } else if (late) {
            line.judge(*late);
        }
    }
    return false;
}

/**
 * What the module told when it was asked for its status behind a refused mark: most repeat the refusal. One
 * that says something else, and the same behind two marks, tells its state; that helps when the request's own
 * reply differs.
 */
void bootloadDialogue::learnStatus(const REQUEST& request, const REPLY& refusal,
                                   const std::optional<REPLY>& told) {
    session.repeatsMarks = told == refusal;
    session.tellsState = told && told == session.told && told->row != request.row && !session.repeatsMarks;
    session.told = told;
    session.noteReply(session.repeatsMarks || session.tellsState ? told : std::nullopt);
}

/**
 * None when it is silent: not every module answers that. What a mark before gets meanwhile is passed over.
 */
std::optional<REPLY> bootloadDialogue::askStatus(std::uint8_t module) {
    for (unsigned n = 0; n < 3 && !host.cancelled(); ++n) {
        line.sendStatus(module, ABOUT::NOTHING);
        while (const auto answer = host.receive(MARK_WAIT)) {
            const bool isMarks = line.awaitsMark() && openRequests::isMarkReply(*answer);
            line.judge(*answer);
            if (isMarks) {
                continue;
            }
            const bool isSame = !answer->identification && answer->reply == session.lastReply;
            session.answersStatus = session.answersStatus || isSame;
            return answer->identification ? std::nullopt : std::optional(answer->reply);
        }
    }
    ++session.unrepeated;
    return std::nullopt;
}

/** Whether the mark behind a start or row may have become part of what that began. */
bool bootloadDialogue::mayHoldMark(const REQUEST& request, unsigned n) const {
    const bool isUnknown = line.awaitsMark() && !session.refusesMarks && n + 1 < TRIES;
    return request.kind != KIND::ERASE && (session.keepsMarks || isUnknown);
}

/** What came may be older. When the module is at work still, its answer is to come. */
void bootloadDialogue::clarify(const REQUEST& request, unsigned n, HEARD& heard) {
    if (setMark(request, heard)) {
        const bool isRefused = request.kind != KIND::ERASE && !session.keepsMarks;
        session.refusesMarks = session.refusesMarks || isRefused;
    } else if (!heard.own) {
        REQUEST waiting = request;
        waiting.proof = PROOF::NOTHING; // that is, for as long as it may take
        listen(waiting, n, timeoutOf(request.kind), heard);
    }
}
