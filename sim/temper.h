// How a module behaves in time, and in all that the protocol leaves open. By default it does everything at
// once and answers plainly.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>

namespace sim {

struct Temper {
    using Time = std::chrono::milliseconds;

    // What becomes of a request that comes while the module works.
    enum class Busy {
        Queue,  // done and answered behind the work, in its turn
        Drop,   // never heard
        Answer, // a status request is answered at once, all others are dropped
    };
    // When a start of page, a row, a page write or an erase is answered; the first two never at once.
    enum class Answers {
        Directly, // when the work is done
        OnStatus, // not by itself: the status request behind the work gets it
        AtOnce,   // OK before the work, whose failure the status request behind it gets
    };
    // What becomes of a row that is not the one to come, or comes while no page is open.
    enum class OutOfOrder {
        Refused, // MISSEDPACKET, the page stays as it is
        Silent,  // it is not answered
        Drops,   // MISSEDPACKET, and the open page is forgotten
    };
    // What a status request is answered with.
    enum class OnStatus {
        LastReply,
        State,   // OK and the row accepted last; while it works BADCHECKSUM, row 0
        Nothing, // it stays without an answer
    };

    // How long each kind of work takes. It has happened when that time is over, not before.
    Time enterTime{0}; // from "," to its answer
    Time startTime{0};
    Time rowTime{0};
    Time writeTime{0};
    Time erasePageTime{0}; // for each page of an erase
    Time eraseAllTime{0};

    Time latency{0}; // of each answer, on its way; the module itself is free meanwhile

    Busy busy = Busy::Queue;
    Answers startAnswer = Answers::Directly;
    Answers rowAnswer = Answers::Directly;
    Answers writeAnswer = Answers::Directly;
    Answers eraseAnswer = Answers::Directly;
    OnStatus onStatus = OnStatus::LastReply;
    OutOfOrder outOfOrder = OutOfOrder::Refused;

    std::optional<std::uint8_t> namedModule;      // that replies name instead of the module's own address
    std::optional<std::uint8_t> identifiedModule; // the same for the identification
    std::optional<std::uint8_t> renamedModule; // that replies name from the first page or record written on
    unsigned replyLength = 4;                  // bytes of a reply: 2 is the short form, 3 names no module
    std::uint16_t enterRow = 0;                // row in an old bootloader's answer to ","
    bool silentEnter = false;                  // an old bootloader does not answer ","
    unsigned enterNth = 1;                     // "," is answered from this one on, counted since power came
    bool deafToEnter = false;                  // "," is not heard any more once it was answered
    bool anyRowOrder = false; // a row is kept at the place that it names, whichever was to come
    bool refusesWriteAgain =
        false;        // MISSEDPACKET for a page write without an open page, whatever was written
    Time idleTime{0}; // the session ends after such a silence, work not counted; 0: never

    // What no sound module does, for trials with hostile ones; 0: never.
    unsigned restartAfter = 0; // pages, or data records: its bootloader starts anew by itself behind that one
    Time babblePeriod{0};      // of replies "OK, row 0" that nobody asked for, while in its bootloader
    Time identityPeriod{0};    // of messages 22, in update mode and in its bootloader, too
    std::array<std::uint8_t, 2> identityHardware{0, 1}; // hardware revisions in them, in turn
};

} // namespace sim
