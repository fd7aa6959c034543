#include "panelCore.h"

#include "sim/panel/bed.h"
#include "system/ProcBusThread.h"
#include "system/updateCore.h"
#include "system/updateCoreLoader.h"

namespace {

updateCore* makeCore() {
    static const panel::Terminal line;
    panel::configure(line.name());
    auto* core = new updateCore;
    core->comBus->checkStop();
    return core;
}

} // namespace

updateCore& panelCore() {
    static updateCore* const core = makeCore();
    return *core;
}
