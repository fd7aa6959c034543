#pragma once

#include "../busProtocol.h"

#include <algorithm>
#include <chrono>
#include <cstdint>

/**
 * How long a dialogue with a bootloader waits, and how often it asks: the one place of these numbers, for the
 * panel and for programs on a desk that predict it.
 */
namespace bootloadTiming {

using milliseconds = std::chrono::milliseconds;

constexpr unsigned TRIES = 4;           // of each request
constexpr unsigned PASSES = 3;          // of the wait for one reply, a status request behind each
constexpr unsigned UNIT_MS = 10;        // timeouts count units of 10 ms
constexpr milliseconds STATUS_WAIT{20}; // for the answer to a status request
constexpr milliseconds PAUSE{10};       // behind it, behind a start of page, an erase and a written page

// Timeouts of one pass, in units.
constexpr unsigned COMMAND_TIMEOUT = 20;
constexpr unsigned RESET_TIMEOUT = 5;
constexpr unsigned PAGE_TIMEOUT = 5; // start of page, erase and data rows
constexpr unsigned WRITE_TIMEOUT = 10;

/** What the wait depends on. */
enum class KIND : std::uint8_t { COMMAND, ENTER, START, ROW, WRITE, ERASE };
constexpr std::size_t KINDS = 6;
constexpr std::size_t indexOf(KIND kind) {
    return static_cast<std::size_t>(kind);
}

constexpr milliseconds timeoutOf(KIND kind) {
    const bool isCommand = kind == KIND::COMMAND || kind == KIND::ENTER;
    const unsigned units = isCommand ? COMMAND_TIMEOUT : kind == KIND::WRITE ? WRITE_TIMEOUT : PAGE_TIMEOUT;
    return milliseconds(units * UNIT_MS);
}

/** One pass without an answer. */
constexpr milliseconds passOf(milliseconds timeout) {
    return timeout + STATUS_WAIT + PAUSE;
}

/**
 * How many times the usual passes a try waits: a module may be slow, so the later tries wait longer. Only
 * "enter your bootloader" and other commands do not, which absent modules get.
 */
constexpr unsigned GROWTH[TRIES] = {1, 1, 2, 4};

// While status requests are answered, a request may still be at work: it is not sent again before this.
constexpr milliseconds ENTER_WORK{1500};
constexpr milliseconds ROW_WORK{1000}; // a row or a start of page
constexpr milliseconds WRITE_WORK{3000};
constexpr milliseconds ERASE_WORK{3000}; // and for each page
constexpr milliseconds ERASE_PAGE_WORK{100};
constexpr milliseconds ERASE_ALL_WORK{30000}; // flash of 1 MiB takes 8 to 16 s by its data sheets
constexpr unsigned SURELY_DONE = 4;           // times the longest that this kind of request took so far

/** The longest that an erase of so many pages may take; 0 pages: of everything. */
constexpr milliseconds eraseWork(std::uint32_t pages) {
    return pages == 0 ? ERASE_ALL_WORK : std::min(ERASE_ALL_WORK, ERASE_WORK + pages * ERASE_PAGE_WORK);
}

/** What may be another's answer is taken for a request that others prove, when no better one follows. */
constexpr milliseconds BETTER_ANSWER[TRIES] = {milliseconds(80), milliseconds(320), milliseconds(1000),
                                               milliseconds(1000)};

// What may still come on the line.
constexpr milliseconds LATEST{500};             // a reply is at most this late, or lost
constexpr milliseconds LATEST_ENTRY{2000};      // so is the answer to "enter your bootloader"
constexpr milliseconds ECHO{20};                // the same answer again within this was doubled on its way
constexpr milliseconds QUIET{100};              // what a disturbed line must be silent for
constexpr milliseconds LONGEST_SETTLE{2000};    // for a line that never falls quiet
constexpr milliseconds KEEP_ALIVE{200};         // a session may end when it hears nothing for longer
constexpr milliseconds LONGEST_DIRECT{400};     // for an answer that came about then before, by itself or not
constexpr milliseconds MARK_WAIT{250};          // for what a mark gets, or a status request behind it
constexpr milliseconds LINGER{10};              // for a doubled reply, before a request that it would confirm
constexpr milliseconds LONGEST_SPARE{100};      // all that a quiet line loses to such pauses in a session
constexpr milliseconds IDENTIFICATION_WAIT{70}; // behind an old bootloader's plain answer

} // namespace bootloadTiming
