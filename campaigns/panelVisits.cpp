#include "panelVisits.h"

#include "system/actions/imageProgrammer.h"

bool PanelVisits::begin() {
    const bool switched =
        dialogue_.sendSystemCommand(busProtocol::CONTROL_MODULE, busProtocol::ENTER_UPDATE_MODE);
    if (!switched) {
        host_.log("Could not switch system to update mode", logger::LOG_ERROR);
    }
    return switched;
}

std::optional<bool> PanelVisits::enter(const DialogueTarget& target) {
    const auto entry = dialogue_.enter(target.address, !target.serial, strict_);
    const bool plain = entry == bootloadDialogue::ENTRY::PLAIN;
    const bool identified = entry == bootloadDialogue::ENTRY::IDENTIFIED;
    const bool rightLink = dialogue_.identification().serial == target.serial;
    const bool right = (identified && rightLink) || (plain && !target.serial);
    return right ? std::optional(plain) : std::nullopt;
}

bool PanelVisits::program(const DialogueTarget& target, bool plain) {
    imageProgrammer programmer(host_, dialogue_, "");
    if (target.serial && dialogue_.identification().type == busProtocol::PIC32_REC) {
        hexrecords image(target.image);
        programmer.setTarget(target.address, true);
        return programmer.programRecords(image);
    }
    const auto layout =
        target.layout(plain ? std::nullopt : std::optional<std::uint8_t>(dialogue_.identification().type));
    hexpage image;
    if (!layout || !flashLayouts::readImage(target.image, *layout, image)) {
        host_.log(layout ? "Bad HEX file" : "Unsupported processor", logger::LOG_ERROR);
        return false;
    }
    programmer.setTarget(target.address, layout->wideAddress);
    return programmer.programImage(*layout, image, true);
}

PanelVisits::Result PanelVisits::flash(const DialogueTarget& target) {
    const auto plain = enter(target);
    if (!plain) {
        return Result::Missing;
    }
    if (!program(target, *plain)) {
        return Result::Failed;
    }
    dialogue_.sendSystemCommand(target.address, busProtocol::RESTART);
    return Result::Done;
}

void PanelVisits::pass(const DialogueTarget& target) {
    if (enter(target)) {
        dialogue_.sendSystemCommand(target.address, busProtocol::RESTART);
    }
}
