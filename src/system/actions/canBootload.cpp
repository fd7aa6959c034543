#include "canBootload.h"

#include "../ProcBusThread.h"
#include "busCost.h"
#include "flashLayouts.h"
#include "imageVerdict.h"
#include "packageFile.h"

#include <cstdio>

bool canBootload::sendReqStat() {
    return dialogue.sendReqStat(base->id);
}

bool canBootload::sendWithResponse(busMessages::PROCBUS_MSG msg, unsigned timeout) {
    return dialogue.sendWithResponse(base->id, msg, timeout);
}

bool canBootload::sendSystemCommand(std::uint8_t module, std::uint8_t arg) {
    csys->comBus->setBuffSize(receiveSize::SYSTEM_COMMAND);
    return dialogue.sendSystemCommand(module, arg);
}

/** The programmer, told whom it programs. */
imageProgrammer& canBootload::addressed() {
    programmer.setTarget(base->id, wideAddress());
    return programmer;
}

std::uint8_t canBootload::send_SOH(const hexpage::MEMORY_PAGE& page) {
    return addressed().startPage(page);
}

std::uint8_t canBootload::eraseBlock(std::uint32_t address, std::uint8_t count) {
    return addressed().eraseBlock(address, count);
}

std::uint8_t canBootload::eraseAll() {
    return addressed().eraseAll();
}

bool canBootload::sendPageWrite() {
    return addressed().sendPageWrite();
}

int canBootload::sendDataRow(std::uint32_t row, const hexpage::MEMORY_PAGE& page) {
    return addressed().sendDataRow(row, page.data);
}

action::STATUS canBootload::needsUpdate(bool force) {
    csys->answers.forgetIdentification();
    pic24NewBL = false;
    csys->comBus->setBuffSize(receiveSize::CAN_BOOTLOADER);
    log("Requested module bootloader", logger::LOG_NOTICE);
    const auto entry = dialogue.enter(base->id, true, csys->strictBootloaders);
    if (csys->cancel) {
        return UPERROR;
    }
    procType = coreState::PIC24;
    switch (entry) {
    case bootloadDialogue::ENTRY::PLAIN:
        if (dialogue.isPlainByErrors()) {
            log("Nothing but errors from the module: taken for an old bootloader", logger::LOG_WARNING);
        }
        return compareRecorded(force);
    case bootloadDialogue::ENTRY::ANOTHER:
    case bootloadDialogue::ENTRY::IDENTIFIED:
        return compareReported(entry == bootloadDialogue::ENTRY::IDENTIFIED, force);
    case bootloadDialogue::ENTRY::NONE:
        break;
    }
    log("Could not switch to bootload mode", logger::LOG_WARNING);
    return NOMODULE;
}

/** The bootloader identified itself: its own words decide. */
action::STATUS canBootload::compareReported(bool isOwn, bool force) {
    const busMessages::IDENTIFICATION& said = dialogue.identification();
    std::printf("%d %d\n", base->id, static_cast<int>(said.module));
    if (said.serial || !isOwn) {
        std::printf("No module\n");
        log("Bootloader of another module", logger::LOG_WARNING);
        return NOMODULE;
    }
    const std::string version = said.versionText();
    if (!needsUpdateModule(version, said.hwRev, force)) {
        return upToDate();
    }
    pic24NewBL = true;
    base->swVersion = version;
    base->hwRev = said.hwRev;
    procType = static_cast<coreState::PROC_TYPE>(said.type);
    csys->comBus->setBuffSize(receiveSize::CAN_NEW_BOOTLOADER);
    return GOUPDATE;
}

/** An old bootloader, which does not say what it is: what the module has told before decides. */
action::STATUS canBootload::compareRecorded(bool force) {
    const std::uint8_t known = base->hwRev;
    if (!base->isAccurate) {
        base->hwRev = 0; // a module of unknown version is always programmed
        setRevision(0);
    } else if (!needsUpdateModule(base->swVersion, known, force)) {
        return upToDate();
    }
    csys->comBus->setBuffSize(receiveSize::CAN_OLD_BOOTLOADER);
    return GOUPDATE;
}

action::STATUS canBootload::upToDate() {
    resetModule();
    return NOUPDATE;
}

void canBootload::resetModule() {
    if (base->update.resetAfterUpdate && !base->unfinished) { // half a program must not run
        log("Resetting Module", logger::LOG_NOTICE);
        sendSystemCommand(base->id, busProtocol::RESTART);
    }
}

/**
 * Chooses the memory layout by the processor and the text that announces it; null for one not known on CAN.
 */
const char* canBootload::selectLayout(flashLayouts::LAYOUT& layout) const {
    switch (procType) {
    case coreState::STM32F3:
    case coreState::STM32F0:
    case coreState::STM32F4:
        layout = flashLayouts::stm32(procType == coreState::STM32F4);
        return "STM32 Update ";
    case coreState::PIC24:
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
    log("Starting bootload", logger::LOG_NOTICE);
    const std::string path = packageFile::ofItem(*base, revision());
    flashLayouts::LAYOUT layout;
    const char* const title = selectLayout(layout);
    if (title == nullptr) {
        log("Unsupported processor", logger::LOG_ERROR);
        return false;
    }
    log(title + path, logger::LOG_NOTICE);
    hexpage image;
    if (!packageFile::isSound(*csys, path, packageRules::LONGEST_IMAGE) ||
        !flashLayouts::readImage(path, layout, image) ||
        !imageVerdict::accepts(*csys, "CAN: ", imageCheck::ofPages(path, layout, image))) {
        log("Bad HEX file: " + path, logger::LOG_ERROR);
        return false;
    }
    const busCost cost = busCost::ofImage(layout, image);
    csys->progress.write(runProgress::KIND::PAGES, cost.pages, cost.seconds(csys->uartBaud));
    csys->setUnfinished(*base, true);
    if (!addressed().programImage(layout, image, csys->strictImages)) {
        return false;
    }
    csys->setUnfinished(*base, false);
    resetModule();
    log("Bootload Finished", logger::LOG_NOTICE);
    return true;
}
