#pragma once

#include "action.prototype.h"

/** Records the root file system's new version; nothing is written to any device. The run never visits it. */
class rootfsUpdate : public action {
public:
    using action::action;
    STATUS needsUpdate(bool force) override;
    bool run() override;
};
