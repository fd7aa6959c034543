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
constexpr unsigned QUIET_MS = 100;      // without a reply for this long, no stale one is on its way
constexpr unsigned LONGEST_SETTLE = 20; // stale replies waited for at most

// Timeouts, in units of 10 ms.
constexpr unsigned COMMAND_TIMEOUT = 20;
constexpr unsigned PAGE_TIMEOUT = 5; // start of page, erase and data rows
constexpr unsigned WRITE_TIMEOUT = 10;

constexpr std::uint8_t COMMAND_BUFFER_SIZE = 15;

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

__attribute__((format(printf, 1, 2))) std::string format(const char* text, ...) {
    char buffer[160];
    va_list args;
    va_start(args, text);
    std::vsnprintf(buffer, sizeof buffer, text, args); // NOLINT(clang-analyzer-valist.Uninitialized)
    va_end(args);
    return buffer;
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
    csys->busResetResponse();
    csys->comBus->send(msg);
    answeredDirectly = true;
    for (unsigned pass = 0; pass < PASSES && !csys->cancel; ++pass) {
        if (csys->awaitResponse(timeout * POLLS_PER_UNIT)) {
            return true;
        }
        answeredDirectly = false;
        disturbed = true;
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
    const auto& record = csys->bootloader;
    bool answered = false;
    csys->comBus->setBuffSize(COMMAND_BUFFER_SIZE);
    settle();
    for (unsigned n = 0; n < TRIES && !csys->cancel; ++n) {
        if (!sendWithResponse(module, systemCommand(module, ENTER_BOOTLOADER), COMMAND_TIMEOUT)) {
            continue;
        }
        answered = true;
        const bool fromModule = record.moduleReported == static_cast<std::int8_t>(module);
        const bool namesNone = record.moduleReported == -1;
        if (record.blInitData ? fromModule : answeredDirectly && (fromModule || namesNone)) {
            return true;
        }
    }
    return answered && !csys->cancel;
}

/** After a disturbance: waits until late and doubled replies have come in, so that none is taken for the
 * next. */
void bootloadDialogue::settle() {
    for (unsigned n = 0; disturbed && n < LONGEST_SETTLE && !csys->cancel; ++n) {
        csys->busResetResponse();
        disturbed = csys->awaitResponse(QUIET_MS);
    }
    disturbed = false;
}

/** One try of a page's request, which succeeds when it is answered for row 0. */
bool bootloadDialogue::tryRequest(std::uint8_t module, const MESSAGE& msg, unsigned timeout) {
    if (!sendWithResponse(module, msg, timeout)) {
        return false;
    }
    disturbed = disturbed || csys->bootloader.page != 0;
    return csys->bootloader.page == 0;
}

/** Up to 4 tries; `failure` when none succeeded, else the reply's status. */
std::uint8_t bootloadDialogue::requestStatus(std::uint8_t module, const MESSAGE& msg, BLSTATUS failure) {
    for (unsigned n = 0; n < TRIES && !csys->cancel; ++n) {
        if (tryRequest(module, msg, PAGE_TIMEOUT)) {
            const std::uint8_t status = csys->bootloader.status;
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
    return requestStatus(module, msg, BADCHECKSUM);
}

std::uint8_t bootloadDialogue::eraseBlock(std::uint8_t module, std::uint32_t address, std::uint8_t count,
                                          bool wideAddress) {
    MESSAGE msg = addressedCommand(module, ERASE_BLOCKS, address, wideAddress);
    msg.data[4] = count;
    settle();
    return requestStatus(module, msg, ERASEERR);
}

std::uint8_t bootloadDialogue::eraseAll(std::uint8_t module) {
    settle();
    return requestStatus(module, addressedCommand(module, ERASE_ALL, 0, true), ERASEERR);
}

int bootloadDialogue::sendDataRow(std::uint8_t module, std::uint32_t row,
                                  const std::vector<std::uint8_t>& data) {
    const MESSAGE msg = dataRow(row, data);
    bool answered = false;
    lastRow = row;
    for (unsigned n = 0; n < TRIES && !csys->cancel; ++n) {
        if (!sendWithResponse(module, msg, PAGE_TIMEOUT)) {
            std::printf("No response\n");
            continue;
        }
        answered = true;
        if (csys->bootloader.page == row) {
            return csys->bootloader.status;
        }
        disturbed = true;
        std::printf("expecting row %d, got row%d\n", static_cast<int>(row),
                    static_cast<int>(csys->bootloader.page));
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

bool bootloadDialogue::sendPageWrite(std::uint8_t module) {
    const auto& record = csys->bootloader;
    const MESSAGE msg = command(module, WRITE_PAGE);
    const bool ambiguous = lastRow == 0; // a reply to the only row looks like one to the page write
    disturbed = disturbed || ambiguous;
    settle();
    for (unsigned n = 0; n < TRIES && !csys->cancel; ++n) {
        if (tryRequest(module, msg, WRITE_TIMEOUT) && record.status == OK &&
            (answeredDirectly || !ambiguous)) {
            return true;
        }
    }
    return false;
}

bool bootloadDialogue::programImage(std::uint8_t module, const LAYOUT& layout, hexpage& image) {
    const std::uint32_t total = image.getTotalPages();
    image.resetIterator();
    if (layout.eraseAllFirst && eraseAll(module) != OK) {
        logItem("Could not erase range (all)", logger::LOG_ERROR);
        return false;
    }
    std::uint32_t index = 0;
    hexpage::MEMORY_PAGE* page = image.getNextPage();
    while (page != nullptr) {
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
        logItem("Could not erase range", logger::LOG_ERROR);
        return false;
    }
    index += count;
    logItem("Blocks Erased", logger::LOG_NOTICE);
    return true;
}

bool bootloadDialogue::programPage(std::uint8_t module, const LAYOUT& layout, hexpage::MEMORY_PAGE& page,
                                   std::uint32_t index, std::uint32_t total) {
    page.dataLength = static_cast<std::uint32_t>(page.data.size());
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
    if (started == IGNOREPG) {
        logItem("Page ignored", logger::LOG_NOTICE);
        return PAGE_RESULT::DONE;
    }
    if (started != OK) {
        return retry("Could not send SOH.  Retrying.");
    }
    const int sent = sendRows(module, page.data);
    if (sent < 0) {
        return retry("No response from data send...retrying page");
    }
    if (sent != OK) {
        return retry("Data TX error...retrying...");
    }
    if (!sendPageWrite(module)) {
        return retry("Could not write page to internal flash...retrying...");
    }
    logItem("Page written successfully", logger::LOG_NOTICE);
    csys->pause(PAUSE_MS);
    return PAGE_RESULT::DONE;
}

/** Says why the page starts again, unless it does not because the run was cancelled. */
bootloadDialogue::PAGE_RESULT bootloadDialogue::retry(const char* reason) {
    if (!csys->cancel) {
        logItem(reason, logger::LOG_WARNING);
        csys->pause(PAUSE_MS);
    }
    return PAGE_RESULT::RETRY;
}
