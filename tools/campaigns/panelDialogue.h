#pragma once

#include "dialogueTarget.h"
#include "system/actions/bootloadHost.h"

/** The panel's own dialogue, from the request to enter the bootloader to the restart. True when it says done.
 */
bool flashByPanel(bootloadHost& host, const DialogueTarget& target);
