#pragma once

#include "../coreState.h"

#include <cstdint>
#include <optional>
#include <string>

/**
 * What every update action is: it is pointed at an item, says whether the item needs an update, and brings it
 * up to date. Runs on the update thread; created and destroyed by its concrete type.
 *
 * An action looks at the core's `cancel` between its steps: cancelled, it answers UPERROR or ends with false.
 */
class action {
public:
    enum STATUS {
        GOUPDATE = 0, ///< call run()
        NOMODULE = 1, ///< the module is not on the bus
        NOUPDATE = 2, ///< versions equal, or no image for this hardware revision
        UPERROR = 3   ///< the check itself failed
    };

    explicit action(coreState* core) : csys(core) {}
    void setBase(coreState::BASE_ITEM* item) {
        base = item;
        checked.reset();
    }
    /**
     * The hardware revision whose image is meant: the one that needsUpdate() has checked, whatever the item's
     * module reports meanwhile; before that the item's.
     */
    std::uint8_t revision() const { return checked.value_or(base->hwRev); }

    virtual STATUS needsUpdate(bool force) = 0;
    /** True when the item was brought up to date; else the log says why not. */
    virtual bool run() = 0;

protected:
    ~action() = default;

    /**
     * The shared version test: true when the package has an image for `hwRev` and either `force` is set or
     * that image's version differs from `compVersion` in any way. Versions are never ordered: an older one in
     * the package is installed, too.
     */
    bool needsUpdateBase(std::string compVersion, std::uint8_t hwRev, bool force);
    /** The same for a module, which is also updated whenever an earlier run left it unfinished. */
    bool needsUpdateModule(std::string compVersion, std::uint8_t hwRev, bool force);
    /** needsUpdate() of a host item: its recorded version and revision decide. */
    STATUS needsUpdateHost(bool force);

    void setRevision(std::uint8_t hwRev) { checked = hwRev; }

    coreState::BASE_ITEM* base = nullptr; ///< not owned; null until setBase()
    coreState* csys;                      ///< not owned

private:
    std::optional<std::uint8_t> checked;
};
