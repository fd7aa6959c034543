// The panel's bootloader dialogue and the plainest one against modules of many behaviours, in virtual time:
// what the plain one can flash, the panel's must.
#include "commandLine/run.h"
#include "firmwareStore.h"
#include "matrixCells.h"
#include "panelVisits.h"
#include "plainDialogue.h"
#include "results.h"
#include "virtualBus.h"

#include <algorithm>
#include <optional>

namespace {

constexpr const char* ABOUT =
    "Runs the panel's dialogue and the plainest one against simulated modules of many behaviours. Prints a\n"
    "line for each: the module, how both ended, the time that they took, whether they sent the same frames,\n"
    "how to repeat it, the panel's last words.";

constexpr std::chrono::seconds LAST_WORK{60}; // what a module may still be at when the dialogue has ended

/** As an inventory names it: a PIC32 sits on the serial bootloader. */
const char* moduleName(const Kind& kind) {
    return std::string(kind.name).rfind("pic32", 0) == 0 ? "ctrl" : "mf1";
}

enum class Dialogue { Plain, Panel };

struct MatrixResult {
    Outcome outcome = Outcome::Failed;
    std::chrono::duration<double> time{0};          ///< virtual
    std::vector<std::string> log;                   ///< of the dialogue
    std::vector<busMessages::PROCBUS_MSG> requests; ///< all that it sent
};

/** Runs cells; owns their images. */
class MatrixRuns {
public:
    struct Settings {
        double lose = 0;   ///< share of requests, and of replies, that are lost
        std::string trace; ///< "-" for standard output
    };

    explicit MatrixRuns(Settings requested) : settings_(std::move(requested)) {}

    MatrixResult run(const Cell& cell, Dialogue dialogue) {
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
            const bool done =
                dialogue == Dialogue::Plain
                    ? flashPlainly(host, target)
                    : PanelVisits(host, settings_.lose > 0).flash(target) == PanelVisits::Result::Done;
            result.time = bus.now() - start;
            bus.advance(bus.now() + LAST_WORK);
            const bool right = !wrongAddress(module.flash, kind, made.after);
            result.outcome = !done ? Outcome::Failed : right ? Outcome::Equal : Outcome::Wrong;
        } catch (const VirtualBus::Endless&) {
            result.outcome = Outcome::Endless;
        }
        result.log = std::move(host.logged);
        result.requests = std::move(host.sent);
        return result;
    }

private:
    VirtualBus::Settings busFor(const Cell& cell, const Firmware& made) const {
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

    Settings settings_;
    FirmwareStore firmware_;
};

struct Options {
    MatrixRuns::Settings runs;
    std::uint64_t seed = 1;
    std::size_t stride = 1;
    std::size_t drawn = 6000;
    unsigned together = 2;
    std::optional<std::size_t> cell;
    bool trace = false;
};

bool isSame(const busMessages::PROCBUS_MSG& one, const busMessages::PROCBUS_MSG& other) {
    return one.id == other.id && one.length == other.length &&
           std::equal(one.data, one.data + one.length, other.data, other.data + other.length);
}

void compare(const Options& options, const Cell& cell, MatrixRuns& runs) {
    const MatrixResult plain = runs.run(cell, Dialogue::Plain);
    const MatrixResult panel = runs.run(cell, Dialogue::Panel);
    const bool same = std::equal(plain.requests.begin(), plain.requests.end(), panel.requests.begin(),
                                 panel.requests.end(), isSame);
    std::fprintf(results(), "%s\t%s\t%s\t%.3f\t%.3f\t%s\t--seed %llu --together %u --cell %zu\t%s\n",
                 cell.text().c_str(), nameOf(plain.outcome), nameOf(panel.outcome), plain.time.count(),
                 panel.time.count(), same ? "same" : "other", static_cast<unsigned long long>(options.seed),
                 options.together, cell.number, panel.log.empty() ? "" : panel.log.back().c_str());
}

int execute(const Options& options) {
    const MatrixCells cells(options.seed, options.together);
    MatrixRuns runs(options.runs);
    if (options.cell) {
        compare(options, cells.at(*options.cell), runs);
        return 0;
    }
    for (std::size_t number = 0; number < cells.singles(); ++number) {
        if (number % options.stride == 0 || cells.at(number).traits.empty()) {
            compare(options, cells.at(number), runs);
        }
    }
    for (std::size_t n = 0; n < options.drawn; ++n) {
        compare(options, cells.at(cells.singles() + n), runs);
    }
    return 0;
}

void declare(CLI::App& app, Options& options) {
    app.add_option("--seed", options.seed, "of the drawn cells (1)");
    app.add_option("--stride", options.stride,
                   "every so many of the cells with one way alone (1), and all without any")
        ->check(CLI::PositiveNumber);
    app.add_option("--drawn", options.drawn, "number of cells with several ways at once (6000)");
    app.add_option("--together", options.together, "ways of a drawn cell (2)");
    app.add_option("--lose", options.runs.lose, "share of requests, and of replies, that are lost")
        ->check(CLI::Range(0.0, 1.0));
    auto* cell = app.add_option("--cell", options.cell, "run this cell only");
    app.add_flag("--trace", options.trace, "print its frames")->needs(cell);
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
        return execute(options);
    });
}
