#include "serialBootload.h"

#include "flashLayouts.h"
#include "imageVerdict.h"
#include "packageFile.h"

#include <cstdio>
#include <numeric>
#include <vector>

namespace {

constexpr std::uint8_t REQUEST_SIZE = 5; // the link's receive size for the dialogue
constexpr unsigned TRIES = 4;
constexpr unsigned RESET_TIMEOUT = 5;

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

void serialBootload::logItem(const std::string& text, logger::LOG_TYPE type) const {
    csys->log->log_item("Serial: " + text, type);
}

bool serialBootload::sendReqStat() {
    return dialogue.sendReqStat(base->id);
}

bool serialBootload::sendWithResponse(ProcBusThread::PROCBUS_MSG msg, unsigned timeout) {
    // Without an item, silence is followed up at the module that the message addresses.
    return dialogue.sendWithResponse(base != nullptr ? base->id : msg.data[0], msg, timeout);
}

bool serialBootload::sendSystemCommand(std::uint8_t module, std::uint8_t arg) {
    return dialogue.sendSystemCommand(module, arg);
}

bool serialBootload::sendResetG1() {
    ProcBusThread::PROCBUS_MSG msg;
    msg.id = busProtocol::BOOTLOADER_COMMAND;
    msg.length = 1;
    msg.data[0] = busProtocol::CONTROL_MODULE;
    for (unsigned n = 0; n < TRIES && !csys->cancel; ++n) {
        if (sendWithResponse(msg, RESET_TIMEOUT)) {
            return true;
        }
    }
    return false;
}

std::uint8_t serialBootload::mem_sendSOH(const hexpage::MEMORY_PAGE& page) {
    return dialogue.startPage(base->id, page, true);
}

std::uint8_t serialBootload::mem_eraseBlock(std::uint32_t address, std::uint8_t count, std::uint8_t module) {
    return dialogue.eraseBlock(module, address, count, true);
}

bool serialBootload::mem_sendPageWrite() {
    return dialogue.sendPageWrite(base->id);
}

int serialBootload::mem_sendData(std::uint32_t row, const hexpage::MEMORY_PAGE& page) {
    return dialogue.sendDataRow(base->id, row, page.data);
}

action::STATUS serialBootload::needsUpdate(bool force) {
    logItem("Requested module bootloader", logger::LOG_NOTICE);
    const bool answered = dialogue.enterBootloader(base->id);
    if (csys->cancel) {
        return UPERROR;
    }
    if (!answered) {
        logItem("Could not switch to bootload mode", logger::LOG_WARNING);
        return NOMODULE;
    }
    const updateCore::REPLY& record = dialogue.lastReply();
    if (!record.blInitData || !record.serialBootload) {
        std::printf("BL responding is not SERIAL\n");
        return NOMODULE;
    }
    if (!needsUpdateModule(record.swVersion, record.hwRev, force)) {
        resetModule();
        return NOUPDATE;
    }
    base->swVersion = record.swVersion;
    base->hwRev = record.hwRev;
    procType = record.reportedType;
    csys->comBus->setBuffSize(REQUEST_SIZE);
    return GOUPDATE;
}

void serialBootload::resetModule() {
    if (base->update.resetAfterUpdate) {
        sendSystemCommand(base->id, busProtocol::RESTART);
    }
}

bool serialBootload::run() {
    logItem("Starting bootload", logger::LOG_NOTICE);
    const std::string path = packageFile::ofItem(*base);
    if (!(procType == updateCore::PIC32_REC ? run_v1(path) : run_v2(path))) {
        return false;
    }
    csys->setUnfinished(*base, false);
    resetModule();
    logItem("Bootload Finished", logger::LOG_NOTICE);
    return true;
}

bool serialBootload::run_v1(const std::string& path) {
    hexrecords image(functs().isFile(path) ? path : std::string());
    if (!image.getFileOK() || !imageVerdict::accepts(*csys, "Serial: ", imageCheck::ofRecords(path))) {
        logItem("Bad HEX file", logger::LOG_ERROR);
        return false;
    }
    csys->setUnfinished(*base, true);
    logItem("Erasing Memory", logger::LOG_NOTICE);
    if (!eraseMemory()) {
        return false;
    }
    logItem("Programming Memory", logger::LOG_NOTICE);
    std::printf("Records: %d\n", static_cast<int>(image.getTotal()));
    int number = 0;
    image.resetIterator();
    while (const hexrecords::HEX_RECORD* record = image.getNextRecord()) {
        std::printf("Working on Record: %d\n", number++);
        if (csys->cancel || !programRecord(*record)) {
            return false;
        }
    }
    return true;
}

/** Up to 4 attempts. The log says how each failed, and that there are no more. */
bool serialBootload::attempt(const char* refused, const char* unanswered, const char* exceeded,
                             const std::function<bool()>& once) {
    for (unsigned n = 0; n < TRIES && !csys->cancel; ++n) {
        if (once()) {
            return true;
        }
        if (!csys->cancel) {
            logItem(dialogue.lastReply().hasResponse ? refused : unanswered, logger::LOG_WARNING);
        }
    }
    if (!csys->cancel) {
        logItem(exceeded, logger::LOG_ERROR);
    }
    return false;
}

bool serialBootload::eraseMemory() {
    return attempt("Flash Mem Erase Fail: Internal Error", "Flash Mem Erase Fail: No response",
                   "Mem Erase Tries Exceeded....Exiting...",
                   [this] { return dialogue.eraseAll(base->id) == OK; });
}

/** Sends one record, whatever its type: rows without a start of page, closed by a page write. */
bool serialBootload::programRecord(const hexrecords::HEX_RECORD& record) {
    const std::vector<std::uint8_t> bytes = binaryForm(record);
    return attempt("Could not write page to memory", "No response from Write Command",
                   "Program retry count exceeded...Exiting...",
                   [&] { return dialogue.sendRecord(base->id, bytes) == OK && mem_sendPageWrite(); });
}

bool serialBootload::selectLayout(bootloadDialogue::LAYOUT& layout) const {
    switch (procType) {
    case updateCore::STM32F3:
    case updateCore::STM32F0:
    case updateCore::STM32F4:
        layout = flashLayouts::stm32(procType == updateCore::STM32F4);
        return true;
    case updateCore::PIC24:
        layout = flashLayouts::pic24New(true);
        return true;
    case updateCore::PIC32_MEM:
        layout = flashLayouts::pic32();
        return true;
    default:
        return false;
    }
}

bool serialBootload::run_v2(const std::string& path) {
    bootloadDialogue::LAYOUT layout;
    if (!selectLayout(layout)) {
        dialogue.logItem("Unsupported processor", logger::LOG_ERROR);
        return false;
    }
    hexpage image;
    if (!flashLayouts::readImage(path, layout, image) ||
        !imageVerdict::accepts(*csys, "SerialV2: ", imageCheck::ofPages(path, layout, image))) {
        dialogue.logItem("Bad HEX file", logger::LOG_ERROR);
        return false;
    }
    csys->setUnfinished(*base, true);
    return dialogue.programImage(base->id, layout, image);
}
