#pragma once

#include "../../lib/hexfile/hexPage.h"
#include "../ProcBusThread.h"
#include "../coreState.h"
#include "flashLayouts.h"

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

/**
 * The dialogue with a module's bootloader, one request and one reply at a time: what the CAN and the serial
 * bootloader action have in common. docs/bus-protocol.md has the messages.
 *
 * Runs on the thread of the action that holds it and polls the core's bootloader record, which the link
 * thread fills. Every wait ends at once when the core's `cancel` is set, with the request's failure result.
 * Timeouts count units of 10 ms.
 */
class bootloadDialogue {
public:
    /** Status codes of a bootloader's reply, used for local failures, too. */
    enum BLSTATUS : std::uint8_t {
        OK = 0,
        BADCHECKSUM = 1,
        MISSEDPACKET = 2,
        WRONGMODULE = 3,
        WRITEERR = 4,
        ERASEERR = 5,
        IGNOREPG = 6
    };

    using LAYOUT = flashLayouts::LAYOUT;

    /** `prefix` begins every log text of the dialogue. */
    bootloadDialogue(coreState* core, std::string prefix) : csys(core), logPrefix(prefix) {}

    /** Asks the module for its last reply and waits at most 20 polls of 1 ms for it. */
    bool sendReqStat(std::uint8_t module);
    /**
     * Sends a request and waits for a reply: 3 passes of `timeout` x 10 polls of 1 ms, a status request and a
     * pause of 10 ms after each silent pass. The reply to a status request counts, too.
     */
    bool sendWithResponse(std::uint8_t module, ProcBusThread::PROCBUS_MSG msg, unsigned timeout);
    /** Up to 4 tries, each with a timeout of 20; true at the first answer. */
    bool sendSystemCommand(std::uint8_t module, std::uint8_t arg);
    /** What answered the last request, as it came; without an answer, what busResetResponse() leaves. */
    const coreState::REPLY& lastReply() const { return reply; }
    /**
     * Asks the module into its bootloader; false when it does not answer. lastReply() then tells whether it
     * sent its identification (`blInitData`), and what that says; the one of a module before is forgotten. An
     * answer that may not be the one to this request (it came only on a status request, or while late replies
     * may come) is not taken for an old bootloader's: the request is repeated within its 4 tries, since an
     * image in the wrong layout would be worse than a lost second.
     */
    bool enterBootloader(std::uint8_t module);

    /** Announces a page. BADCHECKSUM after 4 failed tries, else the reply's status. */
    std::uint8_t startPage(std::uint8_t module, const hexpage::MEMORY_PAGE& page, bool wideAddress);
    /** ERASEERR after 4 failed tries, else the reply's status. */
    std::uint8_t eraseBlock(std::uint8_t module, std::uint32_t address, std::uint8_t count, bool wideAddress);
    std::uint8_t eraseAll(std::uint8_t module);
    /**
     * Sends row `row` of `data`, up to 4 tries; after an answer for another row only once the line has been
     * quiet. -1 when no try was answered, else the reply's status; MISSEDPACKET when the module kept
     * reporting another row.
     */
    int sendDataRow(std::uint8_t module, std::uint32_t row, const std::vector<std::uint8_t>& data);
    /** Sends all rows of `data`: the result of the first that failed, else OK. */
    int sendRows(std::uint8_t module, const std::vector<std::uint8_t>& data);
    /**
     * The same for rows without a start of page, which row 0 opens. When there is only that one, makes sure
     * that it came: a module without open rows answers the page write with the result of the one before.
     */
    int sendRecord(std::uint8_t module, const std::vector<std::uint8_t>& bytes);
    /** Up to 4 tries; true only when the module confirmed that the rows it got were written. */
    bool sendPageWrite(std::uint8_t module);

    /** Erases as the layout asks and programs every page. False after the log has said what failed. */
    bool programImage(std::uint8_t module, const LAYOUT& layout, hexpage& image);

    void logItem(const std::string& text, logger::LOG_TYPE type) const;

private:
    enum class PAGE_RESULT { DONE, RETRY };

    using clock = std::chrono::steady_clock;
    static constexpr std::chrono::milliseconds LATEST{500}; ///< a reply is at most this late, or lost

    bool tryRequest(std::uint8_t module, const ProcBusThread::PROCBUS_MSG& msg, unsigned timeout);
    std::uint8_t requestStatus(std::uint8_t module, const ProcBusThread::PROCBUS_MSG& msg, BLSTATUS failure);
    std::uint8_t confirmedStatus(std::uint8_t module, const ProcBusThread::PROCBUS_MSG& msg,
                                 BLSTATUS failure);
    int sendRow(std::uint8_t module, std::uint32_t row, const std::vector<std::uint8_t>& data,
                bool confirmed);
    bool isFrom(std::uint8_t module) const;
    void expectStale(std::chrono::milliseconds wait);
    bool isQuiet() const { return clock::now() >= quietAt; }
    void settle();
    bool eraseEmptyRun(std::uint8_t module, const LAYOUT& layout, hexpage& image, hexpage::MEMORY_PAGE*& page,
                       std::uint32_t& index);
    bool programPage(std::uint8_t module, const LAYOUT& layout, hexpage::MEMORY_PAGE& page,
                     std::uint32_t index, std::uint32_t total);
    PAGE_RESULT attemptPage(std::uint8_t module, const LAYOUT& layout, const hexpage::MEMORY_PAGE& page);
    PAGE_RESULT retry(const char* reason);
    void logFailure(const char* reason) const;

    coreState* csys;
    std::string logPrefix;
    coreState::REPLY reply;
    bool answeredDirectly = false;                     ///< the last answer came before any status request
    clock::time_point quietAt = clock::now() + LATEST; ///< until then earlier requests may be answered
    std::uint32_t lastRow = 0;                         ///< last row sent of the open page
    bool mayBeWritten = false;                         ///< the page at hand, in part at least
};
