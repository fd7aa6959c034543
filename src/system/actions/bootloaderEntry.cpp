#include "bootloaderEntry.h"

#include <algorithm>

using namespace bootloadTiming;
using namespace busMessages;

const bootloaderEntry::CONSEQUENCE bootloaderEntry::CONSEQUENCES[] = {
    {false, ENTRY::NONE},      // SILENCE
    {false, ENTRY::NONE},      // LIFE
    {false, ENTRY::PLAIN},     // DOUBTED
    {true, ENTRY::PLAIN},      // PLAIN
    {true, ENTRY::ANOTHER},    // ANOTHER
    {true, ENTRY::IDENTIFIED}, // IDENTIFICATION
};

bootloaderEntry::bootloaderEntry(bootloadHost& panel, bootloadLine& wire, SESSION& known, std::uint8_t module,
                                 RULES rules)
    : host(panel), line(wire), session(known), counts(rules) {
    request.msg = systemCommand(module, busProtocol::ENTER_BOOTLOADER);
    request.module = module;
    request.kind = KIND::ENTER;
    request.proof = bootloadLine::PROOF::NOTHING;
}

bootloaderEntry::ENTRY bootloaderEntry::enter() {
    session = SESSION{.module = request.module, .before = session.module, .spare = LONGEST_SPARE};
    line.begin(request);
    host.pause(LINGER); // the module before may have answered twice
    session.spare -= LINGER;
    for (unsigned n = 0; n < TRIES && !consequence().endsAsking && !host.cancelled(); ++n) {
        ask(n);
    }
    if (heard >= HEARD::DOUBTED && heard <= HEARD::ANOTHER) {
        hearMore();
    }
    const ENTRY entry = host.cancelled() ? ENTRY::NONE : consequence().result;
    session.plain = entry == ENTRY::PLAIN;
    return entry;
}

/** Try `n`. */
void bootloaderEntry::ask(unsigned n) {
    lastTry = n + 1 == TRIES;
    const bool isDoubted = line.isDisturbed() || (lastTry && heard != HEARD::SILENCE);
    if ((n == 0 || isDoubted) && !line.settle(request, true)) {
        return;
    }
    line.send(request);
    direct = n == 0 && !line.isDisturbed();
    listen();
}

/**
 * One try's passes. A bootloader that is slow to identify itself is known by its answers to status requests:
 * it is not asked again, since that would start it anew.
 */
void bootloaderEntry::listen() {
    const auto start = host.now();
    for (unsigned pass = 1; !hearWithin(timeoutOf(KIND::ENTER)); ++pass) {
        direct = false;
        line.sendStatus(request.module, bootloadLine::ABOUT::REQUEST);
        const bool done = hearWithin(STATUS_WAIT + PAUSE);
        // What said nothing but errors may still say what it is, as late as that can come.
        const milliseconds work = session.plainByErrors ? LATEST_ENTRY : ENTER_WORK;
        const bool mayWork = heard != HEARD::SILENCE && host.now() - start < work;
        if (done || (pass >= PASSES && !mayWork)) {
            return;
        }
    }
}

/** True when nothing more is to be asked for. */
bool bootloaderEntry::hearWithin(milliseconds wait) {
    const auto until = host.now() + wait;
    for (auto now = host.now(); now <= until && !host.cancelled(); now = host.now()) {
        const auto answer = host.receive(std::chrono::ceil<milliseconds>(until - now));
        if (!answer) {
            return false;
        }
        consider(*answer);
        if (consequence().endsAsking) {
            line.learnTime(true);
            return true;
        }
    }
    return host.cancelled();
}

/** It may say more: what it is, or who it is. */
void bootloaderEntry::hearMore() {
    const auto limit = host.now() + LATEST;
    while (const auto answer = line.receiveBefore(limit, IDENTIFICATION_WAIT)) {
        consider(*answer);
    }
    session.spare -= IDENTIFICATION_WAIT;
}

void bootloaderEntry::consider(const ANSWER& answer) {
    const WHOSE whose = line.judge(answer);
    heard = std::max(heard, answer.identification ? classify(*answer.identification)
                                                  : classify(answer.reply, whose));
}

bootloaderEntry::HEARD bootloaderEntry::classify(const IDENTIFICATION& identification) {
    const bool isBefore = session.isNameBefore(identification.module);
    const bool isWanted =
        counts.byName ? session.isOwnName(identification.module) : !isBefore || identification.serial;
    if (isWanted) {
        session.said = identification;
        session.identifies = true;
        return HEARD::IDENTIFICATION;
    }
    if (isBefore || line.isDisturbed()) {
        return HEARD::LIFE;
    }
    session.said = identification;
    return HEARD::ANOTHER;
}

bootloaderEntry::HEARD bootloaderEntry::classify(const REPLY& reply, WHOSE whose) {
    if (whose == WHOSE::OTHER || (session.isNameBefore(reply.module) && !lastTry)) {
        return HEARD::LIFE;
    }
    session.noteReply(reply);
    const bool isOk = reply.status == busProtocol::OK;
    session.plainByErrors = session.plainByErrors && !isOk;
    if (whose == WHOSE::OWN) {
        return isOk || direct ? HEARD::PLAIN : HEARD::DOUBTED;
    }
    if (!isOk && lastTry && heard < HEARD::DOUBTED && mayBelieveErrors(reply)) {
        session.plainByErrors = true;
        return HEARD::DOUBTED;
    }
    return isOk ? HEARD::DOUBTED : HEARD::LIFE;
}

/** On a quiet line nothing speaks against an old bootloader but a message that may have been lost. */
bool bootloaderEntry::mayBelieveErrors(const REPLY& reply) const {
    return !counts.strict && !line.isDisturbed() && !session.isNameBefore(reply.module);
}
