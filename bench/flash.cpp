#include "bench.h"
#include "sim/panel/bed.h"

#include "system/ProcBusThread.h"
#include "system/actions/canBootload.h"
#include "system/actions/serialBootload.h"
#include "system/packageRules.h"
#include "system/updateCore.h"

#include <iterator>
#include <stdexcept>

namespace {

/** The modules on the CAN bootloader. */
constexpr struct {
    const char* name;
    updateCore::MODULE updateCore::*module;
} MODULES[] = {
    {"s1", &updateCore::s1},         {"s2", &updateCore::s2},     {"s3", &updateCore::s3},
    {"s4", &updateCore::s4},         {"mf1", &updateCore::mf1},   {"mf2", &updateCore::mf2},
    {"mf3", &updateCore::mf3},       {"arts", &updateCore::arts}, {"motor", &updateCore::motor},
    {"master", &updateCore::master},
};
constexpr unsigned ON_CAN = std::size(MODULES); // more modules than these: the control module as well

template <class ACTION>
bool flashModule(updateCore& core, updateCore::MODULE& module) {
    ACTION action(&core);
    module.base.update.items.push_back({"image.hex", "2.0.0"});
    action.setBase(&module.base);
    return action.needsUpdate(true) == action::GOUPDATE && action.run();
}

bool flashAll(updateCore& core, unsigned modules, bool controlModule) {
    serialBootload sender(&core);
    bool success = sender.sendSystemCommand(busProtocol::CONTROL_MODULE, busProtocol::ENTER_UPDATE_MODE);
    for (unsigned i = 0; i < modules && i < ON_CAN && !controlModule; ++i) {
        success = success && flashModule<canBootload>(core, core.*MODULES[i].module);
    }
    if (controlModule || modules > ON_CAN) {
        success = success && flashModule<serialBootload>(core, core.ctrl);
    }
    return success;
}

} // namespace

void bench::flash(const ARGUMENTS& arguments) {
    const std::string& kind = arguments.at(2);
    const auto modules = static_cast<unsigned>(std::stoul(arguments.at(3)));
    const auto baud = static_cast<unsigned>(std::stoul(arguments.at(4)));
    const bool controlModule = kind.rfind("pic32", 0) == 0;

    std::string inventory = "ctrl kind=" + kind + "\n";
    for (const auto& module : MODULES) {
        inventory += std::string(module.name) + " kind=" + kind + "\n";
    }
    panel::shell("mkdir " + packageRules::UNPACKED + " && ln -s " + arguments.at(1) + " " +
                 packageRules::UNPACKED + "image.hex");
    const panel::SimulatedBus bus(arguments.at(0), inventory,
                                  {"--baud", arguments.at(4), "--trace", arguments.at(5)});
    panel::configure(panel::SimulatedBus::PORT, baud);
    updateCore core;
    const double start = now();
    if (!flashAll(core, modules, controlModule)) {
        throw std::runtime_error("not flashed");
    }
    report(now() - start);
    report(peakMemory());
}
