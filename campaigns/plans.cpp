#include "plans.h"

#include <cstdio>
#include <fstream>
#include <random>
#include <sstream>

namespace {

using Engine = std::mt19937_64;
using Lines = std::vector<std::string>; // of the simulator's fault script

// A late reply is at most this late: the panel counts on half a second.
constexpr unsigned LATEST_MS = 400;

unsigned draw(Engine& random, unsigned from, unsigned to) {
    return from + static_cast<unsigned>(random() % (to - from + 1));
}

std::size_t choose(Engine& random, std::size_t count) {
    return static_cast<std::size_t>(random() % count);
}

std::string number(unsigned value) {
    return std::to_string(value);
}

std::string shareText(double share) {
    char text[32];
    std::snprintf(text, sizeof text, " share=%.5f", share);
    return text;
}

/** What a fault may do: its words, and the requests on which it makes sense ("" for all). */
struct FaultKind {
    std::string (*words)(Engine&);
    std::vector<std::string> requests;
    bool lasting; ///< strikes once, not again and again
};

const std::vector<std::string> ANY = {"",    "",    "enter",  "leave", "start",
                                      "row", "row", "status", "write", "erase"};
const std::vector<std::string> STATUS_BEARERS = {"start", "row", "write", "erase", "erase-all", "leave"};

const FaultKind KINDS[] = {
    {[](Engine&) -> std::string { return "lost-request"; }, ANY, false},
    {[](Engine&) -> std::string { return "silent"; }, ANY, true},
    {[](Engine& r) { return "power-cycle ms=" + number(draw(r, 1, 4000)); }, ANY, true},
    {[](Engine& r) { return "power-cycle requests=" + number(draw(r, 1, 40)); }, ANY, true},
    {[](Engine&) -> std::string { return "write-error"; }, {""}, false},
    {[](Engine&) -> std::string { return "erase-error"; }, {""}, false},
    {[](Engine&) -> std::string { return "ignore-page"; }, {""}, true},
    {[](Engine&) -> std::string { return "lost"; }, ANY, false},
    {[](Engine& r) { return "late ms=" + number(draw(r, 1, LATEST_MS)); }, ANY, false},
    {[](Engine& r) { return "late ms=" + number(draw(r, 40, 120)); }, ANY, false},
    {[](Engine&) -> std::string { return "double"; }, ANY, false},
    {[](Engine& r) { return "noise bytes=" + number(draw(r, 1, 40)); }, ANY, false},
    {[](Engine&) -> std::string { return "noise hex=4B2B4D4203040000"; }, ANY, false},
    {[](Engine& r) { return "wrong-module value=" + number(draw(r, 2, 16)); }, ANY, false},
    {[](Engine& r) { return "wrong-row value=" + number(draw(r, 1, 300)); }, ANY, false},
    // Neither 0 nor 6: a module that says it did what it did not can't be found out.
    {[](Engine& r) { return "wrong-status value=" + number(draw(r, 1, 5)); }, STATUS_BEARERS, false},
    {[](Engine&) -> std::string { return "old-protocol"; }, ANY, false},
    {[](Engine&) -> std::string { return "sync"; }, ANY, false},
    {[](Engine&) -> std::string { return "flip"; }, ANY, false},
    {[](Engine& r) { return "flip at=" + number(draw(r, 1, 13)); }, ANY, false},
    {[](Engine&) -> std::string { return "cut"; }, ANY, false},
};

/** Once, a few times in a row, now and then, or by chance; rows are many, the other requests few. */
std::string drawOccasion(Engine& random, bool once, bool rare) {
    std::string nth = " nth=" + number(draw(random, 1, rare || random() % 2 == 0 ? 4 : 200));
    switch (once ? 0 : draw(random, 0, 3)) {
    case 0:
        return nth;
    case 1:
        return nth + " count=" + number(draw(random, 2, 20));
    case 2:
        return " every=" + number(draw(random, 2, rare ? 5 : 60));
    default:
        return shareText(draw(random, 1, rare ? 60 : 15) / 100.0);
    }
}

/** Replies of one module lost, late, doubled and corrupted: together this share of all. */
Lines drawReplyFaults(std::uint8_t module, double share, Engine& random) {
    const std::string kinds[] = {
        "lost", "late ms=" + number(draw(random, 40, LATEST_MS)), "double", "flip", "cut", "sync"};
    Lines lines;
    for (const std::string& kind : kinds) {
        lines.push_back(kind + " module=" + number(module) + shareText(share / std::size(kinds)));
    }
    return lines;
}

/** One to four faults of any kind, each on one of the modules or on all. */
Lines drawMixedFaults(const std::vector<std::uint8_t>& modules, Engine& random) {
    Lines lines;
    for (unsigned n = draw(random, 1, 4); n > 0; --n) {
        const FaultKind& kind = KINDS[choose(random, std::size(KINDS))];
        const std::string& request = kind.requests[choose(random, kind.requests.size())];
        std::string line = kind.words(random);
        if (!request.empty()) {
            line += " on=" + request;
        }
        if (request == "status") {
            lines.push_back("lost-request every=" + number(draw(random, 10, 40))); // else there are none
        }
        if (kind.lasting || random() % 4 != 0) {
            line += " module=" + number(modules[choose(random, modules.size())]);
        }
        lines.push_back(line + drawOccasion(random, kind.lasting, !request.empty() && request != "row"));
    }
    return lines;
}

/** The serial bootloader is the control module's. */
const char* homeOf(const std::string& kind) {
    return kind.rfind("pic32", 0) == 0 ? "ctrl" : "mf1";
}

/** One module to update; all others are up to date. */
Plan singleModule(const std::string& kind, const std::string& module, std::uint64_t seed) {
    Plan plan;
    plan.seed = seed;
    plan.targets = {{module, &kindNamed(kind)}};
    for (const modules::ROW& other : modules::VISITED) {
        if (other.name != plan.targets[0].name) {
            plan.upToDate.emplace_back(other.name);
        }
    }
    return plan;
}

Plan byTurns(std::uint64_t seed) {
    const std::string kind = kinds()[static_cast<std::size_t>(seed % kinds().size())].name;
    return singleModule(kind, homeOf(kind), seed);
}

/** What stands between the outcomes and the faults. */
void readWords(std::istringstream& line, ScriptCase& entry) {
    std::string word;
    auto begin = line.tellg();
    while (line >> word && (word == "small" || word.find('=') != std::string::npos)) {
        begin = line.tellg();
        if (word == "small") {
            entry.smallPages = true;
        } else if (word.rfind("line=", 0) == 0) {
            entry.lineDamage = std::stod(word.substr(5));
        } else {
            entry.words += " " + word;
        }
    }
    line.clear();
    line.seekg(begin);
}

} // namespace

std::vector<std::string> inventoryOf(const Plan& plan) {
    std::vector<std::string> lines;
    for (const Target& target : plan.targets) {
        const Kind& kind = *target.kind;
        const std::uint32_t flashBytes = kind.packed ? OLD_BYTES / 4 * 3 : OLD_BYTES;
        std::ostringstream text;
        text << target.name << " kind=" << kind.name << " version=1.0.0 next=" << PACKAGE_VERSION << std::hex
             << std::uppercase << " preload=" << unsigned{OLD} << '@' << kind.unit(kind.regions.front())
             << '+' << flashBytes << std::dec << ' ' << target.inventory;
        if (!target.ignored.empty()) {
            text << " ignore=" << target.ignored;
        }
        lines.push_back(text.str());
    }
    for (const std::string& name : plan.upToDate) {
        lines.push_back(name + " version=" + PACKAGE_VERSION);
    }
    return lines;
}

std::vector<ScriptCase> readScript(const std::string& file) {
    std::vector<ScriptCase> cases;
    std::ifstream in(file);
    if (!in) {
        throw std::runtime_error("cannot read " + file);
    }
    for (std::string line; std::getline(in, line);) {
        std::istringstream words(line.substr(0, line.find('#')));
        ScriptCase entry;
        if (!(words >> entry.kind >> entry.module >> entry.starts >> entry.outcomes)) {
            continue;
        }
        readWords(words, entry);
        for (std::string fault; std::getline(words >> std::ws, fault, ';');) {
            entry.faults.push_back(fault);
        }
        entry.text = line;
        for (const Kind& kind : kinds()) {
            if (entry.kind == "any" || isAmong(entry.kind, kind.name)) {
                cases.push_back(entry);
                cases.back().kind = kind.name;
                cases.back().module = entry.module == "any" ? homeOf(kind.name) : entry.module;
            }
        }
    }
    return cases;
}

Plan sharePlan(double share, std::uint64_t seed) {
    std::mt19937_64 random(seed);
    Plan plan = byTurns(seed);
    Target& target = plan.targets[0];
    const bool isPic24 = std::string(target.kind->name).rfind("pic24", 0) ==
                         0; // the others' rows outnumber what a short reply can tell
    target.inventory = isPic24 && random() % 2 == 0 ? "reply=short" : "";
    plan.faults = drawReplyFaults(modules::find(target.name)->address, share, random);
    return plan;
}

Plan mixedPlan(std::uint64_t seed) {
    std::mt19937_64 random(seed);
    Plan plan = byTurns(seed);
    plan.faults = drawMixedFaults({modules::find(plan.targets[0].name)->address}, random);
    return plan;
}

Plan lossPlan(double share, std::uint64_t seed) {
    Plan plan = sharePlan(share, seed);
    std::mt19937_64 random(seed);
    const double lost = static_cast<double>(50 + random() % 151) / 1000;
    plan.faults.push_back("lost-request share=" + std::to_string(lost));
    return plan;
}

Plan linePlan(std::uint64_t seed) {
    std::mt19937_64 random(seed);
    Plan plan = byTurns(seed);
    plan.lineDamage = static_cast<double>(5 + random() % 96) / 10000;
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
        addresses.push_back(modules::find(target.name)->address);
    }
    plan.faults = drawMixedFaults(addresses, random);
    return plan;
}

Plan scriptPlan(const ScriptCase& entry, std::uint64_t seed) {
    Plan plan = singleModule(entry.kind, entry.module, seed);
    plan.targets[0].inventory = entry.words;
    plan.targets[0].smallPages = entry.smallPages;
    plan.lineDamage = entry.lineDamage;
    plan.starts = entry.starts;
    plan.faults = entry.faults;
    return plan;
}
