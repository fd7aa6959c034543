#include "openRequests.h"

#include <algorithm>

using namespace bootloadTiming;
using namespace busMessages;
using enum busProtocol::BLSTATUS;

namespace {

constexpr std::uint32_t NO_ROW = 0xFFFFFFFF; // that no reply names

} // namespace

// What is sent

void openRequests::begin(KIND newKind, std::uint32_t newRow) {
    ++number;
    kind = newKind;
    row = newRow;
}

void openRequests::add(ENTRY entry, clock::time_point now, milliseconds lifetime) {
    sent = now;
    entry.sent = now;
    entry.until = now + lifetime;
    entries.push_back(entry);
}

void openRequests::addRequest(clock::time_point now) {
    const milliseconds late = kind == KIND::ENTER ? LATEST_ENTRY : LATEST;
    add({TYPE::REQUEST, kind, row, number}, now, std::max(late, 2 * session.pace.slowest(kind)));
    sentSince = true;
    idle = false;
}

void openRequests::addStatus(bool aboutRequest, clock::time_point now) {
    ENTRY entry{TYPE::STATUS, KIND::ROW, NO_ROW, 0, session.lastReply, session.replyBefore};
    if (aboutRequest) {
        entry.kind = kind == KIND::ENTER ? KIND::COMMAND : kind; // it asks for no identification
        entry.row = row;
        entry.number = number;
    }
    add(entry, now, LATEST);
}

void openRequests::addMark(clock::time_point now) {
    add({TYPE::MARK, KIND::ROW, busProtocol::MARK_ROW, 0}, now,
        std::max(LATEST, std::max(session.longestMark, session.pace.usual(KIND::ROW)) * 5 / 4));
}

bool openRequests::isAtHand(const ENTRY& entry) const {
    return entry.number == number && entry.type == TYPE::REQUEST;
}

/** None when it was answered already. */
const openRequests::ENTRY* openRequests::lastSent() const {
    return !entries.empty() && entries.back().sent == sent ? &entries.back() : nullptr;
}

// What could be answered so

bool openRequests::couldAnswer(const ENTRY& entry, const ANSWER& answer) const {
    if (entry.type == TYPE::STATUS && session.ignoresStatus()) {
        return false;
    }
    const bool asksForIdentity = entry.type == TYPE::REQUEST && entry.kind == KIND::ENTER;
    if (answer.identification) {
        return asksForIdentity;
    }
    if (asksForIdentity) {
        return !session.identifies;
    }
    const bool fits =
        entry.kind == KIND::COMMAND || answer.reply.row == entry.row || answer.reply.status != OK;
    return fits || (entry.type == TYPE::STATUS && couldRepeat(entry, answer));
}

/** Some modules that are at work say so by an error. */
bool openRequests::mayBeAtWork(const ANSWER& answer) {
    return !answer.identification && answer.reply.status != OK && answer.reply.status != IGNOREPG;
}

/** Whether a status request may be answered so although the request that it is about was not carried out. */
bool openRequests::couldRepeat(const ENTRY& entry, const ANSWER& answer) {
    const auto isLike = [&](const std::optional<REPLY>& reply) { // by whatever name
        return reply && reply->row == answer.reply.row && reply->status == answer.reply.status;
    };
    return !entry.repeats || isLike(entry.repeats) || isLike(entry.orRepeats);
}

/** A status request that is about nothing, behind an error. */
bool openRequests::bringsErrors(const ENTRY& entry) {
    return entry.type == TYPE::STATUS && entry.number == 0 && entry.repeats && entry.repeats->status != OK;
}

bool openRequests::isMarkReply(const ANSWER& answer) {
    return !answer.identification && (answer.reply.status != OK || answer.reply.row == busProtocol::MARK_ROW);
}

/** A mark that may have been lost claims no error that the request behind it got. */
bool openRequests::expectsMarkReply(const ENTRY& entry) const {
    const auto isBehind = [&](const ENTRY& other) { return isAtHand(other) && other.sent > entry.sent; };
    return entry.type == TYPE::MARK && (entry.answeredByStatus || isSoonBehindMark(entry) ||
                                        std::none_of(entries.begin(), entries.end(), isBehind));
}

bool openRequests::isAnsweredMark(const ENTRY& entry) {
    return entry.type == TYPE::MARK && (entry.claimed || entry.answeredByStatus);
}

bool openRequests::isSoonBehindMark(const ENTRY& entry) const {
    return session.pace.isPrompt(heard - entry.sent, 2 * session.pace.slowest(KIND::ROW));
}

/** A module that has given its own name so far may be another one when it goes by another name now. */
bool openRequests::mayBeStrangers(const ANSWER& answer) const {
    const REPLY& reply = answer.reply;
    return !answer.identification && session.name && session.isOwnName(*session.name) &&
           reply.module != NO_MODULE && reply.module != *session.name;
}

/** It came soon behind a status request or a mark that nothing was sent behind. */
bool openRequests::answersCheck(const ANSWER& answer) const {
    const ENTRY* const check = lastSent();
    return check != nullptr &&
           ((check->type == TYPE::STATUS && prompt) ||
            (check->type == TYPE::MARK && isMarkReply(answer) && isSoonBehindMark(*check)));
}

/**
 * A status request says which module is asked, and a mark is heard by none but that one: who answers two of
 * them at once is it, by whatever name. From then on names tell nothing in this session.
 */
bool openRequests::isRenamed(const ANSWER& answer, const LIKENESS& like) {
    if (!like.echo && answersCheck(answer) && ++session.renamed >= 2) {
        session.name = NO_MODULE;
        return true;
    }
    return false;
}

// Whose answer is it?

/** An answer that may be the request's or another's is counted as the other's: once all others are answered,
 * the next one is its own. */
openRequests::WHOSE openRequests::judge(const ANSWER& answer, clock::time_point now) {
    const LIKENESS like = hear(answer, now);
    CLAIMS claims = claimsOn(answer);
    const bool isNobodys = claims.own == nullptr && claims.other == nullptr;
    if (!like.echo) {
        noteStatusAnswered(claims, answer);
    }
    if (!like.same) { // else it may have been doubled on its way
        noteIdentification(answer, isNobodys);
    }
    if (isNobodys) {
        noteStranger(like.doubled);
        return WHOSE::OTHER;
    }
    if (like.echo && (disturbed || prompt)) { // by doubled answers, nothing can be counted
        claims.doubted = true;
    }
    const bool hasOtherName = mayBeStrangers(answer);
    const bool isStrangers = hasOtherName && !isRenamed(answer, like);
    strike(claims, answer, isStrangers);
    if (hasOtherName && !isStrangers) { // so were those before it the module's own
        std::erase_if(entries, [](const ENTRY& entry) { return entry.claimed; });
    }
    if (claims.own == nullptr) {
        return WHOSE::OTHER;
    }
    return claims.doubted ? WHOSE::MAYBE : isStrangers ? WHOSE::RENAMED : WHOSE::OWN;
}

/** The module has heard the mark, whose own answer may still come. */
void openRequests::judgeTold(const ANSWER& answer, clock::time_point now) {
    hear(answer, now);
    if (lastSent() != nullptr && lastSent()->type == TYPE::STATUS) {
        entries.pop_back();
        session.answersStatus = true;
    }
    const auto mark = std::find_if(entries.rbegin(), entries.rend(),
                                   [](const ENTRY& entry) { return entry.type == TYPE::MARK; });
    if (mark != entries.rend()) {
        mark->answeredByStatus = true;
        mark->until = std::max(mark->until, now + LATEST);
    }
}

openRequests::LIKENESS openRequests::hear(const ANSWER& answer, clock::time_point now) {
    const bool same = last == answer;
    const bool doubled = same && now - heard <= ECHO;
    const bool echo = doubled && !sentSince; // else the same to another request
    if (!echo) { // a module that was at work answers all that it was asked meanwhile in a row
        prompt = session.pace.isPrompt(now - sent);
    }
    passTime(now);
    last = answer;
    heard = now;
    sentSince = false;
    return {same, doubled, echo};
}

/**
 * Time over which the module was silent does not count: it may have been at work, and answer about now what
 * it was asked meanwhile, if ever.
 */
void openRequests::passTime(clock::time_point now) {
    std::erase_if(entries, [&](const ENTRY& entry) {
        return entry.until <= now && heard > entry.sent && !isAtHand(entry);
    });
    for (ENTRY& entry : entries) {
        if (entry.sent >= heard) {
            entry.until = std::max(entry.until, now + QUIET);
        }
    }
}

openRequests::CLAIMS openRequests::claimsOn(const ANSWER& answer) {
    CLAIMS claims;
    const auto isFree = [](const ENTRY* taken) { return taken == nullptr || taken->claimed; };
    for (ENTRY& entry : entries) {
        if (!couldAnswer(entry, answer)) {
            continue;
        }
        if (isAtHand(entry)) {
            claims.own = isFree(claims.own) ? &entry : claims.own;
            continue;
        }
        // The answer to a status request about the request at hand is as good, unless it may be older.
        claims.doubted = claims.doubted || entry.number != number || couldRepeat(entry, answer) ||
                         (entry.type == TYPE::STATUS && mayBeAtWork(answer));
        const bool isMarks = isMarkReply(answer) && expectsMarkReply(entry);
        // What may bring an OK, too, had better stay in the list.
        const bool isRather =
            bringsErrors(entry) && claims.other != nullptr && claims.other->type != TYPE::MARK;
        if (isMarks || isRather || (isFree(claims.other) && entry.type != TYPE::MARK)) {
            claims.other = &entry;
        }
    }
    return claims;
}

void openRequests::strike(const CLAIMS& claims, const ANSWER& answer, bool isStrangers) {
    const bool isOwn = claims.own != nullptr && (!claims.doubted || claims.other == nullptr);
    ENTRY* const answered = isOwn ? claims.own : claims.other;
    if (isStrangers) {
        answered->claimed = true;
        return;
    }
    if (!isOwn && claims.own != nullptr) { // or it is the other way round
        claims.own->until = std::max(claims.own->until, std::min(claims.other->until, heard + LATEST));
    }
    if (answered->type == TYPE::MARK) {
        const auto took = std::chrono::ceil<milliseconds>(heard - answered->sent);
        session.longestMark = std::max(session.longestMark, took);
        const auto isMark = [](const ENTRY& entry) { return entry.type == TYPE::MARK; };
        if (std::count_if(entries.begin(), entries.end(), isMark) == 1) { // else it may be an earlier one's
            session.pace.learnFastest(took);
        }
    }
    // A mark that claims no error may have got this one all the same: then the status request has its OK to
    // come.
    if (!isOwn && answered->type == TYPE::STATUS && isMarkReply(answer) && awaitsMark()) {
        return;
    }
    entries.erase(entries.begin() + (answered - entries.data()));
    if (isOwn && kind == KIND::ROW &&
        session.answersRowsByStatus()) { // one answer for the row and its status
        const auto status = std::find_if(entries.begin(), entries.end(), [&](const ENTRY& entry) {
            return entry.type == TYPE::STATUS && entry.number == number;
        });
        if (status != entries.end()) {
            entries.erase(status);
        }
    }
}

// What else it tells

/**
 * Only what comes at once behind a status request is surely its, or that of another before: a slow request
 * may be done about then.
 */
void openRequests::noteStatusAnswered(const CLAIMS& claims, const ANSWER& answer) {
    if (claims.other == nullptr || claims.other->type != TYPE::STATUS) {
        return;
    }
    const bool isBehindStatus = lastSent() != nullptr && lastSent()->type == TYPE::STATUS;
    const bool isSurely =
        claims.own == nullptr || (isBehindStatus && heard - sent <= ECHO && sent - claims.own->sent >= QUIET);
    session.answersStatus = session.answersStatus || isSurely;
    if (isBehindStatus && prompt && !mayBeStrangers(answer)) {
        idle = answer.reply.status == OK;
    }
}

void openRequests::noteIdentification(const ANSWER& answer, bool isNobodys) {
    if (!answer.identification || (!session.isOwnName(answer.identification->module) &&
                                   answer.identification->module != session.said.module)) {
        return;
    }
    session.identifiedLate = session.identifiedLate || session.plain;
    // Behind its first sure reply, a module has no "enter your bootloader" left to answer.
    session.restarted = session.restarted || session.name || isNobodys;
}

/** What comes again and again must stay away for longer than it did so far; but that is no doubled answer. */
void openRequests::noteStranger(bool doubled) {
    const auto since = std::chrono::ceil<milliseconds>(heard - strangerAt);
    if (disturbed && !doubled && 2 * since <= LATEST) {
        session.quiet = std::max(session.quiet, 2 * since);
    }
    disturbed = true;
    strangerAt = heard;
}

// Quiet

/**
 * Unless the module is known to leave marks unanswered, one that was sent into a silence may be at work
 * still: its refusal is not the next request's.
 */
void openRequests::forgetOver(clock::time_point now) {
    std::erase_if(entries, [&](const ENTRY& entry) {
        const bool mayWork = entry.type == TYPE::MARK && entry.sent > heard && !session.isDeafToMarks();
        return entry.until <= now && !mayWork && !isAtHand(entry);
    });
}

/** Whether the answer to an earlier request could be taken for the answer to the one at hand. */
bool openRequests::confuses(const ENTRY& entry) const {
    if (isAtHand(entry) || isAnsweredMark(entry) || (entry.type == TYPE::STATUS && session.ignoresStatus())) {
        return false;
    }
    if (kind == KIND::ENTER || entry.kind == KIND::COMMAND || entry.type == TYPE::MARK) {
        return true;
    }
    if (entry.kind == KIND::ENTER) {
        return !session.identifies;
    }
    const bool repeatsError = session.repeatsMarks && bringsErrors(entry); // a failed try at most
    const bool repeatsRow = entry.type == TYPE::STATUS && (!entry.repeats || entry.repeats->row == row);
    return !repeatsError && (repeatsRow || entry.row == row);
}

openRequests::clock::time_point openRequests::confusedUntil() const {
    clock::time_point until;
    for (const ENTRY& entry : entries) {
        if (confuses(entry)) {
            until = std::max(until, entry.until);
        }
    }
    return until;
}

openRequests::clock::time_point openRequests::disturbedUntil() const {
    return disturbed ? strangerAt + session.quiet : clock::time_point();
}

bool openRequests::awaitsMark() const {
    return std::any_of(entries.begin(), entries.end(),
                       [](const ENTRY& entry) { return entry.type == TYPE::MARK && !isAnsweredMark(entry); });
}

bool openRequests::mayAnswerMark(clock::time_point now) const {
    return std::any_of(entries.begin(), entries.end(), [&](const ENTRY& entry) {
        const bool isOver = entry.until <= now && entry.sent <= heard;
        return entry.type == TYPE::MARK && !isOver && !isAnsweredMark(entry);
    });
}
