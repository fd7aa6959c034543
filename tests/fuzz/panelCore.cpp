#include "panelCore.h"

#include "input.h"
#include "system/ProcBusThread.h"
#include "system/updateCore.h"
#include "system/updateCoreLoader.h"

#include <fstream>
#include <pty.h>

namespace {

updateCore* makeCore() {
    int master = -1;
    int slave = -1;
    char port[64];
    input::require(openpty(&master, &slave, port, nullptr, nullptr) == 0);
    std::ofstream("/keldra/config/vx3.cfg")
        << "up_mbus = " << port << "\n\nub_mbus = 115200\n\ndir = /keldra\n\n"
        << "log_max_size = 1048576\n\nEndConfigFile\n";
    auto* core = new updateCore;
    core->comBus->checkStop();
    return core;
}

} // namespace

updateCore& panelCore() {
    static updateCore* const core = makeCore();
    return *core;
}
