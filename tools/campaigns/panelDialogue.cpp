#include "panelDialogue.h"

#include "plainDialogue.h"

bool flashByPanel(bootloadHost& host, const DialogueTarget& target) {
    return plainDialogue(host, false).flash(target);
}
