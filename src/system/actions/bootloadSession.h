#pragma once

#include "../busMessages.h"
#include "bootloadTiming.h"

#include <algorithm>
#include <cstdint>
#include <optional>

// What a dialogue learns of the module that it talks to. Plain records, of one thread.

/** How long the module's answers take. */
struct PACE {
    using KIND = bootloadTiming::KIND;
    using milliseconds = bootloadTiming::milliseconds;

    milliseconds fastest{0}; ///< of all answers; 0 before the first

    milliseconds slowest(KIND kind) const { return longest[indexOf(kind)]; }
    /** The slowest lately: an eighth of it is forgotten with each answer. */
    milliseconds usual(KIND kind) const { return lately[indexOf(kind)]; }
    /** The same of such answers only that were surely the requests' own. */
    milliseconds surelyUsual(KIND kind) const { return surelyLately[indexOf(kind)]; }

    /** What comes so long behind a request answers that, unless the module was at work for longer than
     * `work`. */
    bool isPrompt(std::chrono::steady_clock::duration since, milliseconds work = milliseconds(0)) const {
        return since <= std::max({bootloadTiming::ECHO, 2 * fastest, work});
    }

    void learn(KIND kind, milliseconds took, bool isSure) {
        milliseconds& slow = longest[indexOf(kind)];
        slow = std::max(slow, took);
        learnUsual(lately[indexOf(kind)], took);
        if (isSure) {
            learnUsual(surelyLately[indexOf(kind)], took);
        }
        learnFastest(took);
    }

    void learnFastest(milliseconds took) { fastest = fastest.count() == 0 ? took : std::min(fastest, took); }

private:
    static void learnUsual(milliseconds& late, milliseconds took) { late = std::max(late * 7 / 8, took); }

    milliseconds longest[bootloadTiming::KINDS] = {};
    milliseconds lately[bootloadTiming::KINDS] = {};
    milliseconds surelyLately[bootloadTiming::KINDS] = {};
};

/** The session with one module's bootloader. The next one begins with a new record. */
struct SESSION {
    using REPLY = busMessages::REPLY;
    using milliseconds = bootloadTiming::milliseconds;

    std::uint8_t module = busProtocol::CONTROL_MODULE; ///< the first: it was told that there is an update
    std::uint8_t before = 0;                           ///< the module of the session before; 0 for none

    // What it is.
    busMessages::IDENTIFICATION said{};
    bool identifies = false;           ///< the bootloader is one that says what it is
    bool plain = false;                ///< it is taken for an old one
    bool plainByErrors = false;        ///< though it said nothing but errors, perhaps another's
    bool identifiedLate = false;       ///< and said behind that what it is
    bool restarted = false;            ///< it said so once more: it has started anew
    std::optional<std::int8_t> name{}; ///< that its replies gave it so far; NO_MODULE when they keep to none

    // How it answers.
    std::optional<REPLY> lastReply{};   ///< what a status request would repeat, if that is known
    std::optional<REPLY> replyBefore{}; ///< or this, when it is not sure that the last one was given by then
    bool answersStatus = false;         ///< it has answered a status request
    unsigned renamed = 0;               ///< status requests and marks that were answered by another name
    bool repeatsMarks = false; ///< a status request brought the answer to the last mark that was heard out
    unsigned unrepeated = 0;   ///< marks that no status request brought back
    bool answersMarks = false; ///< it has answered one, by itself or by its status
    bool tellsMarks = false;   ///< for long, its status told the refusal of one that it did not answer itself
    unsigned unansweredMarks = 0;
    milliseconds longestMark{0}; ///< that the answer to one took
    std::optional<REPLY> told{}; ///< by the status request behind the last mark, if it was answered
    bool tellsState = false;     ///< that was no refusal, and the same behind two marks
    bool keepsMarks = false;     ///< it took a mark for a row
    bool isOpen = false;         ///< it surely took the last start of a page
    bool wasMarked = false;      ///< a mark was sent behind that
    unsigned dropped = 0;        ///< rows that it refused then, in turn
    bool refusesMarks = false;   ///< it refused one while a page or record was open
    bool hasRepeated = false;    ///< a request was sent to it again: the line may be a bad one
    bool answersDirectly[bootloadTiming::KINDS] = {}; ///< it has answered such a request by itself
    PACE pace{};

    milliseconds quiet{bootloadTiming::QUIET}; ///< that a disturbed line must keep
    milliseconds spare{0};                     ///< that the session may still take longer without need

    /** A status request would repeat this; unless that is sure, perhaps still what it would have so far. */
    void noteReply(const std::optional<REPLY>& reply, bool isSure = true) {
        replyBefore = isSure ? std::nullopt : lastReply;
        lastReply = reply;
    }
    /** Status requests behind two marks were not answered, though the marks were. */
    bool ignoresStatus() const { return unrepeated >= 2 && !answersStatus; }
    /** It says nothing to a row that is out of its order: a mark tells nothing then. */
    bool isDeafToMarks() const { return unansweredMarks >= 2 && !answersMarks; }
    /** Rows that are in their order, too, since it told of one that is not so, and answered none by itself.
     */
    bool answersRowsByStatus() const {
        return tellsMarks && !answersDirectly[indexOf(bootloadTiming::KIND::ROW)];
    }
    /** It forgets the open page at a mark. */
    bool dropsPages() const { return dropped >= SURELY_DROPS; }
    static constexpr unsigned SURELY_DROPS = 2;
    /** A mark before or behind such a request does no harm. */
    bool takesMarks(bootloadTiming::KIND kind) const {
        return !keepsMarks && (!dropsPages() || kind == bootloadTiming::KIND::ERASE);
    }
    /** A reply by this name is the module's own. */
    bool isOwnName(std::int8_t named) const { return named == static_cast<std::int8_t>(module); }
    /** It is that of the module before, which may still answer. */
    bool isNameBefore(std::int8_t named) const {
        return before != 0 && before != module && named == static_cast<std::int8_t>(before);
    }
};
