#include "canBootload.h"

#include "flashLayouts.h"
#include "imageVerdict.h"
#include "packageFile.h"

#include <cstdio>

namespace {

// The link's receive size at the steps of the dialogue.
constexpr std::uint8_t REQUEST_SIZE = 15;
constexpr std::uint8_t NEW_BOOTLOADER_SIZE = 14;
constexpr std::uint8_t OLD_BOOTLOADER_SIZE = 12;

} // namespace

bool canBootload::sendReqStat() {
    return dialogue.sendReqStat(base->id);
}

bool canBootload::sendWithResponse(ProcBusThread::PROCBUS_MSG msg, unsigned timeout) {
    return dialogue.sendWithResponse(base->id, msg, timeout);
}

bool canBootload::sendSystemCommand(std::uint8_t module, std::uint8_t arg) {
    return dialogue.sendSystemCommand(module, arg);
}

std::uint8_t canBootload::send_SOH(const hexpage::MEMORY_PAGE& page) {
    return dialogue.startPage(base->id, page, wideAddress());
}

std::uint8_t canBootload::eraseBlock(std::uint32_t address, std::uint8_t count) {
    return dialogue.eraseBlock(base->id, address, count, wideAddress());
}

std::uint8_t canBootload::eraseAll() {
    return dialogue.eraseAll(base->id);
}

bool canBootload::sendPageWrite() {
    return dialogue.sendPageWrite(base->id);
}

int canBootload::sendDataRow(std::uint32_t row, const hexpage::MEMORY_PAGE& page) {
    return dialogue.sendDataRow(base->id, row, page.data);
}

action::STATUS canBootload::needsUpdate(bool force) {
    pic24NewBL = false;
    csys->comBus->setBuffSize(REQUEST_SIZE);
    dialogue.logItem("Requested module bootloader", logger::LOG_NOTICE);
    const bool answered = dialogue.enterBootloader(base->id);
    if (csys->cancel) {
        return UPERROR;
    }
    if (!answered) {
        dialogue.logItem("Could not switch to bootload mode", logger::LOG_WARNING);
        return NOMODULE;
    }
    procType = updateCore::PIC24;
    return dialogue.lastReply().blInitData ? compareReported(force) : compareRecorded(force);
}

/** The bootloader identified itself: its own words decide. */
action::STATUS canBootload::compareReported(bool force) {
    const updateCore::REPLY& record = dialogue.lastReply();
    std::printf("%d %d\n", base->id, static_cast<int>(record.moduleReported));
    if (record.serialBootload || record.moduleReported != static_cast<std::int8_t>(base->id)) {
        std::printf("No module\n");
        return NOMODULE;
    }
    if (!needsUpdateModule(record.swVersion, record.hwRev, force)) {
        return upToDate();
    }
    pic24NewBL = true;
    base->swVersion = record.swVersion;
    base->hwRev = record.hwRev;
    procType = record.reportedType;
    csys->comBus->setBuffSize(NEW_BOOTLOADER_SIZE);
    return GOUPDATE;
}

/** An old bootloader, which does not say what it is: what the module has told before decides. */
action::STATUS canBootload::compareRecorded(bool force) {
    if (!base->isAccurate) {
        base->hwRev = 0; // a module of unknown version is always programmed
    } else if (!needsUpdateModule(base->swVersion, base->hwRev, force)) {
        return upToDate();
    }
    csys->comBus->setBuffSize(OLD_BOOTLOADER_SIZE);
    return GOUPDATE;
}

action::STATUS canBootload::upToDate() {
    resetModule();
    return NOUPDATE;
}

void canBootload::resetModule() {
    if (base->update.resetAfterUpdate) {
        dialogue.logItem("Resetting Module", logger::LOG_NOTICE);
        sendSystemCommand(base->id, busProtocol::RESTART);
    }
}

/** Chooses the memory layout by the processor and the text that announces it; null for one not known on CAN.
 */
const char* canBootload::selectLayout(bootloadDialogue::LAYOUT& layout) const {
    switch (procType) {
    case updateCore::STM32F3:
    case updateCore::STM32F0:
    case updateCore::STM32F4:
        layout = flashLayouts::stm32(procType == updateCore::STM32F4);
        return "STM32 Update ";
    case updateCore::PIC24:
        if (pic24NewBL) {
            layout = flashLayouts::pic24New(wideAddress());
            return "PIC New ";
        }
        layout = flashLayouts::pic24Old();
        return "PIC Old ";
    default:
        return nullptr;
    }
}

bool canBootload::run() {
    dialogue.logItem("Starting bootload", logger::LOG_NOTICE);
    const std::string path = packageFile::ofItem(*base);
    bootloadDialogue::LAYOUT layout;
    const char* const title = selectLayout(layout);
    if (title == nullptr) {
        dialogue.logItem("Unsupported processor", logger::LOG_ERROR);
        return false;
    }
    dialogue.logItem(title + path, logger::LOG_NOTICE);
    hexpage image;
    if (!flashLayouts::readImage(path, layout, image) ||
        !imageVerdict::accepts(*csys, "CAN: ", imageCheck::ofPages(path, layout, image))) {
        dialogue.logItem("Bad HEX file: " + path, logger::LOG_ERROR);
        return false;
    }
    csys->setUnfinished(*base, true);
    if (!dialogue.programImage(base->id, layout, image)) {
        return false;
    }
    csys->setUnfinished(*base, false);
    resetModule();
    dialogue.logItem("Bootload Finished", logger::LOG_NOTICE);
    return true;
}
