// The panel's bootloader dialogue and the plainest one against modules of many behaviours, in virtual time:
// what the plain one can flash, the panel's must.
#include "matrixRun.h"
#include "results.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <iostream>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>

namespace {

constexpr const char* ABOUT =
    "Runs the panel's dialogue and the plainest one against simulated modules of many behaviours.\n"
    "Exit status: 0 fine; 1 when the panel's did what it never may (took wrong flash for right, found no "
    "end),\n"
    "or, without faults, did not flash a module that the plain one flashes; 2 for a wrong command line.";

struct Options {
    MatrixRuns::Settings runs;
    std::uint64_t seed = 1;
    std::size_t stride = 1;
    std::size_t drawn = 6000;
    unsigned together = 2;
    std::vector<std::string> lists;
    std::optional<std::size_t> cell;
    bool trace = false;
    bool wire = false;
};

struct Comparison {
    MatrixResult plain;
    MatrixResult panel;

    bool isBetter() const { return panel.verdict == Verdict::Flashed && plain.verdict != Verdict::Flashed; }
    bool isWorse() const { return panel.verdict != Verdict::Flashed && plain.verdict == Verdict::Flashed; }
};

/** What came of the cells of one line of the table. */
class Tally {
public:
    void add(const Comparison& result) {
        ++cells_;
        ++plain_[static_cast<std::size_t>(result.plain.verdict)];
        ++panel_[static_cast<std::size_t>(result.panel.verdict)];
        better_ += result.isBetter();
        worse_ += result.isWorse();
        if (result.plain.verdict == Verdict::Flashed && result.panel.verdict == Verdict::Flashed) {
            plainTime_ += result.plain.time;
            panelTime_ += result.panel.time;
        }
    }

    static void printTitle() {
        std::fprintf(results(), "%-14s%7s |%8s%6s%8s |%8s%6s%8s |%7s%6s%7s\n", "", "cells", "plain", "WRONG",
                     "ENDLESS", "panel", "WRONG", "ENDLESS", "better", "worse", "time");
    }
    void print(const std::string& name) const {
        std::fprintf(results(), "%-14s%7d |%8d%6d%8d |%8d%6d%8d |%7d%6d%7.3f\n", name.c_str(), cells_,
                     plain_[0], plain_[2], plain_[3], panel_[0], panel_[2], panel_[3], better_, worse_,
                     plainTime_.count() > 0 ? panelTime_ / plainTime_ : 1.0);
    }

    bool neverMay() const { return panel_[2] + panel_[3] > 0; }
    bool isWorse() const { return worse_ > 0; }

private:
    int cells_ = 0;
    std::array<int, VERDICTS.size()> plain_{}; ///< by verdict
    std::array<int, VERDICTS.size()> panel_{};
    int better_ = 0;
    int worse_ = 0;
    std::chrono::duration<double> plainTime_{0}; ///< where both flashed
    std::chrono::duration<double> panelTime_{0};
};

class Campaign {
public:
    explicit Campaign(const Options& requested)
        : options_(requested), cells_(options_.seed, options_.together), runs_(options_.runs) {}

    int execute() {
        for (std::size_t number = 0; number < cells_.singles(); number += options_.stride) {
            take(cells_.at(number));
        }
        for (std::size_t n = 0; n < options_.drawn; ++n) {
            take(cells_.at(cells_.singles() + n));
        }
        printTable();
        return all_.neverMay() || (all_.isWorse() && options_.runs.lose == 0);
    }

private:
    void take(const Cell& cell) {
        const Comparison result{runs_.run(cell, Dialogue::Plain), runs_.run(cell, Dialogue::Panel)};
        all_.add(result);
        byKind_[cell.kind->name].add(result);
        for (const Cell::Trait& trait : cell.traits) {
            byDimension_[trait.dimension->name].add(result);
        }
        if (isListed(result)) {
            list(cell, result);
        }
    }

    bool isListed(const Comparison& result) const {
        const std::pair<const char*, bool> properties[] = {
            {"better", result.isBetter()},
            {"worse", result.isWorse()},
            {"wrong", result.panel.verdict == Verdict::Wrong},
            {"endless", result.panel.verdict == Verdict::Endless},
            {"plain-wrong", result.plain.verdict == Verdict::Wrong},
            {"plain-endless", result.plain.verdict == Verdict::Endless},
        };
        return std::any_of(std::begin(properties), std::end(properties), [this](const auto& property) {
            return property.second &&
                   std::count(options_.lists.begin(), options_.lists.end(), property.first) > 0;
        });
    }

    void list(const Cell& cell, const Comparison& result) const {
        const auto& log = result.panel.log;
        std::fprintf(results(), "--seed %llu --together %u --cell %zu: %s: plain %s, panel %s%s\n",
                     static_cast<unsigned long long>(options_.seed), options_.together, cell.number,
                     cell.text().c_str(), VERDICTS[static_cast<std::size_t>(result.plain.verdict)],
                     VERDICTS[static_cast<std::size_t>(result.panel.verdict)],
                     log.empty() ? "" : (": " + log.back()).c_str());
    }

    void printTable() const {
        Tally::printTitle();
        all_.print("all");
        for (const auto* group : {&byKind_, &byDimension_}) {
            std::fprintf(results(), "\n");
            for (const auto& [name, tally] : *group) {
                tally.print(name);
            }
        }
    }

    const Options& options_;
    MatrixCells cells_;
    MatrixRuns runs_;
    Tally all_;
    std::map<std::string, Tally> byKind_;
    std::map<std::string, Tally> byDimension_; ///< a cell stands at each of its own
};

/** One cell again. */
int repeat(const Options& options) {
    const Cell cell = MatrixCells(options.seed, options.together).at(*options.cell);
    MatrixRuns runs(options.runs);
    std::fprintf(results(), "%s\n", cell.text().c_str());
    for (const Dialogue dialogue : {Dialogue::Plain, Dialogue::Panel}) {
        std::fprintf(results(), "%s:\n", dialogue == Dialogue::Plain ? "plain" : "panel");
        const MatrixResult result = runs.run(cell, dialogue);
        std::fprintf(results(), "%s after %.3f s\n", VERDICTS[static_cast<std::size_t>(result.verdict)],
                     result.time.count());
    }
    return 0;
}

std::vector<std::string> framesOf(const MatrixResult& result) {
    std::vector<std::string> frames;
    for (const busMessages::PROCBUS_MSG& msg : result.requests) {
        sim::Bytes frame(msg.length + busProtocol::FRAME_OVERHEAD);
        busMessages::encodeFrame(msg, frame.data());
        frames.push_back(sim::toHex(frame));
    }
    return frames;
}

/** Whether both dialogues send the same frames to undisturbed modules. */
int compareWire(const Options& options) {
    const MatrixCells cells(options.seed, options.together);
    MatrixRuns runs(options.runs);
    bool equal = true;
    Cell cell = cells.at(0);
    for (std::size_t number = 0; cell.traits.empty(); cell = cells.at(++number)) {
        const auto plain = framesOf(runs.run(cell, Dialogue::Plain));
        const auto panel = framesOf(runs.run(cell, Dialogue::Panel));
        const auto [left, right] = std::mismatch(plain.begin(), plain.end(), panel.begin(), panel.end());
        std::fprintf(results(), "%s: %zu frames", cell.text().c_str(), plain.size());
        if (left == plain.end() && right == panel.end()) {
            std::fprintf(results(), ", the same\n");
        } else {
            std::fprintf(results(), ", other from frame %td on: plain %s, panel %s\n", left - plain.begin(),
                         left == plain.end() ? "none" : left->c_str(),
                         right == panel.end() ? "none" : right->c_str());
            equal = false;
        }
    }
    return equal ? 0 : 1;
}

void declare(CLI::App& app, Options& options) {
    app.add_option("--seed", options.seed, "of the drawn cells (1)");
    app.add_option("--stride", options.stride, "every so many of the cells with one way alone (1)")
        ->check(CLI::PositiveNumber);
    app.add_option("--drawn", options.drawn, "number of cells with several ways at once (6000)");
    app.add_option("--together", options.together, "ways of a drawn cell (2)");
    app.add_option("--list", options.lists, "tell the cells that are better, worse, wrong ...")
        ->check(CLI::IsMember({"better", "worse", "wrong", "endless", "plain-wrong", "plain-endless"}));
    app.add_option("--lose", options.runs.lose, "share of requests, and of replies, that are lost")
        ->check(CLI::Range(0.0, 1.0));
    auto* cell = app.add_option("--cell", options.cell, "run this cell only");
    app.add_flag("--trace", options.trace, "print its frames")->needs(cell);
    app.add_flag("--wire", options.wire, "compare the frames to undisturbed modules")->excludes(cell);
}

} // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app(ABOUT, "module-matrix");
    declare(app, options);
    try {
        app.parse(argc, argv);
        options.runs.trace = options.trace ? "-" : "";
        if (!options.trace) {
            silenceOthers();
        }
        return options.wire   ? compareWire(options)
               : options.cell ? repeat(options)
                              : Campaign(options).execute();
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    } catch (const std::exception& error) {
        std::cerr << "module-matrix: " << error.what() << '\n';
        return 2;
    }
}
