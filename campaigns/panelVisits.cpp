#include "panelVisits.h"

#include "system/actions/imageProgrammer.h"

bool panelVisits::begin() {
    const bool switched =
        dialogue.sendSystemCommand(busProtocol::CONTROL_MODULE, busProtocol::ENTER_UPDATE_MODE);
    if (!switched) {
        host.log("Could not switch system to update mode", logger::LOG_ERROR);
    }
    return switched;
}

std::optional<bool> panelVisits::enter(const DialogueTarget& target) {
    const auto entry = dialogue.enter(target.address, !target.serial);
    const bool plain = entry == bootloadDialogue::ENTRY::PLAIN;
    const bool identified = entry == bootloadDialogue::ENTRY::IDENTIFIED;
    const bool rightLink = dialogue.identification().serial == target.serial;
    const bool right = (identified && rightLink) || (plain && !target.serial);
    return right ? std::optional(plain) : std::nullopt;
}

bool panelVisits::program(const DialogueTarget& target, bool plain) {
    imageProgrammer programmer(host, dialogue, "");
    if (target.serial && dialogue.identification().type == busProtocol::PIC32_REC) {
        hexrecords image(target.image);
        programmer.setTarget(target.address, true);
        return programmer.programRecords(image);
    }
    const auto layout =
        target.layout(plain ? std::nullopt : std::optional<std::uint8_t>(dialogue.identification().type));
    hexpage image;
    if (!layout || !flashLayouts::readImage(target.image, *layout, image)) {
        host.log(layout ? "Bad HEX file" : "Unsupported processor", logger::LOG_ERROR);
        return false;
    }
    programmer.setTarget(target.address, layout->wideAddress);
    return programmer.programImage(*layout, image, true);
}

panelVisits::RESULT panelVisits::flash(const DialogueTarget& target) {
    const auto plain = enter(target);
    if (!plain) {
        return RESULT::MISSING;
    }
    if (!program(target, *plain)) {
        return RESULT::FAILED;
    }
    dialogue.sendSystemCommand(target.address, busProtocol::RESTART);
    return RESULT::DONE;
}

void panelVisits::pass(const DialogueTarget& target) {
    if (enter(target)) {
        dialogue.sendSystemCommand(target.address, busProtocol::RESTART);
    }
}
