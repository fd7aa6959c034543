#include "runHistory.h"

#include "system/modules.h"

#include <algorithm>
#include <optional>

namespace package {

namespace {

constexpr std::size_t DATE_AND_TIME = 19;                        // characters
constexpr std::size_t LONGEST = 400;                             // characters of a line
constexpr std::string_view READY = "Updater is ready to update"; // logged as an error, but is none
constexpr std::string_view HALF_DONE = "Unfinished module, and nothing in the package for it";
constexpr std::string_view SUCCEEDED = "succeeded";
constexpr std::string_view STARTER_OF_ALL = "Updater"; // the item behind which a new program goes on

std::optional<LogLine> logLine(std::string_view line) {
    const std::size_t open = line.find(" [");
    const std::size_t close = line.find("]: ");
    if (open == line.npos || open < DATE_AND_TIME || close == line.npos || close < open)
        return {};
    line = line.substr(0, std::max(LONGEST, close + 3));
    return LogLine{std::string(line.substr(0, open)), std::string(line.substr(open + 2, close - open - 2)),
                   std::string(line.substr(close + 3))};
}

// What stands between the two; nothing when the text does not have them at its ends.
std::optional<std::string> between(const std::string& text, std::string_view start, std::string_view end) {
    if (text.size() < start.size() + end.size() || !text.starts_with(start) || !text.ends_with(end))
        return {};
    return text.substr(start.size(), text.size() - start.size() - end.size());
}

// What only the program's start, its end or the loader say.
bool isOutsideOfRuns(const std::string& text) {
    return text == "Loading Update File...." || text == "Restarting full system" ||
           text.starts_with("MicroBus Processor Running on ") || text.starts_with("Saving Log: ");
}

class Reader {
public:
    std::vector<UpdateRun> read(const std::vector<LogLine>& log) {
        for (const LogLine& line : log)
            take(line);
        close();
        return std::move(runs_);
    }

private:
    void take(const LogLine& line) {
        if (line.text == "Starting Update...") {
            close();
            runs_.push_back({line.when, {}, {}, {}});
            isOpen_ = true;
        } else if (isOpen_ && isOutsideOfRuns(line.text)) {
            endsInOrder_ = line.text.starts_with("Saving Log: ");
            close();
        } else if (isOpen_) {
            takeOfRun(line);
        }
    }

    void takeOfRun(const LogLine& line) {
        std::vector<VisitedItem>& items = runs_.back().items;
        if (const auto name = between(line.text, "Checking ", " for update")) {
            leaveItem(error_.empty() ? "updated" : "updated, with an error");
            items.push_back({*name, {}, {}});
            error_.clear();
        } else if (const auto end = between(line.text, "Run ended: ", "")) {
            verdict_ = *end;
            close();
        } else if (line.text == "Canceled") {
            canceled_ = true;
        } else if (line.isError()) {
            error_ = line.text;
            halfDone_ = halfDone_ || line.text == HALF_DONE;
        } else if (!items.empty()) {
            takeOfItem(line.text, items.back());
        }
    }

    static void takeOfItem(const std::string& text, VisitedItem& item) {
        if (const auto versions = between(text, "Updating " + item.name + ": ", ""))
            item.versions = *versions;
        for (const char* outcome : {"up-to-date", "not found"}) {
            if (text == item.name + " " + outcome)
                item.outcome = outcome;
        }
    }

    void leaveItem(const char* outcome) {
        if (!runs_.back().items.empty() && !runs_.back().items.back().versions.empty())
            runs_.back().items.back().outcome = outcome;
    }

    void close() {
        if (isOpen_)
            judge(runs_.back());
        isOpen_ = canceled_ = halfDone_ = endsInOrder_ = false;
        error_.clear();
        verdict_.clear();
    }

    void judge(UpdateRun& run) {
        const std::string last = run.items.empty() ? "its start" : run.items.back().name;
        if (canceled_) {
            leaveItem("canceled");
            run.outcome = "canceled at " + last;
        } else if (verdict_.starts_with(SUCCEEDED)) { // whatever error it has got over
            leaveItem("updated");
            run.outcome = verdict_ == SUCCEEDED ? "complete" : verdict_;
        } else if (!error_.empty()) {
            leaveItem("failed");
            run.outcome = "failed at " + last;
            run.reason = error_;
        } else if (last == modules::VISITED.back().shown) {
            leaveItem("updated");
            run.outcome = halfDone_ ? "failed: a module was left half programmed" : "complete";
            run.reason = halfDone_ ? HALF_DONE : "";
        } else if (last == STARTER_OF_ALL && endsInOrder_) {
            leaveItem("updated");
            run.outcome = "the new updater goes on";
        } else {
            leaveItem("cut short");
            run.outcome = "cut short at " + last + ", without a word (power, a crash?)";
        }
    }

    std::vector<UpdateRun> runs_;
    bool isOpen_ = false;
    bool canceled_ = false;
    bool halfDone_ = false;
    bool endsInOrder_ = false; // the program ended, and was not cut short
    std::string verdict_;      // the updater's own; older ones log none
    std::string error_;        // the last one of the item at hand
};

} // namespace

bool LogLine::isError() const {
    return level == "Error" && text != READY;
}

std::vector<UpdateRun> updateRuns(const std::vector<LogLine>& log) {
    return Reader().read(log);
}

std::vector<LogLine> logLines(std::string_view log) {
    std::vector<LogLine> lines;
    while (!log.empty()) {
        std::string_view line = log.substr(0, log.find('\n'));
        log.remove_prefix(std::min(line.size() + 1, log.size()));
        if (line.ends_with('\r'))
            line.remove_suffix(1);
        if (auto read = logLine(line))
            lines.push_back(std::move(*read));
    }
    return lines;
}

} // namespace package
