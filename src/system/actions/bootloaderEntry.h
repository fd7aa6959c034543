#pragma once

#include "bootloadLine.h"

/**
 * How a bootloader is entered: asks a module for it, and finds out by what it says which bootloader it has,
 * if any. Made for one entry; runs on the thread of its host.
 */
class bootloaderEntry {
public:
    enum class ENTRY : std::uint8_t {
        NONE,       ///< no bootloader answered
        PLAIN,      ///< an old one, which does not say what it is
        ANOTHER,    ///< it says that it is another module's; the session has what it said
        IDENTIFIED, ///< the same of the module's own
    };

    /** What counts. */
    struct RULES {
        bool byName; ///< only an identification that names the module; else any
        bool strict; ///< errors that may be another request's make no old bootloader, not even at last
    };

    /** What is heard goes into `known`, the session that the line has. */
    bootloaderEntry(bootloadHost& panel, bootloadLine& wire, SESSION& known, std::uint8_t module,
                    RULES rules);

    /** Begins a new session and asks up to 4 times. NONE, too, when the run is cancelled. */
    ENTRY enter();

private:
    using clock = bootloadLine::clock;
    using milliseconds = bootloadLine::milliseconds;
    using ANSWER = busMessages::ANSWER;
    using WHOSE = openRequests::WHOSE;

    /** What has been heard so far, by its worth. */
    enum class HEARD : std::uint8_t {
        SILENCE,
        LIFE,           ///< something that is not known to be an old bootloader's answer
        DOUBTED,        ///< a reply that may be another request's
        PLAIN,          ///< an old bootloader's own reply
        ANOTHER,        ///< an identification that names another module
        IDENTIFICATION, ///< the module's own
    };
    /** What follows from it. */
    struct CONSEQUENCE {
        bool endsAsking;
        ENTRY result; ///< in the end
    };
    static const CONSEQUENCE CONSEQUENCES[];

    const CONSEQUENCE& consequence() const { return CONSEQUENCES[static_cast<std::size_t>(heard)]; }
    void ask(unsigned n);
    void listen();
    bool hearWithin(milliseconds wait);
    void hearMore();
    void consider(const ANSWER& answer);
    HEARD classify(const busMessages::IDENTIFICATION& identification);
    HEARD classify(const busMessages::REPLY& reply, WHOSE whose);
    bool mayBelieveErrors(const busMessages::REPLY& reply) const;

    bootloadHost& host;
    bootloadLine& line;
    SESSION& session;
    bootloadLine::REQUEST request;
    RULES counts;
    bool lastTry = false;
    bool direct = false;          ///< nothing else was sent, nor did anything disturb the line
    HEARD heard = HEARD::SILENCE; ///< only rises, through all tries
};
