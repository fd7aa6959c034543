#pragma once

#include "bootloadHost.h"
#include "openRequests.h"

#include <functional>
#include <optional>

/**
 * The line to the module's bootloader: whatever is sent goes onto the list of the requests that may still be
 * answered, and whatever could be mistaken for the next answer is waited out. Runs on the thread of its host.
 */
class bootloadLine {
public:
    using clock = bootloadHost::clock;
    using KIND = bootloadTiming::KIND;
    using milliseconds = bootloadTiming::milliseconds;
    using ANSWER = busMessages::ANSWER;
    using REPLY = busMessages::REPLY;

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
        bool mustBeOk = false; ///< a reply with an error fails the try
        /** The only row of the page that is written, for a look whether that is open still. */
        std::optional<busMessages::PROCBUS_MSG> onlyRow{};
        /** Called behind each try that failed, with the reply that did not count. */
        std::function<void(const std::optional<REPLY>&)> failed;
    };

    enum class ABOUT : std::uint8_t { REQUEST, NOTHING };

    bootloadLine(bootloadHost& panel, SESSION& known) : host(panel), session(known), open(known) {}
    bootloadLine(const bootloadLine&) = delete;
    bootloadLine& operator=(const bootloadLine&) = delete;

    /** The next request is at hand. */
    void begin(const REQUEST& request);
    /** Sends it, once more from the second time on. */
    void send(const REQUEST& request);
    void sendStatus(std::uint8_t module, ABOUT about);
    /** Sends a row that is out of its order: the module's reply to it differs from any that is in order. */
    void sendMark();

    /** An answer that comes within `wait`, but none from `limit` on: some modules never fall silent. */
    std::optional<ANSWER> receiveBefore(clock::time_point limit, milliseconds wait);
    /** To be asked of every answer once, in the order in which they come. */
    openRequests::WHOSE judge(const ANSWER& answer) { return open.judge(answer, host.now()); }
    /** Instead, of what a status request told of the mark before it. */
    void judgeTold(const ANSWER& answer) { open.judgeTold(answer, host.now()); }
    /** The answer that came just now is taken for the one to the request at hand: how long such a one takes.
     */
    void learnTime(bool isSure);
    milliseconds sinceRequest() const { return std::chrono::ceil<milliseconds>(host.now() - requestedAt); }
    bool awaitsMark() const { return open.awaitsMark(); }
    bool isDisturbed() const { return open.isDisturbed(); }
    /** Something was heard since anything was sent. */
    bool isAnswered() const { return open.heardAt() > open.sentAt(); }
    bool isIdle() const { return open.isIdle(); }

    /** The answer to a mark shows whether the module takes such a row. */
    void noteMarkReply(const ANSWER& answer);

    /** A status request is answered alike before and behind the request, and nothing else tells. */
    bool provesNothing(const REQUEST& request) const;
    /**
     * Lets pass what could be taken for the answer to the request, which is sent `again` or for the first
     * time. False when the line does not fall quiet.
     */
    bool settle(const REQUEST& request, bool again);
    /** What was heard just now may come once more: not behind a request that it would answer. */
    void linger(bool doubtful);

private:
    void drain();
    clock::time_point confusedUntil(const REQUEST& request, bool again) const;
    bool keepAlive(const REQUEST& request, bool again);

    bootloadHost& host;
    SESSION& session;
    openRequests open;
    KIND kind = KIND::COMMAND;       ///< of the request at hand
    milliseconds work{0};            ///< and how long it may take, if that is limited
    clock::time_point begunAt{};     ///< it was sent for the first time
    clock::time_point requestedAt{}; ///< for the last time
};
