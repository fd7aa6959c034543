// The panel's bootloader dialogue and the plainest one against modules of many behaviours, in virtual time:
// what the plain one can flash, the panel's must.
#include "commandLine/run.h"
#include "matrixRun.h"
#include "results.h"

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

    bool isBetter() const { return panel.verdict == Verdict::FLASHED && plain.verdict != Verdict::FLASHED; }
    bool isWorse() const { return panel.verdict != Verdict::FLASHED && plain.verdict == Verdict::FLASHED; }
};

/** What came of the cells of one line of the table. */
class Tally {
public:
    void add(const Comparison& result) {
        ++cells;
        ++plain[static_cast<std::size_t>(result.plain.verdict)];
        ++panel[static_cast<std::size_t>(result.panel.verdict)];
        better += result.isBetter();
        worse += result.isWorse();
        if (result.plain.verdict == Verdict::FLASHED && result.panel.verdict == Verdict::FLASHED) {
            plainTime += result.plain.time;
            panelTime += result.panel.time;
        }
    }

    static void printTitle() {
        std::fprintf(results(), "%-14s%7s |%8s%6s%8s |%8s%6s%8s |%7s%6s%7s\n", "", "cells", "plain", "WRONG",
                     "ENDLESS", "panel", "WRONG", "ENDLESS", "better", "worse", "time");
    }
    void print(const std::string& name) const {
        std::fprintf(results(), "%-14s%7d |%8d%6d%8d |%8d%6d%8d |%7d%6d%7.3f\n", name.c_str(), cells,
                     plain[0], plain[2], plain[3], panel[0], panel[2], panel[3], better, worse,
                     plainTime.count() > 0 ? panelTime / plainTime : 1.0);
    }

    bool neverMay() const { return panel[2] + panel[3] > 0; }
    bool isWorse() const { return worse > 0; }

private:
    int cells = 0;
    std::array<int, VERDICTS.size()> plain{}; ///< by verdict
    std::array<int, VERDICTS.size()> panel{};
    int better = 0;
    int worse = 0;
    std::chrono::duration<double> plainTime{0}; ///< where both flashed
    std::chrono::duration<double> panelTime{0};
};

class Campaign {
public:
    explicit Campaign(const Options& requested)
        : options(requested), cells(options.seed, options.together), runs(options.runs) {}

    int execute() {
        for (std::size_t number = 0; number < cells.singles(); number += options.stride) {
            take(cells.at(number));
        }
        for (std::size_t n = 0; n < options.drawn; ++n) {
            take(cells.at(cells.singles() + n));
        }
        printTable();
        return all.neverMay() || (all.isWorse() && options.runs.lose == 0);
    }

private:
    void take(const Cell& cell) {
        const Comparison result{runs.run(cell, Dialogue::PLAIN), runs.run(cell, Dialogue::PANEL)};
        all.add(result);
        byKind[cell.kind->name].add(result);
        for (const Cell::Trait& trait : cell.traits) {
            byDimension[trait.dimension->name].add(result);
        }
        if (isListed(result)) {
            list(cell, result);
        }
    }

    bool isListed(const Comparison& result) const {
        const std::pair<const char*, bool> properties[] = {
            {"better", result.isBetter()},
            {"worse", result.isWorse()},
            {"wrong", result.panel.verdict == Verdict::WRONG},
            {"endless", result.panel.verdict == Verdict::ENDLESS},
            {"plain-wrong", result.plain.verdict == Verdict::WRONG},
            {"plain-endless", result.plain.verdict == Verdict::ENDLESS},
        };
        return std::any_of(std::begin(properties), std::end(properties), [this](const auto& property) {
            return property.second &&
                   std::count(options.lists.begin(), options.lists.end(), property.first) > 0;
        });
    }

    void list(const Cell& cell, const Comparison& result) const {
        const auto& log = result.panel.log;
        std::fprintf(results(), "--seed %llu --together %u --cell %zu: %s: plain %s, panel %s%s\n",
                     static_cast<unsigned long long>(options.seed), options.together, cell.number,
                     cell.text().c_str(), VERDICTS[static_cast<std::size_t>(result.plain.verdict)],
                     VERDICTS[static_cast<std::size_t>(result.panel.verdict)],
                     log.empty() ? "" : (": " + log.back()).c_str());
    }

    void printTable() const {
        Tally::printTitle();
        all.print("all");
        for (const auto* group : {&byKind, &byDimension}) {
            std::fprintf(results(), "\n");
            for (const auto& [name, tally] : *group) {
                tally.print(name);
            }
        }
    }

    const Options& options;
    MatrixCells cells;
    MatrixRuns runs;
    Tally all;
    std::map<std::string, Tally> byKind;
    std::map<std::string, Tally> byDimension; ///< a cell stands at each of its own
};

/** One cell again. */
int repeat(const Options& options) {
    const Cell cell = MatrixCells(options.seed, options.together).at(*options.cell);
    MatrixRuns runs(options.runs);
    std::fprintf(results(), "%s\n", cell.text().c_str());
    for (const Dialogue dialogue : {Dialogue::PLAIN, Dialogue::PANEL}) {
        std::fprintf(results(), "%s:\n", dialogue == Dialogue::PLAIN ? "plain" : "panel");
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
        const auto plain = framesOf(runs.run(cell, Dialogue::PLAIN));
        const auto panel = framesOf(runs.run(cell, Dialogue::PANEL));
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
    return commandLine::run(app, argc, argv, 2, [&] {
        options.runs.trace = options.trace ? "-" : "";
        if (!options.trace) {
            silenceOthers();
        }
        return options.wire   ? compareWire(options)
               : options.cell ? repeat(options)
                              : Campaign(options).execute();
    });
}
