// The panel's bootloader dialogues in virtual time under faults of the bus that are drawn from a seed or
// aimed: wrong flash that is called right is what is looked for.
#include "attackRun.h"
#include "results.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <functional>
#include <iostream>
#include <map>

namespace {

constexpr const char* ABOUT =
    "Updates of simulated modules under faults of the bus, in virtual time.\n"
    "Exit status: 0 fine; 1 when a run ended otherwise than as it may; 2 for a wrong command line.";

struct Options {
    std::vector<std::string> drawn;
    std::vector<std::string> scripts;
    std::uint64_t runs = 100;
    std::uint64_t seed = 1;
    std::size_t onlyCase = 0; ///< counted from 1; 0 for all
    bool trace = false;
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

class Campaign {
public:
    explicit Campaign(const Options& requested) : options_(requested), runs_(options_.trace ? "-" : "") {}

    /** False when a run ended otherwise than as it may. */
    bool execute() {
        for (const std::string& name : options_.drawn) {
            take("--drawn " + name, RIGHT_IF_DRAWN, "", DRAWN.at(name));
            report(name);
        }
        for (const std::string& script : options_.scripts) {
            executeScript(script);
        }
        return bad_ == 0;
    }

private:
    void executeScript(const std::string& script) {
        const auto cases = readScript(script);
        for (std::size_t number = 1; number <= cases.size(); ++number) {
            if (options_.onlyCase == 0 || options_.onlyCase == number) {
                const ScriptCase& entry = cases[number - 1];
                take("--script " + script + " --case " + std::to_string(number), entry.outcomes,
                     entry.kind + "  " + entry.text,
                     [&](std::uint64_t seed) { return scriptPlan(entry, seed); });
            }
        }
        report(std::filesystem::path(script).filename().string());
    }

    /** All seeds of what is made by `plan`; tells of the first one that ends as it may not. */
    void take(const std::string& repeat, const std::string& right, const std::string& about,
              const std::function<Plan(std::uint64_t)>& plan) {
        std::map<Outcome, std::vector<std::uint64_t>> wrong;
        for (std::uint64_t seed = options_.seed; seed < options_.seed + options_.runs; ++seed) {
            const Outcome outcome = runs_.run(plan(seed));
            ++counts_[static_cast<std::size_t>(outcome)];
            if (!isAmong(right, nameOf(outcome))) {
                wrong[outcome].push_back(seed);
            }
        }
        for (const auto& [outcome, seeds] : wrong) {
            bad_ += seeds.size();
            std::fprintf(results(), "%s in %zu: module-attacks %s --runs 1 --seed %llu --trace: %s\n",
                         nameOf(outcome), seeds.size(), repeat.c_str(),
                         static_cast<unsigned long long>(seeds.front()), about.c_str());
            std::fflush(results());
        }
    }

    void report(const std::string& name) {
        std::fprintf(results(), "%-14s", name.c_str());
        for (std::size_t n = 0; n < OUTCOMES.size(); ++n) {
            std::fprintf(results(), "%8llu %s", static_cast<unsigned long long>(counts_[n]), OUTCOMES[n]);
        }
        std::fprintf(results(), "\n");
        std::fflush(results());
        counts_ = {};
    }

    const Options& options_;
    AttackRuns runs_;
    std::array<std::uint64_t, OUTCOMES.size()> counts_{};
    std::uint64_t bad_ = 0;
};

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
}

} // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app(ABOUT, "module-attacks");
    declare(app, options);
    try {
        app.parse(argc, argv);
        if (!options.trace) {
            silenceOthers();
        }
        return Campaign(options).execute() ? 0 : 1;
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    } catch (const std::exception& error) {
        std::cerr << "module-attacks: " << error.what() << '\n';
        return 2;
    }
}
