#include "imageProgrammer.h"

#include "../../lib/format.h"

#include <algorithm>
#include <cstdio>
#include <numeric>

using namespace bootloadTiming;
using namespace busMessages;
using PROOF = bootloadDialogue::PROOF;
using REQUEST = bootloadDialogue::REQUEST;
using RESULT = bootloadDialogue::RESULT;

namespace {

/** What an erase's count, one byte, can name; 0 would stand for one more, which not every module may know. */
constexpr std::uint32_t LONGEST_ERASE = 255;

std::uint32_t pagesWithData(const hexpage& image) {
    std::uint32_t pages = 0;
    for (const hexpage::MEMORY_REGION& region : image.getRegions()) {
        pages += static_cast<std::uint32_t>(
            std::count_if(region.pages.begin(), region.pages.end(),
                          [](const hexpage::MEMORY_PAGE& page) { return !page.data.empty(); }));
    }
    return pages;
}

/**
 * A record as the module takes it: the HEX line's bytes in their order. The sum is worked out, since in a
 * line with a carriage return the reader can't see it; but where it is wrong, the module is to see that.
 */
std::vector<std::uint8_t> binaryForm(const hexrecords::HEX_RECORD& record) {
    std::vector<std::uint8_t> bytes = {record.size, busProtocol::byteOf(record.address, 1),
                                       busProtocol::byteOf(record.address, 0), record.type};
    for (const std::uint32_t value : record.data) {
        bytes.push_back(busProtocol::byteOf(value, 0));
    }
    const unsigned sum = std::accumulate(bytes.begin(), bytes.end(), 0U);
    bytes.push_back(record.sumsUp ? static_cast<std::uint8_t>(0x100U - (sum & 0xFFU)) : record.checksum);
    return bytes;
}

} // namespace

// Single requests

REQUEST imageProgrammer::request(KIND kind, std::uint32_t row) const {
    REQUEST made;
    made.module = module;
    made.kind = kind;
    made.row = row;
    made.attempt = attempt % LONE;
    made.work = kind == KIND::WRITE ? WRITE_WORK : ROW_WORK;
    return made;
}

RESULT imageProgrammer::ask(const REQUEST& wanted) {
    const RESULT result = dialogue.ask(wanted);
    wasAnswered = result.answered;
    if (result.certain) {
        erasingUntil = {};
    }
    return result;
}

std::uint8_t imageProgrammer::startPage(const hexpage::MEMORY_PAGE& page) {
    REQUEST start = request(KIND::START, 0);
    start.msg = busMessages::startPage(module, page.startAddress, page.dataLength, wideAddress);
    // Of the only row, nothing shows later whether its page was open.
    start.proof = rowsOf(page.data.size()) == 1 ? PROOF::MARK : PROOF::LATER;
    const RESULT result = ask(start);
    if (!result.reply) {
        return BADCHECKSUM;
    }
    host.pause(PAUSE);
    return result.reply->status;
}

std::uint8_t imageProgrammer::erase(const REQUEST& erasure) {
    const RESULT result = ask(erasure);
    if (!result.reply) {
        return ERASEERR;
    }
    erasingUntil = host.now() + erasure.work;
    host.pause(PAUSE);
    return result.reply->status;
}

std::uint8_t imageProgrammer::eraseBlock(std::uint32_t address, std::uint8_t count) {
    REQUEST erasure = request(KIND::ERASE, 0);
    erasure.msg = busMessages::eraseBlocks(module, address, count, wideAddress);
    erasure.proof = PROOF::MARK;
    erasure.work = eraseWork(count == 0 ? LONGEST_ERASE + 1 : count);
    return erase(erasure);
}

REQUEST imageProgrammer::eraseAllRequest() const {
    REQUEST erasure = request(KIND::ERASE, 0);
    erasure.msg = busMessages::eraseAll(module);
    erasure.proof = PROOF::MARK;
    erasure.work = eraseWork(0);
    return erasure;
}

std::uint8_t imageProgrammer::eraseAll() {
    return erase(eraseAllRequest());
}

int imageProgrammer::sendDataRow(std::uint32_t row, const BYTES& data) {
    return sendRow(row, data, PROOF::LATER);
}

int imageProgrammer::sendRow(std::uint32_t row, const BYTES& data, PROOF proof) {
    REQUEST rowRequest = request(KIND::ROW, row);
    rowRequest.msg = dataRow(row, data);
    rowRequest.proof = proof;
    rowRequest.failed = [row](const std::optional<REPLY>& reply) {
        if (reply) {
            std::printf("expecting row %d, got row%d\n", static_cast<int>(row), static_cast<int>(reply->row));
        } else {
            std::printf("No response\n");
        }
    };
    const RESULT result = ask(rowRequest);
    return result.reply ? result.reply->status : result.answered ? MISSEDPACKET : -1;
}

/** The result of the first row that failed, else OK. Of several rows, each shows that the one before came. */
int imageProgrammer::sendRows(const BYTES& data, PROOF proofOfOnlyRow) {
    const std::uint32_t rows = rowsOf(data.size());
    int status = OK;
    for (std::uint32_t row = 0; row < rows && status == OK; ++row) {
        status = sendRow(row, data, rows == 1 ? proofOfOnlyRow : PROOF::LATER);
    }
    return status;
}

bool imageProgrammer::sendPageWrite() {
    REQUEST write = request(KIND::WRITE, 0);
    write.msg = writePage(module);
    write.proof = PROOF::NOTHING;
    write.mustBeOk = true;
    write.onlyRow = onlyRow;
    write.failed = [](const std::optional<REPLY>& reply) {
        if (reply) {
            std::printf("Page Write Error: %d (rec: %x)\n", static_cast<int>(reply->status),
                        static_cast<unsigned>(reply->row));
        }
    };
    const RESULT result = ask(write);
    return result.reply.has_value();
}

// Pages

bool imageProgrammer::programImage(const LAYOUT& layout, hexpage& image, bool strict) {
    const std::uint32_t total = image.getTotalPages();
    image.resetIterator();
    if (layout.eraseAllFirst && eraseAll() != OK) {
        logFailure("Could not erase range (all)");
        return false;
    }
    const std::uint32_t toProgram = pagesWithData(image);
    std::uint32_t programmed = 0;
    std::uint32_t index = 0;
    bool asked = false;
    bool written = false;
    hexpage::MEMORY_PAGE* page = image.getNextPage();
    while (page != nullptr) {
        if (host.cancelled()) {
            return false;
        }
        if (page->data.empty() && layout.eraseEmptyPages) {
            if (!eraseEmptyRun(image, page, index, strict)) {
                return false;
            }
            continue; // with the page that ended the run
        }
        if (!page->data.empty()) {
            const PAGE_RESULT result = programPage(*page, index, total);
            if (result == PAGE_RESULT::RETRY) {
                return false;
            }
            asked = true;
            written = written || result == PAGE_RESULT::DONE;
            host.progress(++programmed, toProgram);
        }
        page = image.getNextPage();
        ++index;
    }
    if (asked && !written) {
        log("Nothing written: the module ignored every page", logger::LOG_WARNING);
    }
    return true;
}

/** Erases the adjoining pages without data that start at `page`; leaves `page` at the one behind them. */
bool imageProgrammer::eraseEmptyRun(hexpage& image, hexpage::MEMORY_PAGE*& page, std::uint32_t& index,
                                    bool strict) {
    const std::uint32_t start = page->startAddress;
    std::uint32_t count = 0;
    std::uint32_t next = start;
    while (page != nullptr && page->data.empty() && page->startAddress == next) {
        next = page->endAddress + 1;
        ++count;
        page = image.getNextPage();
    }
    index += count;
    return eraseRun(start, count, (next - start) / count, strict);
}

bool imageProgrammer::eraseRun(std::uint32_t address, std::uint32_t count, std::uint32_t pageUnits,
                               bool strict) {
    if (strict) {
        for (; count > LONGEST_ERASE; count -= LONGEST_ERASE, address += LONGEST_ERASE * pageUnits) {
            if (!eraseBlocks(address, LONGEST_ERASE)) {
                return false;
            }
        }
    } else if (count > LONGEST_ERASE + 1) {
        const std::uint32_t named =
            count % (LONGEST_ERASE + 1) == 0 ? LONGEST_ERASE + 1 : count % (LONGEST_ERASE + 1);
        log(format("Not erased, since a request names at most 256 blocks: 0x%x to 0x%x",
                   address + named * pageUnits, address + count * pageUnits - 1),
            logger::LOG_WARNING);
    }
    return eraseBlocks(address, count);
}

bool imageProgrammer::eraseBlocks(std::uint32_t address, std::uint32_t count) {
    log(format("Erasing blocks at 0x%x (%d)", address, static_cast<int>(count)), logger::LOG_NOTICE);
    const std::uint8_t status = eraseBlock(address, busProtocol::byteOf(count, 0));
    if (status != OK && status != IGNOREPG) {
        logFailure("Could not erase range");
        return false;
    }
    log("Blocks Erased", logger::LOG_NOTICE);
    return true;
}

imageProgrammer::PAGE_RESULT imageProgrammer::programPage(hexpage::MEMORY_PAGE& page, std::uint32_t index,
                                                          std::uint32_t total) {
    page.dataLength = static_cast<std::uint32_t>(page.data.size());
    bool started = false;
    PAGE_RESULT result = PAGE_RESULT::RETRY;
    const auto mayTry = [&] { return attempt < TRIES && !host.cancelled() && !dialogue.hasIdentifiedLate(); };
    bool mayErase = false;
    const auto counts = [&] { return attempt + 1 < TRIES || !mayErase || !wasAnswered; };
    for (attempt = 0; mayTry() && result == PAGE_RESULT::RETRY; attempt += counts() ? 1 : 0) {
        mayErase = host.now() < erasingUntil;
        log(format("Working on Address# 0x%x (%d/%d) LEN: %lu", page.startAddress, static_cast<int>(index),
                   static_cast<int>(total), static_cast<unsigned long>(page.dataLength)),
            logger::LOG_NOTICE);
        result = attemptPage(page, started);
    }
    attempt = LONE;
    onlyRow.reset();
    if (dialogue.hasIdentifiedLate()) { // and has pages of other sizes
        logFailure("The module said late what it is");
        return PAGE_RESULT::RETRY;
    }
    if (result == PAGE_RESULT::RETRY) {
        logFailure("Page retry count exceeded.  Exiting.");
    }
    return result;
}

/** `started`: the module has taken a start of this page, so that it holds who knows what of it. */
imageProgrammer::PAGE_RESULT imageProgrammer::attemptPage(const hexpage::MEMORY_PAGE& page, bool& started) {
    const std::uint8_t status = startPage(page);
    if (status == IGNOREPG && !started) {
        log("Page ignored", logger::LOG_NOTICE);
        return PAGE_RESULT::IGNORED;
    }
    if (status != OK) {
        return retry("Could not send SOH.  Retrying.");
    }
    started = true;
    const int sent = sendRows(page.data, PROOF::NOTHING);
    onlyRow = rowsOf(page.data.size()) == 1 ? std::optional(dataRow(0, page.data)) : std::nullopt;
    if (sent < 0) {
        return retry("No response from data send...retrying page");
    }
    if (sent != OK) {
        return retry("Data TX error...retrying...");
    }
    if (!sendPageWrite()) {
        return retry("Could not write page to internal flash...retrying...");
    }
    log("Page written successfully", logger::LOG_NOTICE);
    host.pause(PAUSE);
    return PAGE_RESULT::DONE;
}

/** Says why the run ends, unless it was cancelled. */
void imageProgrammer::logFailure(const char* reason) {
    if (!host.cancelled()) {
        log(reason, logger::LOG_ERROR);
    }
}

/** Says why the page starts again, unless it does not because the run was cancelled. */
imageProgrammer::PAGE_RESULT imageProgrammer::retry(const char* reason) {
    if (!host.cancelled()) {
        log(reason, logger::LOG_WARNING);
        host.pause(PAUSE);
    }
    return PAGE_RESULT::RETRY;
}

// Records

bool imageProgrammer::programRecords(hexrecords& image) {
    host.log("Serial: Erasing Memory", logger::LOG_NOTICE);
    if (!eraseMemory()) {
        return false;
    }
    host.log("Serial: Programming Memory", logger::LOG_NOTICE);
    std::printf("Records: %d\n", static_cast<int>(image.getTotal()));
    std::uint32_t number = 0;
    image.resetIterator();
    while (const hexrecords::HEX_RECORD* record = image.getNextRecord()) {
        std::printf("Working on Record: %d\n", static_cast<int>(number++));
        if (host.cancelled() || !programRecord(binaryForm(*record))) {
            return false;
        }
        host.progress(number, image.getTotal());
    }
    return true;
}

bool imageProgrammer::eraseMemory() {
    REQUEST erasure = eraseAllRequest();
    erasure.mustBeOk = true;
    erasure.failed = [this](const std::optional<REPLY>& reply) {
        host.log(reply ? "Serial: Flash Mem Erase Fail: Internal Error"
                       : "Serial: Flash Mem Erase Fail: No response",
                 logger::LOG_WARNING);
    };
    if (erase(erasure) == OK) {
        return true;
    }
    if (!host.cancelled()) {
        host.log("Serial: Mem Erase Tries Exceeded....Exiting...", logger::LOG_ERROR);
    }
    return false;
}

/** Sends one record, whatever its type: rows without a start of page, closed by a page write. */
bool imageProgrammer::programRecord(const BYTES& bytes) {
    bool done = false;
    for (attempt = 0; attempt < TRIES && !done && !host.cancelled() && !dialogue.hasRestarted(); ++attempt) {
        done = sendRows(bytes, PROOF::MARK) == OK && sendPageWrite();
        if (!done && !host.cancelled()) {
            host.log(wasAnswered ? "Serial: Could not write page to memory"
                                 : "Serial: No response from Write Command",
                     logger::LOG_WARNING);
        }
    }
    attempt = LONE;
    if (host.cancelled()) {
        return false;
    }
    if (dialogue.hasRestarted()) { // and has forgotten the upper half of the address
        host.log("Serial: The module started its bootloader anew", logger::LOG_ERROR);
    } else if (!done) {
        host.log("Serial: Program retry count exceeded...Exiting...", logger::LOG_ERROR);
    }
    return done && !dialogue.hasRestarted();
}
