#include "rootfsUpdate.h"

action::STATUS rootfsUpdate::needsUpdate(bool force) {
    return needsUpdateHost(force);
}

bool rootfsUpdate::run() {
    base->swVersion = base->update.items[revision()].version;
    return true;
}
