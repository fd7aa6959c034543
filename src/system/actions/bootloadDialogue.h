#pragma once

#include "bootloadHost.h"
#include "openRequests.h"

#include <cstdint>
#include <functional>
#include <optional>

/**
 * One request to a module's bootloader and the one reply to it: what the CAN and the serial bootloader have
 * in common. docs/dialogue.md explains by which rule an answer counts.
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

    /** What will show that a request was carried out, beside an answer that may be another's. */
    enum class PROOF : std::uint8_t {
        LATER,  ///< the requests behind it fail when it was not
        MARK,   ///< nothing, but no page is open: the module's last reply may be replaced by a mark
        NOTHING ///< nothing, and a page is open
    };

    struct REQUEST {
        busMessages::PROCBUS_MSG msg;
        std::uint8_t module = 0; ///< that is asked for its status when no answer comes
        KIND kind = KIND::COMMAND;
        std::uint32_t row = 0; ///< that the reply names
        PROOF proof = PROOF::LATER;
        milliseconds work{0};  ///< how long the module may be at work on it
        unsigned attempt = 0;  ///< how often what it is part of was begun before; waits longer
        bool last = true;      ///< what it is part of is not begun again: what may be its answer is taken
        bool mustBeOk = false; ///< a reply with an error fails the try
        /** Called behind each try that failed, with the reply that did not count. */
        std::function<void(const std::optional<busMessages::REPLY>&)> failed;
    };

    struct RESULT {
        std::optional<busMessages::REPLY> reply; ///< none when all tries failed
        bool answered = false;                   ///< something came while it was waited for
        bool certain = false;                    ///< the reply is nobody else's
    };

    enum class ENTRY : std::uint8_t {
        NONE,       ///< no bootloader answered
        PLAIN,      ///< an old one, which does not say what it is
        ANOTHER,    ///< it says that it is another module's; identification() has what it said
        IDENTIFIED, ///< the same of the module's own
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
     * Asks the module into its bootloader, and begins a session with it. With `byName` an identification
     * counts that names the module, or at last another one; else any.
     */
    ENTRY enter(std::uint8_t module, bool byName);
    const busMessages::IDENTIFICATION& identification() const { return session.said; }
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
    enum class ABOUT : std::uint8_t { REQUEST, NOTHING };

    /** What came while one try was listened for. */
    struct HEARD {
        std::optional<REPLY> own;
        std::optional<REPLY> maybe;
        clock::time_point maybeUntil; ///< how long a better one is waited for
        bool direct = true;           ///< no status request was sent
        bool alive = false;           ///< the module answered something
        bool wasAlive = false;        ///< it did so right before
        bool refused = false;         ///< `own` is an error that fails the try
    };
    enum class ENTERING : std::uint8_t;

    void sendRequest(const REQUEST& request);
    void sendStatus(std::uint8_t module, ABOUT about);
    void sendMark();
    void drain();
    std::optional<ANSWER> receiveBefore(clock::time_point limit, milliseconds wait);

    clock::time_point confusedUntil(const REQUEST& request, bool again) const;
    bool settle(const REQUEST& request, bool again);
    void keepAlive(const REQUEST& request, bool again);

    void listen(const REQUEST& request, unsigned n, HEARD& heard);
    bool hear(const REQUEST& request, milliseconds wait, HEARD& heard);
    bool consider(const REQUEST& request, const ANSWER& answer, HEARD& heard);
    void clarify(const REQUEST& request, unsigned n, HEARD& heard);
    bool isRepeated(std::uint8_t module, milliseconds wait);
    bool setMark(const REQUEST& request, HEARD& heard);
    bool provesNothing(const REQUEST& request) const;
    milliseconds directWait(const REQUEST& request, unsigned n) const;
    milliseconds workOf(const REQUEST& request) const;
    void linger(bool doubtful);
    RESULT tryOnce(const REQUEST& request, unsigned n, bool wasAlive);
    bool isLastTry(const REQUEST& request, unsigned n) const;
    void learnTime(KIND kind);
    void learn(const REQUEST& request, const RESULT& result);

    ENTERING listenForEntry(const REQUEST& request, bool byName, ENTERING state);
    ENTERING classify(const ANSWER& answer, const REQUEST& request, bool byName);

    bootloadHost& host;
    SESSION session;
    openRequests open{session};
    clock::time_point askedAt{};     ///< the request at hand, the first time
    clock::time_point requestedAt{}; ///< the last time
};
