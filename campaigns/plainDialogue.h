#pragma once

#include "dialogueTarget.h"
#include "system/actions/bootloadHost.h"

/**
 * The bootloader dialogue in its plainest form, by which the panel's own is measured: one slot for the reply,
 * polled every millisecond, status requests after silence, four tries; nothing is doubted, nobody is waited
 * for. Whatever lets a module be flashed by this one must do so by the panel's. True when every request went
 * well: the module should hold the image then.
 */
bool flashPlainly(bootloadHost& panel, const DialogueTarget& target);
