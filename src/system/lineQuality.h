#pragma once

#include "../lib/shared.h"
#include "busMessages.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

/**
 * How well the line to one module works, counted while it is talked to. Requests are counted by the thread
 * that sends them, one at a time; damaged frames, by the link thread.
 */
class lineQuality {
public:
    using clock = std::chrono::steady_clock;

    /** From now on another module is talked to. */
    void begin();
    /** A mark is none. */
    void sent(const busMessages::PROCBUS_MSG& request, clock::time_point now = clock::now());
    void answered(clock::time_point now = clock::now());
    /** A frame with a wrong CRC came. */
    void damagedFrame() { ++damaged; }

    /** True when there was anything to judge by: an answer. */
    bool wasHeard() const { return exchanges != 0; }
    /** So much was repeated that the line may fail one day. */
    bool isBad() const;
    /** "812 exchanges, 3 repeated, 1 silent, 0 damaged, reply 2.8 ms, 31.0 ms at most" */
    std::string text() const;

private:
    using milliseconds = std::chrono::duration<double, std::milli>;
    static constexpr std::size_t STEPS = 1000; // of a tenth of a millisecond

    double medianMs() const;

    std::uint32_t exchanges = 0; ///< requests that were answered
    std::uint32_t repeated = 0;
    std::uint32_t silent = 0;
    std::uint32_t damagedBefore = 0;
    shared<std::uint32_t> damaged;
    std::optional<clock::time_point> asked;         ///< while there is no answer
    busMessages::PROCBUS_MSG last;                  ///< that was no status request
    std::array<std::uint32_t, STEPS + 1> replies{}; ///< by the time they took; the last one, all longer ones
    double longestMs = 0;
};
