// Updates under faults that are drawn from a seed, several at a time, each with the real core and the
// simulated bus in a sandbox of its own. Counts how they end.
#include "panelRun.h"

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

const char* const USAGE = R"(usage: fault-runs MODE [options]
  --share P      updates of one module, a share P of whose replies is lost, late, doubled or corrupted
  --full-panel   updates of the whole panel, with one to four faults of any kind
  --script FILE  the cases of a file
  --runs N       seeds (of each case of a script) (50)
  --seed N       the first seed (1)
  --case N       only this case of the script
  --jobs N       so many runs at a time (24)
  --keep DIR     leaves log, traces and dumps of each run there
Exit status 1 when a run ended otherwise than as it may.
)";
struct Options {
    std::string mode; ///< the option that chose it, with its value
    double share = 0;
    std::string script;
    std::uint64_t runs = 50;
    std::uint64_t seed = 1;
    std::size_t onlyCase = 0; ///< counted from 1; 0 for all
    unsigned jobs = 24;
    std::string keep;
    bool inside = false; ///< in the sandbox, for a single run
};

Options parse(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string name = argv[i];
        if (name == "--inside") {
            options.inside = true;
            continue;
        }
        if (name == "--full-panel") {
            options.mode = name;
            continue;
        }
        if (i + 1 == argc) {
            throw std::invalid_argument(name);
        }
        const std::string value = argv[++i];
        if (name == "--share") {
            options.share = std::stod(value);
            options.mode = name + " " + value;
        } else if (name == "--script") {
            options.script = fs::absolute(value);
            options.mode = name + " " + options.script;
        } else if (name == "--runs") {
            options.runs = std::stoull(value);
        } else if (name == "--seed") {
            options.seed = std::stoull(value);
        } else if (name == "--case") {
            options.onlyCase = std::stoul(value);
        } else if (name == "--jobs") {
            options.jobs = static_cast<unsigned>(std::stoul(value));
        } else if (name == "--keep") {
            options.keep = fs::absolute(value);
        } else {
            throw std::invalid_argument(name);
        }
    }
    if (options.mode.empty()) {
        throw std::invalid_argument("no mode");
    }
    return options;
}

const std::string& program() {
    static const std::string path = fs::read_symlink("/proc/self/exe");
    return path;
}

int runInside(int argc, char** argv, const Options& options) {
    const QCoreApplication application(argc, argv);
    const Plan plan = options.share > 0 ? sharePlan(options.share, options.seed)
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
    explicit Campaign(Options requested) : options(std::move(requested)) {
        cases = options.script.empty() ? std::vector<ScriptCase>(1) : readScript(options.script);
        for (std::size_t entry = 1; entry <= cases.size(); ++entry) {
            for (std::uint64_t n = 0;
                 n < options.runs && (options.onlyCase == 0 || options.onlyCase == entry); ++n) {
                jobs.push_back({options.seed + n, entry});
            }
        }
    }

    /** The number of runs that ended otherwise than as they may. */
    int execute() {
        std::vector<std::thread> workers;
        for (unsigned n = 0; n < options.jobs; ++n) {
            workers.emplace_back([this] {
                for (std::size_t job = next++; job < jobs.size(); job = next++) {
                    judge(jobs[job], runInSandbox(jobs[job]));
                }
            });
        }
        for (std::thread& worker : workers) {
            worker.join();
        }
        std::cout << options.mode << ": " << jobs.size() << " runs\n";
        for (const auto& [outcome, count] : counts) {
            std::printf("  %-8s %5d\n", outcome.c_str(), count);
        }
        return bad;
    }

private:
    struct Job {
        std::uint64_t seed;
        std::size_t entry; ///< case of the script, from 1
    };

    std::string arguments(const Job& job) const {
        return options.mode + " --seed " + std::to_string(job.seed) +
               (options.script.empty() ? "" : " --case " + std::to_string(job.entry));
    }

    /** What the run said at last. */
    std::string runInSandbox(const Job& job) const {
        std::string command = std::string(IN_SANDBOX) + " -s " + fs::path(program()).parent_path().string();
        std::string keep;
        if (!options.keep.empty()) {
            keep = options.keep + "/" + std::to_string(job.seed) + "-" + std::to_string(job.entry);
            fs::create_directories(keep);
            command += " -s " + keep;
            keep = " --keep " + keep;
        }
        if (!options.script.empty()) {
            command += " -s " + fs::path(options.script).parent_path().string();
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
            isAmong(options.script.empty() ? RIGHT_IF_DRAWN : cases[job.entry - 1].outcomes, outcome);
        const std::lock_guard<std::mutex> held(guard);
        ++counts[outcome];
        if (!isRight) {
            ++bad;
            std::cout << said << "  again: " << program() << ' ' << arguments(job)
                      << " --runs 1 --keep /tmp/kept" << std::endl;
        }
    }

    Options options;
    std::vector<ScriptCase> cases; ///< a single empty one without a script
    std::vector<Job> jobs;
    std::atomic<std::size_t> next{0};
    std::mutex guard; // of the following
    std::map<std::string, int> counts;
    int bad = 0;
};

} // namespace

int main(int argc, char** argv) {
    try {
        const Options options = parse(argc, argv);
        return options.inside ? runInside(argc, argv, options) : Campaign(options).execute() > 0;
    } catch (const std::exception& error) {
        std::cerr << "fault-runs: " << error.what() << '\n' << USAGE;
        return 2;
    }
}
