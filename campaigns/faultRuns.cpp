// Updates under faults that are drawn from a seed, several at a time, each with the real core and the
// simulated bus in a sandbox of its own. Counts how they end.
#include "panelRun.h"

#include <CLI/CLI.hpp>
#include <QCoreApplication>
#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace fs = std::filesystem;

namespace {

constexpr const char* ABOUT =
    "Updates by the real core on the simulated bus, each in a sandbox of its own, under faults of the bus.\n"
    "Exit status: 0 fine; 1 when a run ended otherwise than as it may; 2 for a wrong command line.";

struct Options {
    std::string share; ///< this, the next or the script is given
    bool fullPanel = false;
    std::string script;
    std::uint64_t runs = 50;
    std::uint64_t seed = 1;
    std::size_t onlyCase = 0; ///< counted from 1; 0 for all
    unsigned jobs = 24;
    std::string keep;
    bool inside = false; ///< in the sandbox, for a single run
};

/** The option that chose what to run, with its value. */
std::string modeOf(const Options& options) {
    return options.fullPanel        ? "--full-panel"
           : options.script.empty() ? "--share " + options.share
                                    : "--script " + options.script;
}

void declare(CLI::App& app, Options& options) {
    const auto absolute = [](const std::string& path) { return fs::absolute(path).string(); };
    auto* modes = app.add_option_group("mode");
    modes->require_option(1);
    modes->add_option(
        "--share", options.share,
        "updates of one module, a share P of whose replies is lost, late, doubled or corrupted");
    modes->add_flag("--full-panel", options.fullPanel,
                    "updates of the whole panel, with one to four faults of any kind");
    modes->add_option("--script", options.script, "the cases of a file")->transform(absolute);
    app.add_option("--runs", options.runs, "seeds (of each case of a script) (50)");
    app.add_option("--seed", options.seed, "the first seed (1)");
    app.add_option("--case", options.onlyCase, "only this case of the script");
    app.add_option("--jobs", options.jobs, "so many runs at a time (24)");
    app.add_option("--keep", options.keep, "leaves log, traces and dumps of each run there")
        ->transform(absolute);
    app.add_flag("--inside", options.inside)->group("");
}

const std::string& program() {
    static const std::string path = fs::read_symlink("/proc/self/exe");
    return path;
}

int runInside(int argc, char** argv, const Options& options) {
    const QCoreApplication application(argc, argv);
    const Plan plan = !options.share.empty() ? sharePlan(std::stod(options.share), options.seed)
                      : options.script.empty()
                          ? fullPlan(options.seed)
                          : scriptPlan(readScript(options.script).at(options.onlyCase - 1), options.seed);
    if (std::freopen("/tmp/stdout.txt", "w", stdout) == nullptr) {
        return 1;
    }
    const Result result = runPanel(plan, fs::path(program()).parent_path() / "bus-sim");
    std::fflush(stdout);
    if (!options.keep.empty()) {
        for (const char* path : {"/tmp/dump", "/tmp/trace.txt", "/tmp/report.txt", "/tmp/stdout.txt",
                                 "/tmp/modules", "/keldra/logs", "/keldra/tmp/keldra_update"}) {
            fs::copy(path, options.keep + "/" + fs::path(path).filename().string(),
                     fs::copy_options::recursive | fs::copy_options::overwrite_existing);
        }
    }
    std::cerr << "RESULT " << nameOf(result.outcome) << ' ' << result.detail << std::endl;
    _Exit(0); // a core whose run hangs can't be taken down
}

class Campaign {
public:
    explicit Campaign(Options requested) : options_(std::move(requested)) {
        cases_ = options_.script.empty() ? std::vector<ScriptCase>(1) : readScript(options_.script);
        for (std::size_t entry = 1; entry <= cases_.size(); ++entry) {
            for (std::uint64_t n = 0;
                 n < options_.runs && (options_.onlyCase == 0 || options_.onlyCase == entry); ++n) {
                jobs_.push_back({options_.seed + n, entry});
            }
        }
    }

    /** The number of runs that ended otherwise than as they may. */
    int execute() {
        std::vector<std::thread> workers;
        for (unsigned n = 0; n < options_.jobs; ++n) {
            workers.emplace_back([this] {
                for (std::size_t job = next_++; job < jobs_.size(); job = next_++) {
                    judge(jobs_[job], runInSandbox(jobs_[job]));
                }
            });
        }
        for (std::thread& worker : workers) {
            worker.join();
        }
        std::cout << modeOf(options_) << ": " << jobs_.size() << " runs\n";
        for (const auto& [outcome, count] : counts_) {
            std::printf("  %-8s %5d\n", outcome.c_str(), count);
        }
        return bad_;
    }

private:
    struct Job {
        std::uint64_t seed;
        std::size_t entry; ///< case of the script, from 1
    };

    std::string arguments(const Job& job) const {
        return modeOf(options_) + " --seed " + std::to_string(job.seed) +
               (options_.script.empty() ? "" : " --case " + std::to_string(job.entry));
    }

    /** What the run said at last. */
    std::string runInSandbox(const Job& job) const {
        std::string command = std::string(IN_SANDBOX) + " -s " + fs::path(program()).parent_path().string();
        std::string keep;
        if (!options_.keep.empty()) {
            keep = options_.keep + "/" + std::to_string(job.seed) + "-" + std::to_string(job.entry);
            fs::create_directories(keep);
            command += " -s " + keep;
            keep = " --keep " + keep;
        }
        if (!options_.script.empty()) {
            command += " -s " + fs::path(options_.script).parent_path().string();
        }
        command += " " + program() + " --inside " + arguments(job) + keep + " 2>&1";
        std::FILE* const pipe = popen(command.c_str(), "r");
        if (pipe == nullptr) {
            throw std::runtime_error("no process for " + command);
        }
        std::string last;
        for (char line[512]; std::fgets(line, sizeof line, pipe) != nullptr;) {
            last = line;
        }
        const int status = pclose(pipe);
        return status == 0 ? last : "ended with status " + std::to_string(status) + ": " + last;
    }

    void judge(const Job& job, const std::string& said) {
        std::istringstream words(said);
        std::string label;
        std::string outcome;
        words >> label >> outcome;
        if (label != "RESULT") {
            outcome = "crashed";
        }
        const bool isRight =
            isAmong(options_.script.empty() ? RIGHT_IF_DRAWN : cases_[job.entry - 1].outcomes, outcome);
        const std::lock_guard<std::mutex> held(guard_);
        ++counts_[outcome];
        if (!isRight) {
            ++bad_;
            std::cout << said << "  again: " << program() << ' ' << arguments(job)
                      << " --runs 1 --keep /tmp/kept" << std::endl;
        }
    }

    Options options_;
    std::vector<ScriptCase> cases_; ///< a single empty one without a script
    std::vector<Job> jobs_;
    std::atomic<std::size_t> next_{0};
    std::mutex guard_; // of the following
    std::map<std::string, int> counts_;
    int bad_ = 0;
};

} // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app(ABOUT, "fault-runs");
    declare(app, options);
    try {
        app.parse(argc, argv);
        return options.inside ? runInside(argc, argv, options) : Campaign(options).execute() > 0;
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    } catch (const std::exception& error) {
        std::cerr << "fault-runs: " << error.what() << '\n';
        return 2;
    }
}
