#pragma once

#include "bootloaderEntry.h"

#include <cstdint>
#include <optional>

/**
 * One request to a module's bootloader and the one reply to it: what the CAN and the serial bootloader have
 * in common. docs/dialogue.md explains by which rule an answer counts, and how it is tried again.
 *
 * Runs on the thread of its host. Every wait ends at once when the run is cancelled, with the request's
 * failure result. Nothing is known of the line at first; the dialogue is to outlive the modules it talks to,
 * since replies to the last requests to one may still come while the next one is asked.
 */
class bootloadDialogue {
public:
    using BLSTATUS = busProtocol::BLSTATUS;
    using enum busProtocol::BLSTATUS;
    using KIND = bootloadTiming::KIND;
    using milliseconds = bootloadTiming::milliseconds;
    using PROOF = bootloadLine::PROOF;
    using REQUEST = bootloadLine::REQUEST;
    using ENTRY = bootloaderEntry::ENTRY;

    struct RESULT {
        std::optional<busMessages::REPLY> reply;      ///< none when all tries failed
        std::optional<busMessages::REPLY> passedOver; ///< else what the last try heard, perhaps another's
        bool answered = false;                        ///< something came while it was waited for
        bool certain = false;                         ///< the reply is nobody else's
        bool direct = false;                          ///< it is doubtful, and came before any status request
    };

    explicit bootloadDialogue(bootloadHost& panel) : host(panel) {}

    /** Asks the module for its last reply and waits at most 20 polls of 1 ms for an answer. */
    bool sendReqStat(std::uint8_t module);
    /**
     * Sends a message and waits for any answer: 3 passes of `timeout` units of 10 ms, a status request and a
     * pause of 10 ms after each silent pass. The answer to a status request counts, too.
     */
    bool sendWithResponse(std::uint8_t module, const busMessages::PROCBUS_MSG& msg, unsigned timeout);
    /** Up to 4 tries, each with a timeout of 20; true at the first answer. */
    bool sendSystemCommand(std::uint8_t module, std::uint8_t arg);

    /**
     * Asks the module into its bootloader, and begins a session with it. With `byName` only an
     * identification counts that names the module; else any. `strict`: errors that may be another
     * request's make no old bootloader, not even in the end.
     */
    ENTRY enter(std::uint8_t module, bool byName, bool strict);
    const busMessages::IDENTIFICATION& identification() const { return session.said; }
    /** What was taken for an old bootloader has said nothing but errors, each perhaps another request's. */
    bool isPlainByErrors() const { return session.plain && session.plainByErrors; }
    /** An identification came in mid-session that nobody had asked for: the bootloader has started anew. */
    bool hasRestarted() const { return session.restarted; }
    /** A bootloader that was taken for an old one said behind that what it is. */
    bool hasIdentifiedLate() const { return session.identifiedLate; }

    /**
     * Sends a request until it is answered for its row, at most 4 times, the later ones waiting longer. It
     * has no reply, too, when a module that keeps rows out of their order has one in its page or record now.
     */
    RESULT ask(const REQUEST& request);

private:
    using clock = bootloadHost::clock;
    using ANSWER = busMessages::ANSWER;
    using REPLY = busMessages::REPLY;
    using WHOSE = openRequests::WHOSE;
    using ABOUT = bootloadLine::ABOUT;

    /** What came while one try was listened for. */
    struct HEARD {
        std::optional<REPLY> own;
        std::optional<REPLY> maybe;
        clock::time_point maybeUntil; ///< how long a better one is waited for
        bool renamed = false;         ///< nothing speaks against `maybe` but its name
        bool maybeDirect = false;     ///< it came before a status request was sent
        bool direct = true;           ///< no status request was sent
        bool erredDirectly = false;   ///< an error came before one was, perhaps another's
        bool alive = false;           ///< the module answered something
        bool wasAlive = false;        ///< it did so right before
        bool refused = false;         ///< `own` is an error that fails the try
        bool overdue = false;         ///< nothing like `maybe` came while its own answer was to come
        bool mayBeWell() const { return maybe && maybe->status == OK; }
    };

    RESULT tryOnce(const REQUEST& request, unsigned n, bool wasAlive);
    RESULT resultOf(const REQUEST& request, unsigned n, const HEARD& heard) const;
    bool takesDoubtful(const REQUEST& request, unsigned n, const HEARD& heard) const;
    void learn(const REQUEST& request, const RESULT& result);
    void noteDropped(const RESULT& result);

    void listen(const REQUEST& request, unsigned n, milliseconds wait, HEARD& heard);
    bool hear(const REQUEST& request, milliseconds wait, HEARD& heard);
    bool consider(const REQUEST& request, const ANSWER& answer, HEARD& heard);
    bool isOverdue(const REQUEST& request) const;
    milliseconds directWait(const REQUEST& request) const;
    milliseconds aloneWait(const REQUEST& request, unsigned n) const;
    milliseconds workOf(const REQUEST& request) const;

    bool setMark(const REQUEST& request, HEARD& heard);
    bool outlivesMark(const REQUEST& write);
    void noteMarkAnswered(const REQUEST& request, const ANSWER& answer);
    bool askOfMark(const REQUEST& request);
    void learnStatus(const REQUEST& request, const REPLY& refusal, const std::optional<REPLY>& told);
    std::optional<REPLY> askStatus(std::uint8_t module);
    bool mayHoldMark(const REQUEST& request, unsigned n) const;
    void clarify(const REQUEST& request, unsigned n, HEARD& heard);

    bootloadHost& host;
    SESSION session;
    bootloadLine line{host, session};
    milliseconds doubtedAfter{0}; ///< the request at hand was sent last, came what may be its answer
    bool refusedItself = false;   ///< the request at hand, without being asked for its status
};
