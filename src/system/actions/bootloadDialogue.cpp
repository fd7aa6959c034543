#include "bootloadDialogue.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

using namespace busProtocol;
using MESSAGE = ProcBusThread::PROCBUS_MSG;

namespace {

constexpr unsigned TRIES = 4;
constexpr unsigned PASSES = 3;          // of the wait for one reply
constexpr unsigned STATUS_POLLS = 20;   // of 1 ms
constexpr unsigned POLLS_PER_UNIT = 10; // a timeout counts units of 10 ms
constexpr unsigned PAUSE_MS = 10;

constexpr std::chrono::milliseconds QUIET{100};   // a doubled reply has come within this
constexpr std::chrono::seconds LONGEST_SETTLE{2}; // for a line that never falls quiet

// Timeouts, in units of 10 ms.
constexpr unsigned COMMAND_TIMEOUT = 20;
constexpr unsigned PAGE_TIMEOUT = 5; // start of page, erase and data rows
constexpr unsigned WRITE_TIMEOUT = 10;
constexpr unsigned CONFIRM_TIMEOUTS[TRIES] = {PAGE_TIMEOUT, 20, 60, 200};
constexpr unsigned SLOW_COMMAND_TIMEOUT = 100;

constexpr std::uint8_t COMMAND_BUFFER_SIZE = 15;
constexpr std::uint32_t NO_ROW = 0xFFFF; // in the record: no reply has come, or an identification only

MESSAGE command(std::uint8_t module, COMMAND code) {
    MESSAGE msg;
    msg.id = BOOTLOADER_COMMAND;
    msg.length = 2;
    msg.data[0] = module;
    msg.data[1] = code;
    return msg;
}

MESSAGE addressedCommand(std::uint8_t module, COMMAND code, std::uint32_t address, bool wide) {
    MESSAGE msg = command(module, code);
    msg.length = wide ? 8 : 6;
    msg.data[2] = byteOf(address, 1);
    msg.data[3] = byteOf(address, 0);
    if (wide) {
        msg.data[6] = byteOf(address, 2);
        msg.data[7] = byteOf(address, 3);
    }
    return msg;
}

MESSAGE systemCommand(std::uint8_t module, std::uint8_t arg) {
    MESSAGE msg;
    msg.id = SYSTEM_COMMAND;
    msg.length = 2;
    msg.data[0] = module;
    msg.data[1] = arg;
    return msg;
}

MESSAGE dataRow(std::uint32_t row, const std::vector<std::uint8_t>& data) {
    MESSAGE msg;
    msg.data[msg.length++] = byteOf(row, 0);
    if (row < FIRST_WIDE_ROW) {
        msg.id = DATA_ROW;
    } else {
        msg.id = DATA_ROW_WIDE;
        msg.data[msg.length++] = byteOf(row, 1);
    }
    for (std::size_t at = rowOffset(row); at < data.size() && msg.length < ROW_PAYLOAD; ++at) {
        msg.data[msg.length++] = data[at];
    }
    return msg;
}

/** Neither the reply to such a row nor that to a status request after it can carry row 0. */
bool isLaterRow(const MESSAGE& msg) {
    return msg.id == DATA_ROW_WIDE || (msg.id == DATA_ROW && msg.data[0] > 1);
}

/** Whether a reply for this row, or an identification, can be the one to the message. */
bool mayAnswer(std::uint32_t row, const MESSAGE& msg) {
    const bool asksForIdentity = msg.id == SYSTEM_COMMAND && msg.data[1] == ENTER_BOOTLOADER;
    return row == (msg.id == DATA_ROW ? msg.data[0] : 0U) || (row == NO_ROW && asksForIdentity);
}

__attribute__((format(printf, 1, 2))) std::string format(const char* text, ...) {
    char buffer[160];
    va_list args;
    va_start(args, text);
    std::vsnprintf(buffer, sizeof buffer, text, args); // NOLINT(clang-analyzer-valist.Uninitialized)
    va_end(args);
    return buffer;
}

/**
 * Number of pages up to the last one with data. An empty page behind that is none of the image's: the reader
 * makes one when a record fills its page but for the phantom byte that has no place in flash.
 */
std::uint32_t countPagesToData(hexpage& image) {
    std::uint32_t count = 0;
    std::uint32_t upToData = 0;
    image.resetIterator();
    while (const hexpage::MEMORY_PAGE* page = image.getNextPage()) {
        ++count;
        upToData = page->data.empty() ? upToData : count;
    }
    return upToData;
}

} // namespace

void bootloadDialogue::logItem(const std::string& text, logger::LOG_TYPE type) const {
    csys->log->log_item(logPrefix + text, type);
}

bool bootloadDialogue::sendReqStat(std::uint8_t module) {
    csys->busResetResponse();
    csys->comBus->send(command(module, REQUEST_STATUS));
    return csys->awaitResponse(STATUS_POLLS);
}

bool bootloadDialogue::sendWithResponse(std::uint8_t module, MESSAGE msg, unsigned timeout) {
    const bool isLater = isLaterRow(msg);
    const bool quiet = isQuiet();
    csys->busResetResponse();
    reply = csys->reply();
    csys->comBus->send(msg);
    answeredDirectly = true;
    for (unsigned pass = 0; pass < PASSES && !csys->cancel; ++pass) {
        if (csys->awaitResponse(timeout * POLLS_PER_UNIT)) {
            reply = csys->reply();
            if (!isLater && (!quiet || !mayAnswer(reply.page, msg))) {
                expectStale(LATEST); // it may be an earlier request's, and the one to this still to come
            }
            return true;
        }
        answeredDirectly = false;
        expectStale(isLater ? QUIET : LATEST);
        sendReqStat(module);
        csys->pause(PAUSE_MS);
    }
    return false;
}

bool bootloadDialogue::sendSystemCommand(std::uint8_t module, std::uint8_t arg) {
    csys->comBus->setBuffSize(COMMAND_BUFFER_SIZE);
    for (unsigned n = 0; n < TRIES && !csys->cancel; ++n) {
        if (sendWithResponse(module, systemCommand(module, arg), COMMAND_TIMEOUT)) {
            return true;
        }
    }
    return false;
}

bool bootloadDialogue::enterBootloader(std::uint8_t module) {
    auto& record = csys->bootloader;
    record.hwRev = 0;
    record.swVersion = std::string();
    record.serialBootload = false;
    bool mayBeOld = false;
    unsigned timeout = COMMAND_TIMEOUT;
    csys->comBus->setBuffSize(COMMAND_BUFFER_SIZE);
    expectStale(QUIET); // of the module before
    settle();
    for (unsigned n = 0; n < TRIES && !csys->cancel; ++n) {
        const bool quiet = isQuiet();
        record.blInitData = false;
        mayBeOld = false;
        if (!sendWithResponse(module, systemCommand(module, ENTER_BOOTLOADER), timeout)) {
            continue;
        }
        if (reply.page == NO_ROW) {
            if (reply.blInitData && isFrom(module)) {
                return true;
            }
        } else {
            // A status request is answered with an error by a bootloader that has not answered anything yet.
            mayBeOld = isFrom(module) && reply.page == 0 && (answeredDirectly || reply.status == OK);
            const bool isPlain = quiet && answeredDirectly;
            expectStale(QUIET);
            settle();
            if (record.blInitData) {
                record.blInitData = mayBeOld = false; // beside a reply: who sent which is not known
            } else if (mayBeOld && isPlain) {
                return !csys->cancel;
            }
        }
        timeout = SLOW_COMMAND_TIMEOUT; // there is a module, which may be slow to identify itself
        settle();
    }
    reply = csys->reply(); // an identification may have come while the line fell quiet
    return (reply.blInitData || mayBeOld) && !csys->cancel;
}

void bootloadDialogue::expectStale(std::chrono::milliseconds wait) {
    quietAt = std::max(quietAt, clock::now() + wait);
}

/** Lets the replies to earlier requests pass that may still come: none is to be taken for the next one's. */
void bootloadDialogue::settle() {
    const auto limit = clock::now() + LONGEST_SETTLE;
    while (!isQuiet() && clock::now() < limit && !csys->cancel) {
        const auto rest = std::chrono::ceil<std::chrono::milliseconds>(quietAt - clock::now());
        csys->busResetResponse();
        if (csys->awaitResponse(static_cast<unsigned>(rest.count()))) {
            expectStale(QUIET);
        }
    }
}

/** Whether the reply is the module's, as far as it tells. */
bool bootloadDialogue::isFrom(std::uint8_t module) const {
    const std::int8_t reported = reply.moduleReported;
    return reported == -1 || reported == static_cast<std::int8_t>(module);
}

/** One try of a page's request, which succeeds when the module answers for row 0. */
bool bootloadDialogue::tryRequest(std::uint8_t module, const MESSAGE& msg, unsigned timeout) {
    if (!sendWithResponse(module, msg, timeout)) {
        return false;
    }
    const bool answered = isFrom(module) && reply.page == 0;
    if (!answered) {
        expectStale(QUIET);
    }
    return answered;
}

/** Up to 4 tries; `failure` when none succeeded, else the reply's status. */
std::uint8_t bootloadDialogue::requestStatus(std::uint8_t module, const MESSAGE& msg, BLSTATUS failure) {
    for (unsigned n = 0; n < TRIES && !csys->cancel; ++n) {
        if (tryRequest(module, msg, PAGE_TIMEOUT)) {
            const std::uint8_t status = reply.status;
            csys->pause(PAUSE_MS);
            return status;
        }
    }
    return failure;
}

/**
 * The same for requests whose effect nothing checks later. An answer that came only on a status request may
 * repeat the reply to the request before and does not count; each try waits longer than the one before, for a
 * module that is slow.
 */
std::uint8_t bootloadDialogue::confirmedStatus(std::uint8_t module, const MESSAGE& msg, BLSTATUS failure) {
    expectStale(QUIET);
    for (const unsigned timeout : CONFIRM_TIMEOUTS) {
        settle();
        if (csys->cancel) {
            break;
        }
        if (tryRequest(module, msg, timeout) && answeredDirectly) {
            const std::uint8_t status = reply.status;
            csys->pause(PAUSE_MS);
            return status;
        }
    }
    return failure;
}

std::uint8_t bootloadDialogue::startPage(std::uint8_t module, const hexpage::MEMORY_PAGE& page,
                                         bool wideAddress) {
    MESSAGE msg = addressedCommand(module, START_PAGE, page.startAddress, wideAddress);
    msg.data[4] = byteOf(page.dataLength, 1);
    msg.data[5] = byteOf(page.dataLength, 0);
    const bool quiet = isQuiet();
    std::uint8_t status = requestStatus(module, msg, BADCHECKSUM);
    if (status == IGNOREPG && !(quiet && isQuiet() && answeredDirectly)) {
        status = confirmedStatus(module, msg, BADCHECKSUM); // it may have been said of the page before
    }
    if (status == IGNOREPG) {
        expectStale(QUIET);
        settle();
    }
    return status;
}

std::uint8_t bootloadDialogue::eraseBlock(std::uint8_t module, std::uint32_t address, std::uint8_t count,
                                          bool wideAddress) {
    MESSAGE msg = addressedCommand(module, ERASE_BLOCKS, address, wideAddress);
    msg.data[4] = count;
    return confirmedStatus(module, msg, ERASEERR);
}

std::uint8_t bootloadDialogue::eraseAll(std::uint8_t module) {
    return confirmedStatus(module, addressedCommand(module, ERASE_ALL, 0, true), ERASEERR);
}

int bootloadDialogue::sendDataRow(std::uint8_t module, std::uint32_t row,
                                  const std::vector<std::uint8_t>& data) {
    return sendRow(module, row, data, false);
}

/** `confirmed`: as confirmedStatus() does it. */
int bootloadDialogue::sendRow(std::uint8_t module, std::uint32_t row, const std::vector<std::uint8_t>& data,
                              bool confirmed) {
    const MESSAGE msg = dataRow(row, data);
    bool answered = false;
    lastRow = row;
    for (unsigned n = 0; n < TRIES && !csys->cancel; ++n) {
        if (confirmed) {
            settle();
        }
        if (!sendWithResponse(module, msg, PAGE_TIMEOUT)) {
            std::printf("No response\n");
            continue;
        }
        answered = true;
        const std::uint32_t reported = reply.page;
        if (reported == row && isFrom(module) && (answeredDirectly || !confirmed)) {
            return reply.status;
        }
        std::printf("expecting row %d, got row%d\n", static_cast<int>(row), static_cast<int>(reported));
        expectStale(QUIET);
        settle(); // else each try would be answered by what the one before has left
    }
    return answered ? MISSEDPACKET : -1;
}

int bootloadDialogue::sendRows(std::uint8_t module, const std::vector<std::uint8_t>& data) {
    int status = OK;
    for (std::uint32_t row = 0; rowOffset(row) < data.size() && status == OK; ++row) {
        status = sendDataRow(module, row, data);
    }
    return status;
}

int bootloadDialogue::sendRecord(std::uint8_t module, const std::vector<std::uint8_t>& bytes) {
    if (bytes.size() > rowOffset(1)) {
        return sendRows(module, bytes);
    }
    expectStale(QUIET);
    return sendRow(module, 0, bytes, true);
}

bool bootloadDialogue::sendPageWrite(std::uint8_t module) {
    const bool ambiguous = lastRow == 0; // a reply to the only row looks like one to the page write
    if (ambiguous) {
        expectStale(QUIET);
    }
    for (unsigned n = 0; n < TRIES && !csys->cancel; ++n) {
        if (n == 0 || ambiguous) { // else only the first write can be what is answered
            settle();
        }
        if (tryRequest(module, command(module, WRITE_PAGE), WRITE_TIMEOUT) && reply.status == OK &&
            (answeredDirectly || !ambiguous)) {
            return true;
        }
        if (reply.hasResponse && (reply.page != 0 || reply.status != OK)) {
            std::printf("Page Write Error: %d (rec: %x)\n", static_cast<int>(reply.status),
                        static_cast<unsigned>(reply.page));
        }
    }
    return false;
}

bool bootloadDialogue::programImage(std::uint8_t module, const LAYOUT& layout, hexpage& image) {
    const std::uint32_t total = image.getTotalPages();
    const std::uint32_t used = countPagesToData(image);
    image.resetIterator();
    if (layout.eraseAllFirst && eraseAll(module) != OK) {
        logFailure("Could not erase range (all)");
        return false;
    }
    std::uint32_t index = 0;
    hexpage::MEMORY_PAGE* page = image.getNextPage();
    while (page != nullptr && index < used) {
        if (csys->cancel) {
            return false;
        }
        if (!page->data.empty()) {
            if (!programPage(module, layout, *page, index, total)) {
                return false;
            }
        } else if (layout.eraseEmptyPages) {
            if (!eraseEmptyRun(module, layout, image, page, index)) {
                return false;
            }
            continue; // with the page that ended the run
        }
        page = image.getNextPage();
        ++index;
    }
    return true;
}

/** Erases the adjoining pages without data that start at `page`; leaves `page` at the one behind them. */
bool bootloadDialogue::eraseEmptyRun(std::uint8_t module, const LAYOUT& layout, hexpage& image,
                                     hexpage::MEMORY_PAGE*& page, std::uint32_t& index) {
    const std::uint32_t start = page->startAddress;
    std::uint32_t count = 0;
    std::uint32_t next = start;
    while (page != nullptr && page->data.empty() && page->startAddress == next) {
        next = page->endAddress + 1;
        ++count;
        page = image.getNextPage();
    }
    logItem(format("Erasing blocks at 0x%x (%d)", start, static_cast<int>(count)), logger::LOG_NOTICE);
    const std::uint8_t status = eraseBlock(module, start, byteOf(count, 0), layout.wideAddress);
    if (status != OK && status != IGNOREPG) {
        logFailure("Could not erase range");
        return false;
    }
    index += count;
    logItem("Blocks Erased", logger::LOG_NOTICE);
    return true;
}

bool bootloadDialogue::programPage(std::uint8_t module, const LAYOUT& layout, hexpage::MEMORY_PAGE& page,
                                   std::uint32_t index, std::uint32_t total) {
    page.dataLength = static_cast<std::uint32_t>(page.data.size());
    mayBeWritten = false;
    for (unsigned n = 0; n < TRIES; ++n) {
        logItem(format("Working on Address# 0x%x (%d/%d) LEN: %lu", page.startAddress,
                       static_cast<int>(index), static_cast<int>(total),
                       static_cast<unsigned long>(page.dataLength)),
                logger::LOG_NOTICE);
        if (attemptPage(module, layout, page) == PAGE_RESULT::DONE) {
            return true;
        }
        if (csys->cancel) {
            return false;
        }
    }
    logItem("Page retry count exceeded.  Exiting.", logger::LOG_ERROR);
    return false;
}

bootloadDialogue::PAGE_RESULT bootloadDialogue::attemptPage(std::uint8_t module, const LAYOUT& layout,
                                                            const hexpage::MEMORY_PAGE& page) {
    const std::uint8_t started = startPage(module, page, layout.wideAddress);
    if (started == IGNOREPG && !mayBeWritten) { // one that took the rows before holds who knows what now
        logItem("Page ignored", logger::LOG_NOTICE);
        return PAGE_RESULT::DONE;
    }
    if (started != OK) {
        return retry("Could not send SOH.  Retrying.");
    }
    settle(); // a late answer to the start of page looks like one to row 0
    const int sent = sendRows(module, page.data);
    if (sent < 0) {
        return retry("No response from data send...retrying page");
    }
    if (sent != OK) {
        return retry("Data TX error...retrying...");
    }
    mayBeWritten = true;
    if (!sendPageWrite(module)) {
        return retry("Could not write page to internal flash...retrying...");
    }
    logItem("Page written successfully", logger::LOG_NOTICE);
    csys->pause(PAUSE_MS);
    return PAGE_RESULT::DONE;
}

/** Says why the run ends, unless it was cancelled. */
void bootloadDialogue::logFailure(const char* reason) const {
    if (!csys->cancel) {
        logItem(reason, logger::LOG_ERROR);
    }
}

/** Says why the page starts again, unless it does not because the run was cancelled. */
bootloadDialogue::PAGE_RESULT bootloadDialogue::retry(const char* reason) {
    if (!csys->cancel) {
        logItem(reason, logger::LOG_WARNING);
        csys->pause(PAUSE_MS);
    }
    return PAGE_RESULT::RETRY;
}
