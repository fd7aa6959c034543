// The panel's bootloader dialogue and the plainest one against modules of many behaviours, in virtual time:
// what the plain one can flash, the panel's must.
#include "matrixRun.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <optional>

namespace {

constexpr const char* ABOUT =
    "Runs the panel's dialogue and the plainest one against simulated modules of many behaviours. Prints a\n"
    "line for each: the module, how both ended, the time that they took, how to repeat it, the panel's last "
    "words.";

struct Options {
    MatrixRuns::Settings runs;
    std::uint64_t seed = 1;
    std::size_t stride = 1;
    std::size_t drawn = 6000;
    unsigned together = 2;
    std::optional<std::size_t> cell;
    bool trace = false;
    bool wire = false;
};

void compare(const Options& options, const Cell& cell, MatrixRuns& runs) {
    const MatrixResult plain = runs.run(cell, Dialogue::Plain);
    const MatrixResult panel = runs.run(cell, Dialogue::Panel);
    std::fprintf(results(), "%s\t%s\t%s\t%.3f\t%.3f\t--seed %llu --together %u --cell %zu\t%s\n",
                 cell.text().c_str(), nameOf(plain.outcome), nameOf(panel.outcome), plain.time.count(),
                 panel.time.count(), static_cast<unsigned long long>(options.seed), options.together,
                 cell.number, panel.log.empty() ? "" : panel.log.back().c_str());
}

int execute(const Options& options) {
    const MatrixCells cells(options.seed, options.together);
    MatrixRuns runs(options.runs);
    if (options.cell) {
        compare(options, cells.at(*options.cell), runs);
        return 0;
    }
    for (std::size_t number = 0; number < cells.singles(); number += options.stride) {
        compare(options, cells.at(number), runs);
    }
    for (std::size_t n = 0; n < options.drawn; ++n) {
        compare(options, cells.at(cells.singles() + n), runs);
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
        return options.wire ? compareWire(options) : execute(options);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    } catch (const std::exception& error) {
        std::cerr << "module-matrix: " << error.what() << '\n';
        return 2;
    }
}
