#include "action.prototype.h"

bool action::needsUpdateBase(std::string compVersion, std::uint8_t hwRev, bool force) {
    setRevision(hwRev);
    const auto& items = base->update.items;
    if (hwRev >= items.size()) {
        return false;
    }
    return force || compVersion != items[hwRev].version;
}

bool action::needsUpdateModule(std::string compVersion, std::uint8_t hwRev, bool force) {
    return needsUpdateBase(compVersion, hwRev, force || base->unfinished);
}

action::STATUS action::needsUpdateHost(bool force) {
    if (csys->cancel) {
        return UPERROR;
    }
    return needsUpdateBase(base->swVersion, base->hwRev, force) ? GOUPDATE : NOUPDATE;
}
