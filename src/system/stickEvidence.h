#pragma once

#include "modules.h"

#include <string>

class coreState;

/**
 * What happened on this panel, for who plugs in a stick with a folder "keldra_logs": logs, crash dump,
 * recordings of the bus, what is installed, and the panel's state, in a folder of their own below that one,
 * "PANEL-TIME". Whole or not at all: it gets its name when everything has reached the stick, and what was
 * cut short is removed by the next copy. A stick without the folder is not written to, and nothing is
 * written through a link or onto another file system.
 *
 * At most 20 MB, and some 5 s: a stick that is slow, full, read-only or gone costs a warning, no more.
 */
class stickEvidence {
public:
    explicit stickEvidence(coreState* panel) : core(panel) {}

    /** Blocks until it is done, for 5 s and what ending it takes; less when the core is canceled. Loader
     * thread. */
    void copy() const;
    /** Keeps the modules' versions as a run found them, for a copy behind the next start. Update thread. */
    void noteModules() const;

private:
    std::string panelName() const;
    std::string serialOf(const modules::ROW& row) const;
    std::string stateOfPanel() const;
    std::string stateOfModules() const;

    coreState* core;
};
