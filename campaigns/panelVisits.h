#pragma once

#include "dialogueTarget.h"
#include "system/actions/bootloadDialogue.h"

/** The panel's own dialogues, from module to module. */
class PanelVisits {
public:
    enum class Result {
        Done,
        Failed,
        Missing ///< no bootloader answered, or another one than there should be
    };

    /** `strict`: as with `strict_bootloaders = 1`. */
    explicit PanelVisits(bootloadHost& panel, bool strict = true)
        : host_(panel), dialogue_(panel), strict_(strict) {}

    /** Switches the whole system to update mode, once before the first module. */
    bool begin();
    /** From the request to enter the bootloader to the restart. */
    Result flash(const DialogueTarget& target);
    /** The same of a module that is up to date, once it has said so. */
    void pass(const DialogueTarget& target);

private:
    /** None when it did not enter; else whether its bootloader is an old one. */
    std::optional<bool> enter(const DialogueTarget& target);
    bool program(const DialogueTarget& target, bool plain);

    bootloadHost& host_;
    bootloadDialogue dialogue_;
    bool strict_;
};
