#include "attackRun.h"

#include "panelVisits.h"

#include <algorithm>
#include <utility>

namespace {

constexpr std::uint64_t IMAGES = 24; // different ones of a kind, so that few are made
constexpr std::chrono::seconds BETWEEN_STARTS{5};
constexpr std::chrono::seconds LAST_WORK{60}; // what a module may still be at when the panel is through

/** A plan's panel and bus, from the first start to the last look at the flash. */
class Attack {
public:
    Attack(const Plan& requested, std::vector<const Firmware*> images, const std::string& trace)
        : plan(requested), firmware(std::move(images)), bus(settings(trace)), host(bus), panel(host) {}

    Outcome execute() {
        Outcome outcome = Outcome::FAILED;
        for (int n = 1; outcome == Outcome::FAILED && n <= plan.starts; ++n) {
            bus.advance(bus.now() + (n > 1 ? BETWEEN_STARTS : std::chrono::seconds(0)));
            host.warned = false;
            outcome = start();
        }
        bus.advance(bus.now() + LAST_WORK);
        const bool right = std::all_of(finished.begin(), finished.end(),
                                       [this](std::size_t target) { return isRight(target); });
        return right ? outcome : Outcome::WRONG;
    }

private:
    virtualBus::SETTINGS settings(const std::string& trace) const {
        virtualBus::SETTINGS made;
        const auto lines = inventoryOf(plan);
        for (std::size_t n = 0; n < lines.size(); ++n) {
            sim::ModuleConfig config = sim::parseModule(sim::words(lines[n]));
            if (n < plan.targets.size() || isNamed(config.address)) {
                made.modules.push_back(std::move(config));
            }
        }
        made.faults = plan.faults;
        made.damage = plan.lineDamage;
        made.seed = plan.seed;
        made.trace = trace;
        return made;
    }

    bool isNamed(std::uint8_t address) const {
        const std::string word = " module=" + std::to_string(address) + " ";
        return std::any_of(plan.faults.begin(), plan.faults.end(), [&](const std::string& fault) {
            return (fault + " ").find(word) != std::string::npos;
        });
    }

    Outcome start() {
        if (!panel.begin()) {
            return Outcome::FAILED;
        }
        bool missing = false;
        for (const modules::ROW& module : modules::VISITED) {
            switch (visit(module)) {
            case panelVisits::RESULT::FAILED:
                return host.warned ? Outcome::FAILED : Outcome::UNTOLD;
            case panelVisits::RESULT::MISSING:
                missing = true;
                break;
            case panelVisits::RESULT::DONE:
                break;
            }
        }
        return missing ? Outcome::MISSING : Outcome::EQUAL;
    }

    panelVisits::RESULT visit(const modules::ROW& module) {
        DialogueTarget who{module.address, module.bootloader == modules::BOOTLOADER::SERIAL, ""};
        const auto target = std::find_if(plan.targets.begin(), plan.targets.end(),
                                         [&](const Target& entry) { return entry.name == module.name; });
        const auto number = static_cast<std::size_t>(target - plan.targets.begin());
        if (target == plan.targets.end() || finished.count(number) > 0) {
            if (simulated(module.name) != nullptr) {
                panel.pass(who);
            }
            return panelVisits::RESULT::DONE;
        }
        who.image = firmware[number]->path;
        const auto result = panel.flash(who);
        if (result == panelVisits::RESULT::DONE) {
            finished.insert(number);
        }
        return result;
    }

    const sim::Module* simulated(const std::string& name) const {
        const auto found = std::find_if(bus.modules().begin(), bus.modules().end(),
                                        [&](const auto& module) { return module->config().name == name; });
        return found == bus.modules().end() ? nullptr : found->get();
    }

    bool isRight(std::size_t target) {
        const sim::Module& module = *simulated(plan.targets[target].name);
        const Kind& kind = *plan.targets[target].kind;
        std::set<std::uint32_t> ignored;
        const std::uint32_t start = kind.regions.front();
        for (std::uint32_t page = start; page < start + OLD_BYTES; page += kind.pageBytes) {
            if (module.bootloader().isIgnored(kind.unit(page))) {
                ignored.insert(page);
            }
        }
        const auto accepted =
            ignored.empty() ? firmware[target]->after : cellsAfter(kind, firmware[target]->image, ignored);
        if (holds(module.flash(), kind, accepted)) {
            return true;
        }
        const std::uint32_t address = firstDifference(module.flash(), kind, accepted);
        bus.trace().event(
            bus.now(), sim::format("%s is wrong at %08X", module.config().name.c_str(), kind.unit(address)));
        return false;
    }

    const Plan& plan;
    std::vector<const Firmware*> firmware; ///< of the targets
    std::set<std::size_t> finished;        ///< targets
    virtualBus bus;
    virtualHost host;
    panelVisits panel;
};

} // namespace

const Firmware& AttackRuns::firmwareOf(const Target& target, std::uint64_t seed) {
    const std::string name = std::string(target.kind->name) + (target.smallPages ? "-small-" : "-") +
                             std::to_string(seed % IMAGES);
    return store.get(name, *target.kind, [&](std::mt19937_64& random) {
        return makeImage(*target.kind, random, target.smallPages);
    });
}

Outcome AttackRuns::run(const Plan& plan) {
    std::vector<const Firmware*> images;
    for (const Target& target : plan.targets) {
        images.push_back(&firmwareOf(target, plan.seed));
    }
    try {
        return Attack(plan, images, traceFile).execute();
    } catch (const virtualBus::endless&) {
        return Outcome::ENDLESS;
    }
}
