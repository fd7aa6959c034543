#include "bootloadDialogue.h"

#include <algorithm>

using namespace bootloadTiming;
using namespace busMessages;
using std::chrono::duration_cast;

namespace {

PROCBUS_MSG markRow() {
    PROCBUS_MSG msg;
    msg.id = busProtocol::DATA_ROW;
    msg.length = 2;
    msg.data[0] = openRequests::MARK_ROW;
    msg.data[1] = 0xFF;
    return msg;
}

constexpr std::size_t indexOf(KIND kind) {
    return static_cast<std::size_t>(kind);
}

} // namespace

// Sending

/** What came meanwhile is nobody's but that of requests before. */
void bootloadDialogue::drain() {
    while (const auto answer = host.receive(milliseconds(0))) {
        open.judge(*answer, host.now());
    }
}

/** An answer that comes within `wait`, but none from `limit` on: some modules never fall silent. */
std::optional<ANSWER> bootloadDialogue::receiveBefore(clock::time_point limit, milliseconds wait) {
    const auto left = std::chrono::ceil<milliseconds>(limit - host.now());
    return left.count() > 0 ? host.receive(std::min(wait, left)) : std::nullopt;
}

void bootloadDialogue::sendRequest(const REQUEST& request) {
    drain();
    requestedAt = host.now();
    open.addRequest(requestedAt);
    host.send(request.msg);
}

void bootloadDialogue::sendStatus(std::uint8_t module, ABOUT about) {
    drain();
    open.addStatus(about == ABOUT::REQUEST, host.now());
    host.send(requestStatus(module));
}

void bootloadDialogue::sendMark() {
    drain();
    open.addMark(host.now());
    host.send(markRow());
    session.lastReply.reset();
}

// Quiet

/**
 * The first try of a request that nothing proves does not wait for earlier answers, lest the session end
 * meanwhile: its own is doubted then, and it is asked again behind a mark.
 */
bootloadDialogue::clock::time_point bootloadDialogue::confusedUntil(const REQUEST& request,
                                                                    bool again) const {
    const bool waits = again || !provesNothing(request);
    return std::max(waits ? open.confusedUntil() : clock::time_point(), open.disturbedUntil());
}

/** Lets pass what could be taken for the request's answer. False when the line does not fall quiet. */
bool bootloadDialogue::settle(const REQUEST& request, bool again) {
    const auto limit = host.now() + LONGEST_SETTLE + LATEST_ENTRY;
    drain();
    for (auto now = host.now(); confusedUntil(request, again) > now; now = host.now()) {
        if (now >= limit || host.cancelled()) {
            return false;
        }
        const auto turn = std::max(now, open.sentAt() + KEEP_ALIVE);
        const auto next = std::min(confusedUntil(request, again), turn);
        if (const auto answer = host.receive(std::chrono::ceil<milliseconds>(next - now))) {
            open.judge(*answer, host.now());
        } else if (host.now() >= turn) {
            keepAlive(request, again);
        }
    }
    open.forgetOver(host.now());
    return true;
}

/** A module may end a session in which it hears nothing. What it is asked must not add to the confusion. */
void bootloadDialogue::keepAlive(const REQUEST& request, bool again) {
    const bool isDistinct = session.lastReply && session.lastReply->row != request.row;
    const bool inSession = request.kind != KIND::ENTER;
    if (inSession && request.proof == PROOF::NOTHING && isDistinct) {
        sendStatus(request.module, ABOUT::NOTHING);
    } else if (inSession && (request.proof == PROOF::MARK || again) && !open.awaitsMark() &&
               !session.keepsMarks) {
        sendMark();
    }
    open.skip(host.now());
}

// Listening

/** Whether the answer to a status request looks the same before and behind the request, and nothing else
 * tells. */
bool bootloadDialogue::provesNothing(const REQUEST& request) const {
    return request.proof == PROOF::NOTHING &&
           (!session.lastReply || (session.lastReply->row == request.row && session.lastReply->status == OK));
}

/** The wait of the first pass: a module whose answers take long is not asked for its status all the time. */
milliseconds bootloadDialogue::directWait(const REQUEST& request, unsigned n) const {
    static constexpr milliseconds ALONE[TRIES] = {milliseconds(0), milliseconds(0), milliseconds(1000),
                                                  WRITE_WORK};
    const milliseconds known = std::max(2 * session.pace.fastest, session.pace.slowest(request.kind) * 5 / 4);
    const milliseconds usual = std::max(timeoutOf(request.kind), std::min(known, KEEP_ALIVE));
    // An answer to a status request proves nothing here: the module is given the time to answer by itself.
    return provesNothing(request) && n == 0 ? std::max(usual, ALONE[request.attempt]) : usual;
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

/** True when the answer settles the try. */
bool bootloadDialogue::consider(const REQUEST& request, const ANSWER& answer, HEARD& heard) {
    heard.alive = true;
    const WHOSE whose = open.judge(answer, host.now());
    if (answer.identification || whose == WHOSE::OTHER) {
        return false;
    }
    if (whose == WHOSE::OWN) {
        // Answers may overtake each other: of an OK and an error, either may be the other request's.
        const bool contradicted = heard.maybe && heard.maybe->status == OK && answer.reply.status != OK;
        heard.own = answer.reply;
        heard.refused = contradicted || answer.reply.row != request.row ||
                        (request.mustBeOk && answer.reply.status != OK);
        return true;
    }
    if (answer.reply.status == OK || !heard.maybe) {
        heard.maybe = answer.reply;
        heard.maybeUntil = host.now() + BETTER_ANSWER[request.attempt];
    }
    return request.proof == PROOF::MARK && answer.reply.status == OK;
}

/** True when the try is settled; else nothing that settles it came in time. */
bool bootloadDialogue::hear(const REQUEST& request, milliseconds wait, HEARD& heard) {
    const auto until = host.now() + wait;
    while (!host.cancelled()) {
        const bool provisional = heard.maybe && request.proof == PROOF::LATER;
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

void bootloadDialogue::listen(const REQUEST& request, unsigned n, HEARD& heard) {
    const auto start = host.now();
    const unsigned passes = PASSES * GROWTH[n];
    milliseconds wait = directWait(request, n);
    for (unsigned pass = 1; !hear(request, wait, heard); ++pass) {
        heard.direct = false;
        sendStatus(request.module, ABOUT::REQUEST);
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
    }
}

/** Whether the module repeats its last reply when it is asked for its status: not every one does. */
bool bootloadDialogue::isRepeated(std::uint8_t module, milliseconds wait) {
    for (unsigned n = 0; n < 3 && !host.cancelled(); ++n) {
        sendStatus(module, ABOUT::NOTHING);
        if (const auto repeated = host.receive(wait)) {
            open.judge(*repeated, host.now());
            const bool isSame = !repeated->identification && repeated->reply == session.lastReply;
            session.answersStatus = session.answersStatus || isSame;
            return isSame;
        }
    }
    ++session.unrepeated;
    return false;
}

/**
 * Replaces the module's last reply by the one to a row that is out of its order. True when the module did
 * answer it, so that it is not at work any more. From then on it tells by a status request whether the next
 * request was carried out, provided that it repeats its last reply.
 */
bool bootloadDialogue::setMark(const REQUEST& request, HEARD& heard) {
    sendMark();
    const milliseconds wait = std::max(MARK_WAIT, 2 * session.pace.fastest);
    const auto limit = host.now() + LONGEST_SETTLE;
    while (const auto answer = receiveBefore(limit, wait)) {
        if (openRequests::isMarkReply(*answer)) {
            open.judge(*answer, host.now());
            session.keepsMarks = answer->reply.status == OK;
            session.lastReply = answer->reply;
            if (!isRepeated(request.module, wait)) {
                session.lastReply.reset();
            }
            return true;
        }
        if (consider(request, *answer, heard) && heard.own) {
            return false;
        }
    }
    return false;
}

/** What came may be older. When the module is at work still, its answer is to come. */
void bootloadDialogue::clarify(const REQUEST& request, unsigned n, HEARD& heard) {
    if (!setMark(request, heard) && !heard.own) {
        REQUEST waiting = request;
        waiting.proof = PROOF::NOTHING; // that is, for as long as it may take
        listen(waiting, n, heard);
    }
}

/**
 * How long this kind of request takes. An answer that comes promptly behind the repeated request answers that
 * one: the tries before it were lost, and teach nothing. Any other may answer the first try as well.
 */
void bootloadDialogue::learnTime(KIND kind) {
    const auto since = session.pace.isPrompt(host.now() - requestedAt) ? requestedAt : askedAt;
    session.pace.learn(kind, std::chrono::ceil<milliseconds>(host.now() - since));
}

void bootloadDialogue::learn(const REQUEST& request, const RESULT& result) {
    learnTime(request.kind);
    session.lastReply = result.reply;
    if (result.certain && !session.name) {
        session.name = result.reply->module;
    } else if (session.name && result.reply->module != *session.name) {
        session.name = NO_MODULE; // it keeps to none
    }
}

/**
 * What may be another's answer is taken in the end, unless the module is known to answer by itself. No mark
 * can tell with a module that keeps them: there the last begin of a page or record counts like a last try.
 */
bool bootloadDialogue::isLastTry(const REQUEST& request, unsigned n) const {
    if (session.keepsMarks && request.attempt + 1 >= TRIES) {
        return true;
    }
    return n + 1 >= TRIES && request.last && !session.answersDirectly[indexOf(request.kind)];
}

bootloadDialogue::RESULT bootloadDialogue::tryOnce(const REQUEST& request, unsigned n, bool wasAlive) {
    RESULT result;
    HEARD heard;
    heard.wasAlive = wasAlive;
    sendRequest(request);
    listen(request, n, heard);
    if (heard.maybe && heard.maybe->status == OK && !heard.own && request.proof == PROOF::MARK &&
        !session.keepsMarks) {
        clarify(request, n, heard);
    }
    result.answered = heard.alive;
    const bool isWell = heard.maybe && heard.maybe->status == OK;
    const bool takesMaybe = heard.maybe && (isWell || !request.mustBeOk) &&
                            (isLastTry(request, n) || (request.proof == PROOF::LATER && isWell));
    if (heard.own && !heard.refused) {
        result.reply = heard.own;
        result.certain = true;
        bool& directly = session.answersDirectly[indexOf(request.kind)];
        directly = directly || heard.direct;
    } else if (!heard.own && takesMaybe) {
        result.reply = heard.maybe;
    } else if (request.failed) {
        request.failed(heard.own ? heard.own : heard.maybe);
    }
    return result;
}

/** What was heard just now may come once more: not behind a request that it would answer. */
void bootloadDialogue::linger(bool doubtful) {
    const milliseconds wait = LINGER - duration_cast<milliseconds>(host.now() - open.heardAt());
    if (wait.count() > 0 && (session.spare >= wait || doubtful || open.isDisturbed())) {
        session.spare -= wait;
        host.pause(wait);
    }
}

bootloadDialogue::RESULT bootloadDialogue::ask(const REQUEST& request) {
    RESULT result;
    open.begin(request.kind, request.row);
    askedAt = host.now();
    const bool wantsMark = request.proof == PROOF::MARK || provesNothing(request);
    const bool isOfPage = request.kind == KIND::ROW || request.kind == KIND::WRITE;
    for (unsigned n = 0; n < TRIES && !result.reply && !host.cancelled(); ++n) {
        HEARD unheard;
        // Some modules judge a second write anew: once, already the first is sent behind a mark.
        const bool isDoubted = n > 0 || (request.kind == KIND::WRITE && request.attempt + 2 == TRIES);
        const bool isMarked = isDoubted && wantsMark && !session.keepsMarks && setMark(request, unheard);
        if (isMarked && session.keepsMarks && isOfPage) {
            break; // the page holds the mark now, and is begun anew
        }
        if (wantsMark) {
            linger(isDoubted);
        }
        if (request.proof != PROOF::LATER && !settle(request, n > 0)) {
            continue;
        }
        const bool answered = result.answered;
        result = tryOnce(request, n, isMarked);
        result.answered = result.answered || answered;
    }
    if (result.reply) {
        learn(request, result);
    } else {
        session.lastReply.reset();
    }
    return result;
}

// Commands

bool bootloadDialogue::sendReqStat(std::uint8_t module) {
    sendStatus(module, ABOUT::NOTHING);
    const auto answer = host.receive(STATUS_WAIT);
    if (answer) {
        open.judge(*answer, host.now());
    }
    return answer.has_value();
}

bool bootloadDialogue::sendWithResponse(std::uint8_t module, const PROCBUS_MSG& msg, unsigned timeout) {
    REQUEST request;
    request.msg = msg;
    open.begin(request.kind, request.row);
    sendRequest(request);
    for (unsigned pass = 0; pass < PASSES && !host.cancelled(); ++pass) {
        auto answer = host.receive(milliseconds(timeout * UNIT_MS));
        if (!answer) {
            sendStatus(module, ABOUT::NOTHING);
            answer = host.receive(STATUS_WAIT + PAUSE);
        }
        if (answer) {
            open.judge(*answer, host.now());
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

// Entering a bootloader

/** What has been heard of a module that is asked into its bootloader, by its worth. */
enum class bootloadDialogue::ENTERING : std::uint8_t {
    SILENT,
    ALIVE,      ///< something that no old bootloader answers with
    DOUBTED,    ///< a reply that may be another request's
    PLAIN,      ///< an old bootloader's own reply
    ANOTHER,    ///< an identification that names another module
    IDENTIFIED, ///< the module's own
};

namespace {

/** What follows from what was heard: whether more is to be asked for, and what it comes to in the end. */
constexpr struct {
    bool endsAsking;
    bootloadDialogue::ENTRY result;
} ENTERINGS[] = {
    {false, bootloadDialogue::ENTRY::NONE},   {false, bootloadDialogue::ENTRY::NONE},
    {false, bootloadDialogue::ENTRY::PLAIN},  {true, bootloadDialogue::ENTRY::PLAIN},
    {true, bootloadDialogue::ENTRY::ANOTHER}, {true, bootloadDialogue::ENTRY::IDENTIFIED},
};

} // namespace

bootloadDialogue::ENTERING bootloadDialogue::classify(const ANSWER& answer, const REQUEST& request,
                                                      bool byName) {
    const WHOSE whose = open.judge(answer, host.now());
    if (answer.identification) {
        const std::int8_t named = answer.identification->module;
        const bool isLate = session.isNameBefore(named) && !answer.identification->serial;
        if (byName ? session.isOwnName(named) : !isLate) {
            session.said = *answer.identification;
            session.identifies = true;
            return ENTERING::IDENTIFIED;
        }
        const bool late = session.isNameBefore(named) || open.isDisturbed();
        session.said = late ? session.said : *answer.identification;
        return late ? ENTERING::ALIVE : ENTERING::ANOTHER;
    }
    if (whose == WHOSE::OTHER || (session.isNameBefore(answer.reply.module) && !request.last)) {
        return ENTERING::ALIVE;
    }
    session.lastReply = answer.reply;
    if (whose == WHOSE::OWN) {
        return answer.reply.status == OK ? ENTERING::PLAIN : ENTERING::DOUBTED;
    }
    return answer.reply.status == OK ? ENTERING::DOUBTED : ENTERING::ALIVE;
}

/**
 * One try's passes. A bootloader that is slow to identify itself is known by its answers to status requests:
 * it is not asked again, since that would start it anew.
 */
bootloadDialogue::ENTERING bootloadDialogue::listenForEntry(const REQUEST& request, bool byName,
                                                            ENTERING state) {
    const auto start = host.now();
    const auto heardWithin = [&](milliseconds wait) {
        const auto until = host.now() + wait;
        for (auto now = host.now(); now <= until && !host.cancelled(); now = host.now()) {
            const auto answer = host.receive(std::chrono::ceil<milliseconds>(until - now));
            if (!answer) {
                return false;
            }
            state = std::max(state, classify(*answer, request, byName));
            if (ENTERINGS[static_cast<std::size_t>(state)].endsAsking) {
                learnTime(KIND::ENTER);
                return true;
            }
        }
        return host.cancelled();
    };
    for (unsigned pass = 1; !heardWithin(timeoutOf(KIND::ENTER)); ++pass) {
        sendStatus(request.module, ABOUT::REQUEST);
        const bool done = heardWithin(STATUS_WAIT + PAUSE);
        const bool mayWork = state != ENTERING::SILENT && host.now() - start < ENTER_WORK;
        if (done || (pass >= PASSES && !mayWork)) {
            break;
        }
    }
    return state;
}

bootloadDialogue::ENTRY bootloadDialogue::enter(std::uint8_t module, bool byName) {
    session = SESSION{.module = module, .before = session.module, .spare = LONGEST_SPARE};
    REQUEST request;
    request.msg = systemCommand(module, busProtocol::ENTER_BOOTLOADER);
    request.module = module;
    request.kind = KIND::ENTER;
    request.proof = PROOF::NOTHING;
    ENTERING state = ENTERING::SILENT;
    askedAt = host.now();
    const auto isPlain = [&] { return state == ENTERING::PLAIN || state == ENTERING::DOUBTED; };
    open.begin(request.kind, request.row);
    host.pause(LINGER); // the module before may have answered twice
    session.spare -= LINGER;
    for (unsigned n = 0; n < TRIES && !host.cancelled(); ++n) {
        request.last = n + 1 == TRIES;
        const bool isDoubted = open.isDisturbed() || (request.last && state != ENTERING::SILENT);
        if ((n == 0 || isDoubted) && !settle(request, true)) {
            continue;
        }
        sendRequest(request);
        state = listenForEntry(request, byName, state);
        if (ENTERINGS[static_cast<std::size_t>(state)].endsAsking) {
            break;
        }
    }
    if (isPlain() || state == ENTERING::ANOTHER) { // it may say more: what it is, or who it is
        const auto limit = host.now() + LATEST;
        while (const auto answer = receiveBefore(limit, IDENTIFICATION_WAIT)) {
            state = std::max(state, classify(*answer, request, byName));
        }
        session.spare -= IDENTIFICATION_WAIT;
    }
    const ENTRY entry = host.cancelled() ? ENTRY::NONE : ENTERINGS[static_cast<std::size_t>(state)].result;
    session.plain = entry == ENTRY::PLAIN;
    return entry;
}
