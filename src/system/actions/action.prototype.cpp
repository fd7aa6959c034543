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
    const bool needed = needsUpdateBase(compVersion, hwRev, force || base->unfinished);
    if (!needed && base->unfinished) {
        csys->log->log_item("Unfinished module, and nothing in the package for it", logger::LOG_WARNING);
    }
    return needed;
}

action::STATUS action::needsUpdateHost(bool force) {
    if (csys->cancel) {
        return UPERROR;
    }
    return needsUpdateBase(base->swVersion, base->hwRev, force) ? GOUPDATE : NOUPDATE;
}
