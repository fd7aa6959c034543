#include "plans.h"

#include "faultDraw.h"

#include <fstream>
#include <sstream>

namespace {

const char* const MODULES[] = {"mf1", "mf2", "mf3",   "arts",   "s1",  "s2",
                               "s3",  "s4",  "motor", "master", "ctrl"};

/** One module to update; all others are up to date. */
Plan singleModule(const std::string& kind, const std::string& module, std::uint64_t seed) {
    Plan plan;
    plan.seed = seed;
    plan.targets = {{module, &kindNamed(kind)}};
    for (const char* name : MODULES) {
        if (name != plan.targets[0].name) {
            plan.upToDate.emplace_back(name);
        }
    }
    return plan;
}

} // namespace

std::vector<ScriptCase> readScript(const std::string& file) {
    std::vector<ScriptCase> cases;
    std::ifstream in(file);
    for (std::string line; std::getline(in, line);) {
        std::istringstream words(line.substr(0, line.find('#')));
        ScriptCase entry;
        if (!(words >> entry.kind >> entry.module >> entry.starts >> entry.outcomes)) {
            continue;
        }
        for (std::string fault; std::getline(words >> std::ws, fault, ';');) {
            entry.faults.push_back(fault);
        }
        cases.push_back(entry);
    }
    return cases;
}

Plan sharePlan(double share, std::uint64_t seed) {
    std::mt19937_64 random(seed);
    const std::string kind = kinds()[static_cast<std::size_t>(seed % kinds().size())].name;
    Plan plan = singleModule(kind, kind.rfind("pic32", 0) == 0 ? "ctrl" : "mf1", seed);
    Target& target = plan.targets[0];
    const bool isPic24 =
        kind.rfind("pic24", 0) == 0; // the others' rows outnumber what a short reply can tell
    target.inventory = isPic24 && random() % 2 == 0 ? "reply=short" : "";
    plan.faults = drawReplyFaults(addressOf(target.name), share, random);
    return plan;
}

Plan fullPlan(std::uint64_t seed) {
    std::mt19937_64 random(seed);
    Plan plan;
    plan.seed = seed;
    plan.targets = {
        {"mf2", &kindNamed("pic24-old"), "reply=short"},
        {"mf3", &kindNamed("stm32f3"), "", "08000000"},
        {"arts", &kindNamed("stm32f0"), "identity=11"},
        {"s1", &kindNamed("stm32f3")},
        {"s2", &kindNamed("pic24"), "", "1000"},
        {"s3", &kindNamed("stm32f4"), "hw=2"},
        {"motor", &kindNamed("pic24-old")},
        {"master", &kindNamed("pic24"), "reply=short"},
        {"ctrl", &kindNamed(seed % 2 == 0 ? "pic32-pages" : "pic32-records"), "hw=1"},
    };
    plan.upToDate = {"mf1"}; // and s4 is absent
    std::vector<std::uint8_t> addresses;
    for (const Target& target : plan.targets) {
        addresses.push_back(addressOf(target.name));
    }
    plan.faults = drawMixedFaults(addresses, random);
    return plan;
}

Plan scriptPlan(const ScriptCase& entry, std::uint64_t seed) {
    Plan plan = singleModule(entry.kind, entry.module, seed);
    plan.starts = entry.starts;
    plan.faults = entry.faults;
    return plan;
}
