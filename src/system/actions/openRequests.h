#pragma once

#include "bootloadSession.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

/**
 * The list of the requests that may still be answered, and of what each could still be answered with. It
 * alone decides whose reply an answer is; docs/dialogue.md explains the rule. It has no clock of its own.
 */
class openRequests {
public:
    using clock = std::chrono::steady_clock;
    using KIND = bootloadTiming::KIND;
    using milliseconds = bootloadTiming::milliseconds;
    using ANSWER = busMessages::ANSWER;

    enum class WHOSE : std::uint8_t {
        OWN,     ///< surely the reply to the request at hand
        RENAMED, ///< its, or another module's: it goes by another name than the module did so far
        MAYBE,   ///< its, or that of another one which is still open
        OTHER
    };

    /** What it learns of the module by its answers it notes in `known`, which outlives it. */
    explicit openRequests(SESSION& known) : session(known) {}

    /** The next request is at hand; its reply names `row`. It may be sent several times. */
    void begin(KIND kind, std::uint32_t row);
    void addRequest(clock::time_point now);
    /** A request for the module's status: about the request at hand, or about nothing. */
    void addStatus(bool aboutRequest, clock::time_point now);
    void addMark(clock::time_point now);

    /** Strikes the request that was answered off the list, as far as that is known. */
    WHOSE judge(const ANSWER& answer, clock::time_point now);
    /** Instead, when the status request that was sent last brought what the mark before it got. */
    void judgeTold(const ANSWER& answer, clock::time_point now);
    /** Such as no request gets that is in its order. */
    static bool isMarkReply(const ANSWER& answer);

    /** Strikes off what is not answered any more, but for the request at hand. */
    void forgetOver(clock::time_point now);
    /** Until when an answer may come that could be taken for that to the request at hand. */
    clock::time_point confusedUntil() const;
    /** Until when a line must be silent on which something came that nobody had asked for. */
    clock::time_point disturbedUntil() const;
    bool isDisturbed() const { return disturbed; }
    /** One was not answered so far. */
    bool awaitsMark() const;
    /** And still may be: its time is not over, or nothing came since it was sent. */
    bool mayAnswerMark(clock::time_point now) const;
    /** It said OK when it was asked for its status, and was sent nothing since but such requests and marks.
     */
    bool isIdle() const { return idle; }

    /** When the last request of whatever kind was sent, and when the last answer came. */
    clock::time_point sentAt() const { return sent; }
    clock::time_point heardAt() const { return heard; }

private:
    enum class TYPE : std::uint8_t { REQUEST, STATUS, MARK };

    struct ENTRY {
        TYPE type;
        KIND kind;
        std::uint32_t row;                             ///< that the reply names
        unsigned number;                               ///< which request of ours it is, or is about; 0: none
        std::optional<busMessages::REPLY> repeats{};   ///< by a status request, when that is known
        std::optional<busMessages::REPLY> orRepeats{}; ///< when that may be what it repeats still
        clock::time_point sent{};
        clock::time_point until{};     ///< behind it no answer comes any more
        bool claimed = false;          ///< an answer by another name may have been its
        bool answeredByStatus = false; ///< a mark: its own answer may still come
    };

    /** What an answer has to do with the one before. */
    struct LIKENESS {
        bool same;    ///< the one before said just that
        bool doubled; ///< right before
        bool echo;    ///< and nothing was asked in between
    };

    /** Who may have been answered. */
    struct CLAIMS {
        ENTRY* own = nullptr;   ///< the request at hand
        ENTRY* other = nullptr; ///< of others the oldest, or a mark
        bool doubted = false;   ///< it may be another's although the request at hand claims it
    };

    void add(ENTRY entry, clock::time_point now, milliseconds lifetime);
    bool isAtHand(const ENTRY& entry) const;
    const ENTRY* lastSent() const;

    bool couldAnswer(const ENTRY& entry, const ANSWER& answer) const;
    static bool mayBeAtWork(const ANSWER& answer);
    static bool couldRepeat(const ENTRY& entry, const ANSWER& answer);
    static bool bringsErrors(const ENTRY& entry);
    bool expectsMarkReply(const ENTRY& entry) const;
    static bool isAnsweredMark(const ENTRY& entry);
    bool isSoonBehindMark(const ENTRY& entry) const;
    bool answersCheck(const ANSWER& answer) const;
    bool mayBeStrangers(const ANSWER& answer) const;
    bool isRenamed(const ANSWER& answer, const LIKENESS& like);
    bool confuses(const ENTRY& entry) const;

    LIKENESS hear(const ANSWER& answer, clock::time_point now);
    void passTime(clock::time_point now);
    CLAIMS claimsOn(const ANSWER& answer);
    void strike(const CLAIMS& claims, const ANSWER& answer, bool isStrangers);
    void noteStatusAnswered(const CLAIMS& claims, const ANSWER& answer);
    void noteIdentification(const ANSWER& answer, bool isNobodys);
    void noteStranger(bool doubled);

    SESSION& session;
    std::vector<ENTRY> entries; ///< the oldest first
    unsigned number = 0;        ///< of the request at hand
    KIND kind = KIND::COMMAND;
    std::uint32_t row = 0;

    clock::time_point sent{};
    bool sentSince = false; ///< a request, be it for no status or mark, behind the last answer
    std::optional<ANSWER> last;
    clock::time_point heard{};
    bool prompt = false;    ///< it came soon behind what was sent last
    bool idle = false;      ///< an OK came soon behind a status request, and no request was sent since
    bool disturbed = false; ///< something came that nobody had asked for
    clock::time_point strangerAt{};
};
