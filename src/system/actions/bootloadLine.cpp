#include "bootloadLine.h"

#include <algorithm>

using namespace bootloadTiming;
using namespace busMessages;
using std::chrono::duration_cast;

// Sending

void bootloadLine::begin(const REQUEST& request) {
    open.begin(request.kind, request.row);
    kind = request.kind;
    work = request.work;
    begunAt = host.now();
}

void bootloadLine::send(const REQUEST& request) {
    drain();
    requestedAt = host.now();
    session.wasMarked = session.wasMarked && request.kind != KIND::START;
    open.addRequest(requestedAt);
    host.send(request.msg);
}

void bootloadLine::sendStatus(std::uint8_t module, ABOUT about) {
    drain();
    open.addStatus(about == ABOUT::REQUEST, host.now());
    host.send(requestStatus(module));
}

void bootloadLine::sendMark() {
    drain();
    open.addMark(host.now());
    host.send(markRow());
    session.noteReply(std::nullopt);
    session.wasMarked = true;
}

/** What came since the last look counts for requests before; one's own within that moment is as good as lost.
 */
void bootloadLine::drain() {
    while (const auto answer = host.receive(milliseconds(0))) {
        judge(*answer);
    }
}

// Receiving

std::optional<ANSWER> bootloadLine::receiveBefore(clock::time_point limit, milliseconds wait) {
    const auto left = std::chrono::ceil<milliseconds>(limit - host.now());
    return left.count() > 0 ? host.receive(std::min(wait, left)) : std::nullopt;
}

/**
 * An answer that comes promptly behind the repeated request answers that one: the tries before it were lost,
 * and teach nothing. Any other may answer the first try as well, but no request is at work for longer than it
 * may be: what is beyond that was lost in tries.
 */
void bootloadLine::learnTime(bool isSure) {
    const auto now = host.now();
    const auto since = session.pace.isPrompt(now - requestedAt) ? requestedAt : begunAt;
    const auto took = std::chrono::ceil<milliseconds>(now - since);
    session.pace.learn(kind, work.count() == 0 ? took : std::min(took, work), isSure);
}

// Quiet

bool bootloadLine::provesNothing(const REQUEST& request) const {
    const auto isLike = [&](const std::optional<REPLY>& reply) {
        return reply && reply->row == request.row && reply->status == busProtocol::OK;
    };
    return request.proof == PROOF::NOTHING &&
           (!session.lastReply || isLike(session.lastReply) || isLike(session.replyBefore));
}

/**
 * The first try of a request that nothing proves does not wait for earlier answers, lest the session end
 * meanwhile: its own is doubted then, and it is asked again behind a mark. But it waits when its page is
 * begun for the last time.
 */
bootloadLine::clock::time_point bootloadLine::confusedUntil(const REQUEST& request, bool again) const {
    const bool waits = again || request.attempt + 1 == TRIES || !provesNothing(request);
    return std::max(waits ? open.confusedUntil() : clock::time_point(), open.disturbedUntil());
}

bool bootloadLine::settle(const REQUEST& request, bool again) {
    const auto limit = host.now() + LONGEST_SETTLE + LATEST_ENTRY;
    const auto heardBefore = open.heardAt();
    drain();
    while (true) {
        const bool wasLate = open.heardAt() != heardBefore; // and may come once more
        const auto confused = confusedUntil(request, again);
        const auto until = wasLate ? std::max(confused, open.heardAt() + LINGER) : confused;
        const auto now = host.now();
        if (now >= until) {
            open.forgetOver(now);
            return true;
        }
        if (now >= limit || host.cancelled()) {
            return false;
        }
        const bool isIdle = now >= open.sentAt() + KEEP_ALIVE;
        const bool hasSent = isIdle && now < confused && keepAlive(request, again);
        const auto turn = isIdle && !hasSent ? now + LINGER : open.sentAt() + KEEP_ALIVE;
        const auto next = std::min(until, turn);
        if (const auto answer = host.receive(std::chrono::ceil<milliseconds>(next - now))) {
            const bool isRepeated = !answer->identification && answer->reply == session.lastReply;
            if (open.mayAnswerMark(now) && openRequests::isMarkReply(*answer) && !isRepeated) {
                noteMarkReply(*answer);
            }
            judge(*answer);
        }
    }
}

void bootloadLine::noteMarkReply(const ANSWER& answer) {
    session.answersMarks = true;
    if (answer.reply.status == busProtocol::OK) {
        session.keepsMarks = true;
    } else if (session.repeatsMarks) {
        session.noteReply(answer.reply);
    } else if (session.tellsState) {
        session.noteReply(session.told);
    }
}

/**
 * A module may end a session in which it hears nothing. What it is asked must not add to the confusion: false
 * when all would.
 */
bool bootloadLine::keepAlive(const REQUEST& request, bool again) {
    if (request.kind == KIND::ENTER) {
        return false;
    }
    const auto& reply = session.lastReply;
    const bool isDistinct = request.proof == PROOF::NOTHING && reply && reply->row != request.row;
    const bool isError = reply && reply->status != busProtocol::OK;
    const bool mayMark = request.proof == PROOF::MARK || again || session.refusesMarks;
    const bool takesMarks = session.takesMarks(request.kind);
    const bool isMarked = open.mayAnswerMark(host.now());
    const bool isTold = session.tellsMarks ? isError || isMarked : isError && !takesMarks;
    if (isDistinct || (mayMark && isTold)) {
        sendStatus(request.module, ABOUT::NOTHING);
        return true;
    }
    if (mayMark && takesMarks && !isMarked) {
        sendMark();
        return true;
    }
    return false;
}

void bootloadLine::linger(bool doubtful) {
    const milliseconds wait = LINGER - duration_cast<milliseconds>(host.now() - open.heardAt());
    const bool mustWait = doubtful || open.isDisturbed() || session.hasRepeated;
    if (wait.count() > 0 && (session.spare >= wait || mustWait)) {
        session.spare -= wait;
        host.pause(wait);
    }
}
