#include "bench.h"
#include "sim/panel/bed.h"

#include "system/ProcBusThread.h"
#include "system/actions/canBootload.h"
#include "system/actions/serialBootload.h"
#include "system/packageRules.h"
#include "system/updateCore.h"

#include <algorithm>
#include <span>
#include <stdexcept>

namespace {

template <class Action>
bool flashModule(updateCore& core, updateCore::MODULE& module) {
    Action action(&core);
    module.base.update.items.push_back({"image.hex", "2.0.0"});
    action.setBase(&module.base);
    return action.needsUpdate(true) == action::GOUPDATE && action.run();
}

/** The first ones that an update visits, so many; or the control module alone. */
bool flashAll(updateCore& core, std::size_t count, bool controlModule) {
    serialBootload sender(&core);
    bool success = sender.sendSystemCommand(busProtocol::CONTROL_MODULE, busProtocol::ENTER_UPDATE_MODE);
    const auto rows = controlModule ? std::span(modules::find("ctrl"), 1)
                                    : modules::VISITED.first(std::min(count, modules::VISITED.size()));
    for (const modules::ROW& row : rows) {
        updateCore::MODULE& module = core.module(row);
        success = success &&
                  (row.bootloader == modules::BOOTLOADER::SERIAL ? flashModule<serialBootload>(core, module)
                                                                 : flashModule<canBootload>(core, module));
    }
    return success;
}

} // namespace

std::string bench::inventoryOf(const std::string& kind) {
    std::string lines;
    for (const modules::ROW& module : modules::VISITED) {
        lines += std::string(module.name) + " kind=" + kind + "\n";
    }
    return lines;
}

void bench::flash(const Arguments& arguments) {
    const std::string& kind = arguments.at(2);
    const std::size_t modules = std::stoul(arguments.at(3));
    const auto baud = static_cast<unsigned>(std::stoul(arguments.at(4)));
    const bool controlModule = kind.rfind("pic32", 0) == 0;

    panel::shell("mkdir " + packageRules::UNPACKED + " && cp " + arguments.at(1) + " " +
                 packageRules::UNPACKED + "image.hex");
    const panel::SimulatedBus bus(arguments.at(0), inventoryOf(kind),
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
