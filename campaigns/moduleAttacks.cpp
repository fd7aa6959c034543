// The panel's bootloader dialogues under faults of the bus that are drawn from a seed or aimed: wrong flash
// that is called right is what is looked for.
#include "attackRun.h"
#include "commandLine/run.h"
#include "panelRun.h"
#include "results.h"

#include <QCoreApplication>
#include <filesystem>
#include <functional>
#include <map>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

constexpr const char* ABOUT =
    "Updates of simulated modules under faults of the bus, in virtual time. Prints a line for each: what is\n"
    "counted together, how it ended, and, when it may not end so, how to repeat it and what it was.\n"
    "Exit status: 0 fine; 1 when a run ended otherwise than as it may; 2 for a wrong command line.";

struct Options {
    std::vector<std::string> drawn;
    std::vector<std::string> scripts;
    std::uint64_t runs = 100;
    std::uint64_t seed = 1;
    std::size_t onlyCase = 0; ///< counted from 1; 0 for all
    bool trace = false;
    bool list = false;
    bool real = false;
};

/** Faults that are drawn, by the name that the command line has for them. */
const std::map<std::string, std::function<Plan(std::uint64_t)>> DRAWN = {
    {"replies-1", [](std::uint64_t seed) { return sharePlan(0.01, seed); }},
    {"replies-10", [](std::uint64_t seed) { return sharePlan(0.10, seed); }},
    {"requests", [](std::uint64_t seed) { return lossPlan(0, seed); }},
    {"both-1", [](std::uint64_t seed) { return lossPlan(0.01, seed); }},
    {"both-10", [](std::uint64_t seed) { return lossPlan(0.10, seed); }},
    {"mixed", mixedPlan},
    {"line", linePlan},
    {"panel", fullPlan},
};

/** What is run with one seed after the other. */
struct Case {
    std::string group;     ///< whose outcomes are counted together
    std::string arguments; ///< that choose this case alone
    std::string right;     ///< outcomes
    std::string about;
    std::function<Plan(std::uint64_t)> plan;

    std::string repeat(std::uint64_t seed) const {
        return arguments + " --runs 1 --seed " + std::to_string(seed);
    }
};

std::vector<Case> casesOf(const Options& options) {
    std::vector<Case> cases;
    for (const std::string& name : options.drawn) {
        cases.push_back({name, "--drawn " + name, RIGHT_IF_DRAWN, "", DRAWN.at(name)});
    }
    for (const std::string& script : options.scripts) {
        std::size_t number = 0;
        for (const ScriptCase& entry : readScript(script)) {
            if (++number == options.onlyCase || options.onlyCase == 0) {
                cases.push_back({fs::path(script).filename().string(),
                                 "--script " + script + " --case " + std::to_string(number), entry.outcomes,
                                 entry.kind + "  " + entry.text,
                                 [entry](std::uint64_t seed) { return scriptPlan(entry, seed); }});
            }
        }
    }
    return cases;
}

/** True when it may end so. */
bool tell(const Case& entry, Outcome outcome, const std::string& more) {
    const bool mayBe = isAmong(entry.right, nameOf(outcome));
    std::fprintf(results(), "%s\t%s%s\n", entry.group.c_str(), nameOf(outcome),
                 mayBe ? "" : ("\t" + more).c_str());
    return mayBe;
}

bool execute(const Options& options) {
    FirmwareStore store;
    bool right = true;
    for (const Case& each : casesOf(options)) {
        for (std::uint64_t seed = options.seed; seed < options.seed + options.runs; ++seed) {
            right &= tell(each, attack(each.plan(seed), store, options.trace ? "-" : ""),
                          "module-attacks " + each.repeat(seed) + " --trace: " + each.about);
        }
    }
    return right;
}

/** For who runs each by itself. */
void list(const Options& options) {
    for (const Case& each : casesOf(options)) {
        for (std::uint64_t n = 0; n < options.runs; ++n) {
            std::fprintf(results(), "%s\n", each.repeat(options.seed + n).c_str());
        }
    }
}

/** The first case with the first seed. */
[[noreturn]] void runReal(const Options& options, int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    const Case entry = casesOf(options).at(0);
    const Result result =
        runPanel(entry.plan(options.seed), fs::read_symlink("/proc/self/exe").parent_path() / "bus-sim");
    const bool right = tell(entry, result.outcome, result.detail);
    std::fflush(nullptr);
    _exit(right ? 0 : 1); // a core whose run hangs can't be taken down
}

void declare(CLI::App& app, Options& options) {
    std::vector<std::string> names;
    for (const auto& [name, plan] : DRAWN) {
        names.push_back(name);
    }
    app.add_option("--drawn", options.drawn, "faults that are drawn from the seed; may be repeated")
        ->check(CLI::IsMember(names));
    app.add_option("--script", options.scripts, "the cases of a file; may be repeated")
        ->check(CLI::ExistingFile);
    app.add_option("--case", options.onlyCase, "only this case of a script");
    app.add_option("--runs", options.runs, "seeds of each case, or of what is drawn (100)");
    app.add_option("--seed", options.seed, "the first seed (1)");
    app.add_flag("--trace", options.trace, "print the frames");
    app.add_flag("--list", options.list, "only print the arguments of each run");
    app.add_flag("--real", options.real, "a single run, by the real core and bus-sim, in a sandbox");
}

} // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app(ABOUT, "module-attacks");
    declare(app, options);
    return commandLine::run(app, argc, argv, 2, [&] {
        if (!options.trace) {
            silenceOthers(options.real ? "/tmp/stdout.txt" : "/dev/null");
        }
        if (options.list) {
            list(options);
            return 0;
        }
        if (options.real) {
            runReal(options, argc, argv);
        }
        return execute(options) ? 0 : 1;
    });
}
