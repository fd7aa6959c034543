#include "plainDialogue.h"

#include "lib/hexfile/hexRecords.h"

namespace {

constexpr unsigned TRIES = 4;
constexpr unsigned PASSES = 3; // of the wait for one reply
constexpr unsigned STATUS_POLLS = 20;
constexpr unsigned POLLS_PER_UNIT = 10;
constexpr bootloadHost::milliseconds POLL{1};
constexpr bootloadHost::milliseconds PAUSE{10};

// Timeouts, in units of 10 ms.
constexpr unsigned COMMAND_TIMEOUT = 20;
constexpr unsigned PAGE_TIMEOUT = 5; // start of page, erase and data rows
constexpr unsigned WRITE_TIMEOUT = 10;

constexpr std::uint32_t NO_PAGE = 0xFFFF; // no reply yet
constexpr int NO_ANSWER = -1;

using enum busProtocol::BLSTATUS;
using enum busProtocol::PROC_TYPE;

} // namespace

/** Puts what has come into the record, one over the other. */
void plainDialogue::fileAnswers() {
    while (const auto answer = host.receive(bootloadHost::milliseconds(0))) {
        if (const auto& said = answer->identification) {
            record.identifiedModule = said->module;
            record.serialBootload = said->serial;
            record.reportedType = said->type;
            record.blInitData = true;
        } else {
            record.status = answer->reply.status;
            record.page = answer->reply.row;
        }
        record.hasResponse = true;
    }
}

void plainDialogue::clearAndSend(const MESSAGE& msg) {
    fileAnswers();
    record.hasResponse = false;
    record.page = NO_PAGE;
    record.status = 0;
    host.send(msg);
}

bool plainDialogue::poll(unsigned times) {
    for (unsigned n = 0; n < times; ++n) {
        fileAnswers();
        if (record.hasResponse) {
            return true;
        }
        host.pause(POLL);
    }
    return false;
}

void plainDialogue::sendReqStat() {
    clearAndSend(busMessages::requestStatus(target.address));
    poll(STATUS_POLLS);
}

bool plainDialogue::sendWithResponse(const MESSAGE& msg, unsigned timeout) {
    clearAndSend(msg);
    for (unsigned pass = 0; pass < PASSES; ++pass) {
        if (poll(timeout * POLLS_PER_UNIT)) {
            return true;
        }
        sendReqStat();
        host.pause(PAUSE);
    }
    return false;
}

bool plainDialogue::sendSystemCommand(std::uint8_t arg) {
    for (unsigned n = 0; n < TRIES; ++n) {
        if (sendWithResponse(busMessages::systemCommand(target.address, arg), COMMAND_TIMEOUT)) {
            return true;
        }
    }
    return false;
}

std::uint8_t plainDialogue::requestStatus(const MESSAGE& msg, std::uint8_t failure) {
    for (unsigned n = 0; n < TRIES; ++n) {
        if (sendWithResponse(msg, PAGE_TIMEOUT) && record.page == 0) {
            host.pause(PAUSE);
            fileAnswers();
            return record.status;
        }
    }
    return failure;
}

std::uint8_t plainDialogue::sendSoh(const hexpage::MEMORY_PAGE& data) {
    const auto size = static_cast<std::uint32_t>(data.data.size());
    return requestStatus(busMessages::startPage(target.address, data.startAddress, size, layout.wideAddress),
                         BADCHECKSUM);
}

std::uint8_t plainDialogue::eraseBlock(std::uint32_t address, std::uint32_t count) {
    return requestStatus(busMessages::eraseBlocks(target.address, address,
                                                  static_cast<std::uint8_t>(count % 256), layout.wideAddress),
                         ERASEERR);
}

int plainDialogue::sendDataRow(std::uint32_t row, const BYTES& data) {
    int result = NO_ANSWER;
    for (unsigned n = 0; n < TRIES; ++n) {
        if (!sendWithResponse(busMessages::dataRow(row, data), PAGE_TIMEOUT)) {
            continue;
        }
        if (record.page == row) {
            return record.status;
        }
        result = MISSEDPACKET;
    }
    return result;
}

/** The result of the first row that failed, else OK. */
int plainDialogue::sendRows(const BYTES& data) {
    int status = OK;
    for (std::uint32_t row = 0; row < busMessages::rowsOf(data.size()) && status == OK; ++row) {
        status = sendDataRow(row, data);
    }
    return status;
}

bool plainDialogue::sendPageWrite() {
    for (unsigned n = 0; n < TRIES; ++n) {
        if (sendWithResponse(busMessages::writePage(target.address), WRITE_TIMEOUT) && record.page == 0 &&
            record.status == OK) {
            return true;
        }
    }
    return false;
}

bool plainDialogue::flash(const DialogueTarget& wanted) {
    target = wanted;
    record = RECORD();
    if (!sendSystemCommand(busProtocol::ENTER_BOOTLOADER) || !isRightModule()) {
        return false;
    }
    if (target.serial && record.reportedType == busProtocol::PIC32_REC) {
        if (!programRecords()) {
            return false;
        }
    } else if (!programPages()) {
        return false;
    }
    sendSystemCommand(busProtocol::RESTART);
    return true;
}

bool plainDialogue::isRightModule() const {
    if (target.serial) {
        return record.serialBootload;
    }
    return !record.blInitData ||
           (!record.serialBootload && record.identifiedModule == static_cast<std::int8_t>(target.address));
}

bool plainDialogue::programPages() {
    const auto chosen = target.layout(record.blInitData ? std::optional(record.reportedType) : std::nullopt);
    if (!chosen || !flashLayouts::readImage(target.image, *chosen, image)) {
        return false;
    }
    layout = *chosen;
    if (layout.eraseAllFirst && requestStatus(busMessages::eraseAll(target.address), ERASEERR) != OK) {
        return false;
    }
    image.resetIterator();
    page = image.getNextPage();
    while (page != nullptr) {
        if (page->data.empty() && layout.eraseEmptyPages) {
            if (!eraseEmptyPages()) {
                return false;
            }
            continue;
        }
        if (!page->data.empty() && !programPage()) {
            return false;
        }
        page = image.getNextPage();
    }
    return true;
}

/** Erases the run of pages without data that starts here, in one request, and goes to the page behind it. */
bool plainDialogue::eraseEmptyPages() {
    const std::uint32_t address = page->startAddress;
    std::uint32_t count = 0;
    for (; page != nullptr && page->data.empty(); page = image.getNextPage()) {
        ++count;
    }
    const std::uint8_t status = eraseBlock(address, count);
    return status == OK || status == IGNOREPG;
}

bool plainDialogue::programPage() {
    unsigned retries = 0;
    while (retries < TRIES) {
        const std::uint8_t status = sendSoh(*page);
        if (status == IGNOREPG) {
            return true;
        }
        if (status == OK && sendRows(page->data) != OK) {
            continue; // at once, and perhaps for ever
        }
        const bool written = status == OK && sendPageWrite();
        host.pause(PAUSE);
        if (written) {
            return true;
        }
        ++retries;
    }
    return false;
}

bool plainDialogue::programRecords() {
    hexrecords list(target.image);
    if (!list.getFileOK()) {
        return false;
    }
    std::uint8_t erased = ERASEERR;
    for (unsigned n = 0; n < TRIES && erased != OK; ++n) {
        erased = requestStatus(busMessages::eraseAll(target.address), ERASEERR);
    }
    if (erased != OK) {
        return false;
    }
    while (const hexrecords::HEX_RECORD* each = list.getNextRecord()) {
        BYTES bytes = {each->size, busProtocol::byteOf(each->address, 1),
                       busProtocol::byteOf(each->address, 0), each->type};
        for (const std::uint32_t value : each->data) {
            bytes.push_back(busProtocol::byteOf(value, 0));
        }
        bytes.push_back(each->checksum);
        if (!programRecord(bytes)) {
            return false;
        }
    }
    return true;
}

bool plainDialogue::programRecord(const BYTES& bytes) {
    for (unsigned n = 0; n < TRIES; ++n) {
        if (sendRows(bytes) == OK && sendPageWrite()) {
            return true;
        }
    }
    return false;
}
