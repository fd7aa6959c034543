#include "panelDialogue.h"

#include "system/actions/imageProgrammer.h"

namespace {

/** The processors, by the number that an identification gives. */
enum PROCESSOR : std::uint8_t { PIC24 = 1, PIC32_REC = 2, STM32F3 = 3, STM32F0 = 4, PIC32_MEM = 5, STM32F4 = 6 };

bool selectLayout(const bootloadDialogue& dialogue, bool plain, bool serial, flashLayouts::LAYOUT& layout) {
    switch (plain ? std::uint8_t{PIC24} : dialogue.identification().type) {
    case STM32F3:
    case STM32F0:
    case STM32F4:
        layout = flashLayouts::stm32(dialogue.identification().type == STM32F4);
        return true;
    case PIC24:
        layout = plain ? flashLayouts::pic24Old() : flashLayouts::pic24New(serial);
        return true;
    case PIC32_MEM:
        layout = flashLayouts::pic32();
        return serial;
    default:
        return false;
    }
}

} // namespace

bool flashByPanel(bootloadHost& host, const DialogueTarget& target) {
    bootloadDialogue dialogue(host);
    imageProgrammer programmer(host, dialogue, "");
    const auto entry = dialogue.enter(target.address, !target.serial);
    const bool plain = entry == bootloadDialogue::ENTRY::PLAIN;
    const auto& said = dialogue.identification();
    const bool identified = entry == bootloadDialogue::ENTRY::IDENTIFIED;
    if (target.serial ? !identified || !said.serial : !plain && (!identified || said.serial)) {
        return false;
    }
    if (target.serial && said.type == PIC32_REC) {
        hexrecords image(target.image);
        programmer.setTarget(target.address, true);
        if (!programmer.programRecords(image)) {
            return false;
        }
    } else {
        flashLayouts::LAYOUT layout;
        hexpage image;
        if (!selectLayout(dialogue, plain, target.serial, layout) ||
            !flashLayouts::readImage(target.image, layout, image)) {
            return false;
        }
        programmer.setTarget(target.address, layout.wideAddress);
        if (!programmer.programImage(layout, image, true)) {
            return false;
        }
    }
    dialogue.sendSystemCommand(target.address, busProtocol::RESTART);
    return true;
}
