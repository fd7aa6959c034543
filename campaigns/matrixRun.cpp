#include "matrixRun.h"

#include "panelVisits.h"
#include "plainDialogue.h"

#include <utility>

namespace {

constexpr std::chrono::seconds LAST_WORK{60}; // what a module may still be at when the dialogue has ended

/** As an inventory names it: a PIC32 sits on the serial bootloader. */
const char* moduleName(const Kind& kind) {
    return std::string(kind.name).rfind("pic32", 0) == 0 ? "ctrl" : "mf1";
}

} // namespace

VirtualBus::Settings MatrixRuns::busFor(const Cell& cell, const Firmware& made) const {
    VirtualBus::Settings bus;
    sim::ModuleConfig module = sim::parseModule(
        sim::words(std::string(moduleName(*cell.kind)) + " kind=" + cell.kind->name + cell.temper()));
    module.flash = made.before;
    bus.modules = {std::move(module)};
    if (settings_.lose > 0) {
        const std::string share = " share=" + std::to_string(settings_.lose);
        bus.faults = {"lost-request" + share, "lost" + share};
    }
    bus.seed = cell.number + 1;
    bus.trace = settings_.trace;
    return bus;
}

MatrixResult MatrixRuns::run(const Cell& cell, Dialogue dialogue) {
    const Kind& kind = *cell.kind;
    const Firmware& made =
        firmware_.get(std::string(kind.name) + "-" + cell.shape->name, kind,
                      [&](std::mt19937_64& random) { return imageOf(kind, *cell.shape, random); });
    VirtualBus bus(busFor(cell, made));
    VirtualHost host(bus);
    const VirtualBus::clock::time_point start = bus.now();
    const sim::ModuleConfig& module = bus.modules().front()->config();
    const DialogueTarget target{module.address, module.serialBootloader, made.path};
    MatrixResult result;
    try {
        const bool done = dialogue == Dialogue::Plain
                              ? PlainDialogue(host).flash(target)
                              : PanelVisits(host).flash(target) == PanelVisits::Result::Done;
        result.time = bus.now() - start;
        bus.advance(bus.now() + LAST_WORK);
        const bool right = holds(module.flash, kind, made.after);
        result.outcome = !done ? Outcome::Failed : right ? Outcome::Equal : Outcome::Wrong;
    } catch (const VirtualBus::Endless&) {
        result.outcome = Outcome::Endless;
    }
    result.log = std::move(host.logged);
    result.requests = std::move(host.sent);
    return result;
}
