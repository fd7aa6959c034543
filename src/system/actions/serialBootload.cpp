#include "serialBootload.h"

#include "../ProcBusThread.h"
#include "busCost.h"
#include "flashLayouts.h"
#include "imageVerdict.h"
#include "packageFile.h"

#include <cstdio>

bool serialBootload::sendReqStat() {
    return dialogue.sendReqStat(base->id);
}

bool serialBootload::sendWithResponse(busMessages::PROCBUS_MSG msg, unsigned timeout) {
    // Without an item, silence is followed up at the module that the message addresses.
    return dialogue.sendWithResponse(base != nullptr ? base->id : msg.data[0], msg, timeout);
}

bool serialBootload::sendSystemCommand(std::uint8_t module, std::uint8_t arg) {
    csys->comBus->setBuffSize(receiveSize::SYSTEM_COMMAND);
    const bool answered = dialogue.sendSystemCommand(module, arg);
    if (answered) {
        csys->busAnswered = true;
    }
    return answered;
}

bool serialBootload::sendResetG1() {
    for (unsigned n = 0; n < bootloadTiming::TRIES && !csys->cancel; ++n) {
        if (sendWithResponse(busMessages::resetG1(), bootloadTiming::RESET_TIMEOUT)) {
            return true;
        }
    }
    return false;
}

/** The programmer, told whom it programs. */
imageProgrammer& serialBootload::addressed(std::uint8_t module) {
    programmer.setTarget(module, true);
    return programmer;
}

std::uint8_t serialBootload::mem_sendSOH(const hexpage::MEMORY_PAGE& page) {
    return addressed(base->id).startPage(page);
}

std::uint8_t serialBootload::mem_eraseBlock(std::uint32_t address, std::uint8_t count, std::uint8_t module) {
    return addressed(module).eraseBlock(address, count);
}

bool serialBootload::mem_sendPageWrite() {
    return addressed(base->id).sendPageWrite();
}

int serialBootload::mem_sendData(std::uint32_t row, const hexpage::MEMORY_PAGE& page) {
    return addressed(base->id).sendDataRow(row, page.data);
}

action::STATUS serialBootload::needsUpdate(bool force) {
    csys->answers.forgetIdentification();
    log("Serial: Requested module bootloader", logger::LOG_NOTICE);
    csys->comBus->setBuffSize(receiveSize::SYSTEM_COMMAND);
    const auto entry = dialogue.enter(base->id, false, true);
    if (csys->cancel) {
        return UPERROR;
    }
    if (entry == bootloadDialogue::ENTRY::NONE) {
        log("Serial: Could not switch to bootload mode", logger::LOG_WARNING);
        return NOMODULE;
    }
    const busMessages::IDENTIFICATION& said = dialogue.identification();
    if (entry != bootloadDialogue::ENTRY::IDENTIFIED || !said.serial) {
        std::printf("BL responding is not SERIAL\n");
        log("Serial: Not a serial bootloader", logger::LOG_WARNING);
        return NOMODULE;
    }
    const std::string version = said.versionText();
    if (!needsUpdateModule(version, said.hwRev, force)) {
        resetModule();
        return NOUPDATE;
    }
    base->swVersion = version;
    base->hwRev = said.hwRev;
    procType = static_cast<coreState::PROC_TYPE>(said.type);
    csys->comBus->setBuffSize(receiveSize::SERIAL_BOOTLOADER);
    return GOUPDATE;
}

void serialBootload::resetModule() {
    if (base->update.resetAfterUpdate && !base->unfinished) { // half a program must not run
        sendSystemCommand(base->id, busProtocol::RESTART);
    }
}

bool serialBootload::run() {
    log("Serial: Starting bootload", logger::LOG_NOTICE);
    const std::string path = packageFile::ofItem(*base, revision());
    if (!(procType == coreState::PIC32_REC ? run_v1(path) : run_v2(path))) {
        return false;
    }
    csys->setUnfinished(*base, false);
    resetModule();
    log("Serial: Bootload Finished", logger::LOG_NOTICE);
    return true;
}

bool serialBootload::run_v1(const std::string& path) {
    const bool isSound = packageFile::isSound(*csys, path, packageRules::LONGEST_IMAGE);
    hexrecords image(isSound ? path : std::string());
    if (!image.getFileOK() || !imageVerdict::accepts(*csys, "Serial: ", imageCheck::ofRecords(path))) {
        log("Serial: Bad HEX file", logger::LOG_ERROR);
        return false;
    }
    const busCost cost = busCost::ofRecords(image);
    csys->progress.write(runProgress::KIND::RECORDS, cost.pages, cost.seconds(csys->uartBaud));
    csys->setUnfinished(*base, true);
    return addressed(base->id).programRecords(image);
}

bool serialBootload::selectLayout(flashLayouts::LAYOUT& layout) const {
    switch (procType) {
    case coreState::STM32F3:
    case coreState::STM32F0:
    case coreState::STM32F4:
        layout = flashLayouts::stm32(procType == coreState::STM32F4);
        return true;
    case coreState::PIC24:
        layout = flashLayouts::pic24New(true);
        return true;
    case coreState::PIC32_MEM:
        layout = flashLayouts::pic32();
        return true;
    default:
        return false;
    }
}

bool serialBootload::run_v2(const std::string& path) {
    flashLayouts::LAYOUT layout;
    if (!selectLayout(layout)) {
        log("SerialV2: Unsupported processor", logger::LOG_ERROR);
        return false;
    }
    hexpage image;
    if (!packageFile::isSound(*csys, path, packageRules::LONGEST_IMAGE) ||
        !flashLayouts::readImage(path, layout, image) ||
        !imageVerdict::accepts(*csys, "SerialV2: ", imageCheck::ofPages(path, layout, image))) {
        log("SerialV2: Bad HEX file", logger::LOG_ERROR);
        return false;
    }
    const busCost cost = busCost::ofImage(layout, image);
    csys->progress.write(runProgress::KIND::PAGES, cost.pages, cost.seconds(csys->uartBaud));
    csys->setUnfinished(*base, true);
    return addressed(base->id).programImage(layout, image, csys->strictImages);
}
