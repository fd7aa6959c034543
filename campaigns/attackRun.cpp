#include "attackRun.h"

#include "panelVisits.h"
#include "virtualBus.h"

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
        : plan_(requested), firmware_(std::move(images)), bus_(settings(trace)), host_(bus_), panel_(host_) {}

    Outcome execute() {
        Outcome outcome = Outcome::Failed;
        for (int n = 1; outcome == Outcome::Failed && n <= plan_.starts; ++n) {
            bus_.advance(bus_.now() + (n > 1 ? BETWEEN_STARTS : std::chrono::seconds(0)));
            host_.warned = false;
            outcome = start();
        }
        bus_.advance(bus_.now() + LAST_WORK);
        const bool right = std::all_of(finished_.begin(), finished_.end(),
                                       [this](std::size_t target) { return isRight(target); });
        return right ? outcome : Outcome::Wrong;
    }

private:
    VirtualBus::Settings settings(const std::string& trace) const {
        VirtualBus::Settings made;
        const auto lines = inventoryOf(plan_);
        for (std::size_t n = 0; n < lines.size(); ++n) {
            sim::ModuleConfig config = sim::parseModule(sim::words(lines[n]));
            if (n < plan_.targets.size() || isNamed(config.address)) {
                made.modules.push_back(std::move(config));
            }
        }
        made.faults = plan_.faults;
        made.damage = plan_.lineDamage;
        made.seed = plan_.seed;
        made.trace = trace;
        return made;
    }

    bool isNamed(std::uint8_t address) const {
        const std::string word = " module=" + std::to_string(address) + " ";
        return std::any_of(plan_.faults.begin(), plan_.faults.end(), [&](const std::string& fault) {
            return (fault + " ").find(word) != std::string::npos;
        });
    }

    Outcome start() {
        if (!panel_.begin()) {
            return Outcome::Failed;
        }
        bool missing = false;
        for (const modules::ROW& module : modules::VISITED) {
            switch (visit(module)) {
            case PanelVisits::Result::Failed:
                return host_.warned ? Outcome::Failed : Outcome::Untold;
            case PanelVisits::Result::Missing:
                missing = true;
                break;
            case PanelVisits::Result::Done:
                break;
            }
        }
        return missing ? Outcome::Missing : Outcome::Equal;
    }

    PanelVisits::Result visit(const modules::ROW& module) {
        DialogueTarget who{module.address, module.bootloader == modules::BOOTLOADER::SERIAL, ""};
        const auto target = std::find_if(plan_.targets.begin(), plan_.targets.end(),
                                         [&](const Target& entry) { return entry.name == module.name; });
        const auto number = static_cast<std::size_t>(target - plan_.targets.begin());
        if (target == plan_.targets.end() || finished_.count(number) > 0) {
            if (simulated(module.name) != nullptr) {
                panel_.pass(who);
            }
            return PanelVisits::Result::Done;
        }
        who.image = firmware_[number]->path;
        const auto result = panel_.flash(who);
        if (result == PanelVisits::Result::Done) {
            finished_.insert(number);
        }
        return result;
    }

    const sim::Module* simulated(const std::string& name) const {
        const auto found = std::find_if(bus_.modules().begin(), bus_.modules().end(),
                                        [&](const auto& module) { return module->config().name == name; });
        return found == bus_.modules().end() ? nullptr : found->get();
    }

    bool isRight(std::size_t target) {
        const sim::Module& module = *simulated(plan_.targets[target].name);
        const Kind& kind = *plan_.targets[target].kind;
        std::set<std::uint32_t> ignored;
        const std::uint32_t start = kind.regions.front();
        for (std::uint32_t page = start; page < start + OLD_BYTES; page += kind.pageBytes) {
            if (module.bootloader().isIgnored(kind.unit(page))) {
                ignored.insert(page);
            }
        }
        const auto accepted =
            ignored.empty() ? firmware_[target]->after : cellsAfter(kind, firmware_[target]->image, ignored);
        const auto wrong = wrongAddress(module.flash(), kind, accepted);
        if (wrong) {
            bus_.trace().event(bus_.now(), sim::format("%s is wrong at %08X", module.config().name.c_str(),
                                                       kind.unit(*wrong)));
        }
        return !wrong;
    }

    const Plan& plan_;
    std::vector<const Firmware*> firmware_; ///< of the targets
    std::set<std::size_t> finished_;        ///< targets
    VirtualBus bus_;
    VirtualHost host_;
    PanelVisits panel_;
};

} // namespace

Outcome attack(const Plan& plan, FirmwareStore& store, const std::string& trace) {
    std::vector<const Firmware*> images;
    for (const Target& target : plan.targets) {
        const std::string name = std::string(target.kind->name) + (target.smallPages ? "-small-" : "-") +
                                 std::to_string(plan.seed % IMAGES);
        images.push_back(&store.get(name, *target.kind, [&](std::mt19937_64& random) {
            return makeImage(*target.kind, random, target.smallPages);
        }));
    }
    try {
        return Attack(plan, images, trace).execute();
    } catch (const VirtualBus::Endless&) {
        return Outcome::Endless;
    }
}
