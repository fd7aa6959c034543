#include "support.h"

#include "files.h"
#include "htmlTemplate.h"
#include "lib/format.h"
#include "platform.h"
#include "report.h"
#include "reportTemplate.h"
#include "runHistory.h"
#include "sim/messages.h"
#include "system/advice.h"
#include "trace/summary.h"

#include <algorithm>
#include <deque>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <utility>

namespace package {

namespace {

namespace fs = std::filesystem;
using Texts = std::vector<std::string>;

constexpr std::uint64_t LARGEST = 25'000'000; // of all files; a panel copies 20 MB at most
constexpr std::size_t MOST_RUNS = 20;
constexpr std::size_t MOST_TROUBLES = 100;
constexpr std::size_t MOST_ROWS = 200; // of a file
constexpr std::size_t LONGEST_ROW = 400;

// The log in its parts, the oldest first; and what else a panel copies.
const Texts LOGS = {"update.log.4", "update.log.3", "update.log.2",     "update.log.1",
                    "update.log.0", "update.log",   "update.log.latest"};
constexpr std::pair<const char*, const char*> SHOWN[] = {
    {"modules.txt", "The modules, as each told in the last run"},
    {"state.txt", "The panel and its modules, when it was copied"},
    {"system.manifest", "Installed"},
    {"unfinished.modules", "Half programmed, by bus address"},
    {"crash.dump", "The last crash"},
    {"vx3.cfg", "Configuration"},
    {"kernel.txt", "The kernel's last messages"},
};
const Texts TRACES = {"bus.trace", "bus.trace.0", "bus.trace.1"};

// The files of the folder.
class Evidence {
public:
    explicit Evidence(const fs::path& folder) : folder_(folder) {}

    // Empty when it is not there, or is not to be read.
    std::string read(const std::string& name) {
        const fs::path path = folder_ / name;
        std::error_code none;
        if (fs::symlink_status(path, none).type() == fs::file_type::not_found)
            return {};
        if (const auto text = platform::readWithin(folder_, path, room_)) {
            room_ -= text->size();
            ++found_;
            return *text;
        }
        leftOut_.push_back(
            {"warning", name + ": left out, since it is no plain file of this folder, or too large", {}});
        return {};
    }
    unsigned found() const { return found_; }
    const std::vector<SupportLine>& leftOut() const { return leftOut_; }

private:
    fs::path folder_;
    std::uint64_t room_ = LARGEST;
    unsigned found_ = 0;
    std::vector<SupportLine> leftOut_;
};

// The last ones, when there are too many.
Texts rowsOf(const std::string& text) {
    std::deque<std::string> rows;
    std::istringstream lines(text);
    bool areAll = true;
    for (std::string line; std::getline(lines, line);) {
        rows.push_back(line.substr(0, LONGEST_ROW));
        if (rows.size() > MOST_ROWS) {
            rows.pop_front();
            areAll = false;
        }
    }
    if (!areAll)
        rows.push_front("...");
    return {rows.begin(), rows.end()};
}

void addRemedy(SupportLine& line, const std::string& text) {
    if (const std::string remedy = advice::about(text); !remedy.empty())
        line.more.push_back("what to do: " + remedy);
}

SupportLine lineOf(const UpdateRun& run) {
    const bool isGood = run.outcome == "complete" || run.outcome == "the new updater goes on";
    SupportLine line{isGood               ? "good"
                     : run.reason.empty() ? "warning"
                                          : "error",
                     run.begin + ": " + run.outcome + (run.reason.empty() ? "" : ": " + run.reason),
                     {}};
    addRemedy(line, run.reason);
    std::map<std::string, std::string> others; // by outcome
    for (const VisitedItem& item : run.items) {
        std::string& same = others[item.outcome];
        if (!item.versions.empty())
            line.more.push_back(item.name + ": " + item.versions + ", " + item.outcome);
        else if (!item.outcome.empty())
            same += (same.empty() ? item.outcome + ": " : ", ") + item.name;
    }
    for (const auto& [outcome, names] : others) {
        if (!names.empty())
            line.more.push_back(names);
    }
    return line;
}

SupportSection updates(const std::vector<LogLine>& log) {
    SupportSection section{"Updates, the last one first", {}, {}};
    const std::vector<UpdateRun> runs = updateRuns(log);
    for (auto run = runs.rbegin(); run != runs.rend() && section.lines.size() < MOST_RUNS; ++run)
        section.lines.push_back(lineOf(*run));
    return section;
}

// Errors and warnings; of those that are alike, the last one.
SupportSection troubles(const std::vector<LogLine>& log) {
    SupportSection section{"Lines to look at, the last one first", {}, {}};
    std::map<std::string, unsigned> counts;
    for (const LogLine& line : log)
        counts[line.text] += line.isTrouble() ? 1 : 0;
    for (auto line = log.rbegin(); line != log.rend() && section.lines.size() < MOST_TROUBLES; ++line) {
        unsigned& count = counts[line->text];
        if (!line->isTrouble() || count == 0)
            continue;
        const std::string times = count > 1 ? format(" (%u times)", count) : "";
        section.lines.push_back(
            {line->isError() ? "error" : "warning", line->when + ": " + line->text + times, {}});
        addRemedy(section.lines.back(), line->text);
        count = 0;
    }
    return section;
}

// How it came to be saved, what modules said of themselves, and the line to each.
SupportSection bus(const std::string& name, const std::string& text) {
    SupportSection section{"The bus, " + name, {}, {}};
    try {
        std::istringstream in(text);
        const trace::Recording recording = trace::read(in);
        std::set<std::string> said;
        for (const trace::Piece& piece : trace::cut(recording)) {
            const bool isIdentity = piece.event.empty() && piece.frame.kind == sim::Frame::Kind::Good &&
                                    piece.frame.message.id == sim::id::IDENTIFICATION;
            if (isIdentity || piece.event.starts_with("recording"))
                said.insert(isIdentity ? sim::describe(piece.frame.message) : piece.event);
        }
        std::ostringstream table;
        trace::summarize(table, recording);
        for (const std::string& each : said) {
            if (section.block.size() < MOST_ROWS)
                section.block.push_back(each.substr(0, LONGEST_ROW));
        }
        const Texts rows = rowsOf(table.str());
        section.block.insert(section.block.end(), rows.begin(), rows.end());
    } catch (const std::exception& error) {
        section.lines.push_back({"warning", std::string("can't be read: ") + error.what(), {}});
    }
    return section;
}

std::string titleOf(const fs::path& folder) {
    std::error_code none;
    const fs::path whole = fs::canonical(folder, none);
    return whole.filename().string();
}

} // namespace

SupportPage readEvidence(const fs::path& folder) {
    Evidence evidence(folder);
    SupportPage page{titleOf(folder), {}};
    const auto add = [&page](SupportSection section) {
        if (!section.lines.empty() || !section.block.empty())
            page.sections.push_back(std::move(section));
    };
    std::vector<LogLine> log;
    for (const std::string& name : LOGS) {
        std::ranges::move(logLines(evidence.read(name)), std::back_inserter(log));
    }
    add(updates(log));
    add(troubles(log));
    for (const std::string& name : TRACES) {
        if (const std::string text = evidence.read(name); !text.empty())
            add(bus(name, text));
    }
    for (const auto& [name, title] : SHOWN)
        add({title, {}, rowsOf(evidence.read(name))});
    if (evidence.found() == 0)
        throw Failure(folder.string() +
                      ": no file of a panel's evidence (keldra_logs/PANEL-TIME) can be read");
    add({"Left out", evidence.leftOut(), {}});
    return page;
}

std::string supportText(const SupportPage& page) {
    std::string text = printable(page.title) + "\n";
    for (const SupportSection& section : page.sections) {
        text += "\n== " + section.title + "\n";
        for (const SupportLine& line : section.lines) {
            text += line.mark + ": " + printable(line.text) + "\n";
            for (const std::string& more : line.more)
                text += "    " + printable(more) + "\n";
        }
        for (const std::string& row : section.block)
            text += printable(row) + "\n";
    }
    return text;
}

std::string supportHtml(const SupportPage& page, const std::string& program) {
    const auto copies = [](const Texts& texts, const HtmlTemplate& part, const char* name) {
        std::vector<HtmlTemplate> made(texts.size(), part);
        for (std::size_t n = 0; n < texts.size(); ++n)
            made[n].set(name, texts[n]);
        return made;
    };
    HtmlTemplate whole(SUPPORT_TEMPLATE);
    std::vector<HtmlTemplate> sections;
    for (const SupportSection& section : page.sections) {
        HtmlTemplate made = whole.part("section");
        std::vector<HtmlTemplate> lines;
        for (const SupportLine& line : section.lines) {
            HtmlTemplate shown = made.part("line");
            shown.fill("more", copies(line.more, shown.part("more"), "detail"));
            shown.set("mark", line.mark);
            shown.set("text", line.text);
            lines.push_back(shown);
        }
        made.fill("row", copies(section.block, made.part("row"), "row"));
        made.fill("line", lines);
        made.set("heading", section.title);
        sections.push_back(made);
    }
    whole.fill("section", sections);
    whole.set("title", page.title);
    whole.set("program", program);
    return whole.text();
}

} // namespace package
