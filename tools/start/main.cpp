// What a panel starts at boot: it starts the updater that is whole, and stays until that has ended. It has no
// library to miss, needs no file but the updater, and writes nothing but its record.

#include "decision.h"
#include "watch.h"

#include "version.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

constexpr double PATIENCE_S = 60;
constexpr double TOO_SOON_S = 20; // what a new updater has to stay for
constexpr int MOST_STARTS = 5;    // then whoever started this has to
constexpr int FAILED = 1;

constexpr const char* ABOUT =
    "Starts the panel's updater: the installed one when it is whole; else the one of a package that lies\n"
    "unpacked; else the last good one.";

struct Options {
    bool asksStatus = false;
    bool settles = false;
    double patience = PATIENCE_S;
    std::vector<std::string> arguments; ///< the updater's
};

void declare(CLI::App& app, Options& options) {
    app.add_flag("--status", options.asksStatus,
                 "say what would be started and why; exit status 1 when nothing could be");
    app.add_flag("--settle", options.settles,
                 "record that the installed updater is the one that is meant to be there");
    app.add_option("--patience", options.patience,
                   "seconds within which a new updater has to have its window up")
        ->check(CLI::Range(1, 3600))
        ->capture_default_str();
    app.set_version_flag("--version", "keldra-start " KELDRA_VERSION);
    app.allow_extras();
    app.footer("Anything else is handed on to the updater.");
}

std::string nameOf(const startRecord::PROGRAM& program) {
    if (!program.isKnown()) {
        return "none";
    }
    return (program.version.empty() ? "" : "version " + program.version + ", ") +
           std::to_string(program.size) + " bytes, SHA-256 " + program.digest.substr(0, 16) + "...";
}

std::string trialOf(const startRecord& record) {
    return record.trial == startRecord::PROVEN ? "none"
                                               : std::to_string(record.trial) + " starts without proof";
}

std::string commandOf(const Decision& decision) {
    std::string text = decision.program.empty() ? "nothing" : decision.program;
    for (const std::string& word : decision.mode) {
        text += " " + word;
    }
    return text;
}

int showStatus() {
    const startRecord record = startRecord::load();
    const Decision decision = decide(record);
    const auto row = [](const char* name, const std::string& text) {
        std::printf("%-11s%s\n", name, text.c_str());
    };
    row("starts", commandOf(decision));
    row("because", decision.reason);
    row("record",
        startRecord::isKept() ? "in " + startRecord::FOLDER : "none: no folder " + startRecord::FOLDER);
    row("updater", nameOf(record.updater));
    row("coming", nameOf(record.coming));
    row("former", nameOf(record.former));
    row("refused", nameOf(record.refused));
    row("trial", trialOf(record));
    row("package", packageIsComplete() ? "lies unpacked" : "none");
    row("decided", record.decided.empty() ? "nothing out of the ordinary" : record.decided);
    return decision.program.empty() ? FAILED : EXIT_SUCCESS;
}

int settle() {
    startRecord record = startRecord::load();
    const startRecord::PROGRAM installed = startRecord::programAt(startRecord::INSTALLED);
    if (!installed.is(record.updater)) {
        record.updater = installed;
    }
    record.coming = record.refused = {};
    record.item.clear();
    record.trial = startRecord::PROVEN;
    record.isBack = false;
    return installed.isKnown() && record.save() ? EXIT_SUCCESS : FAILED;
}

/** One starter at a time: the name belongs to the process, and to no file system. */
bool isAlone() {
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    std::strcpy(name.sun_path + 1, "keldra-start"); // NOLINT: it fits
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    return fd < 0 || bind(fd, reinterpret_cast<const sockaddr*>(&name), sizeof name) == 0;
}

/** Says what is started, and puts it into the record. */
void note(Decision& decision) {
    std::printf("keldra-start: starts %s: %s\n", commandOf(decision).c_str(), decision.reason.c_str());
    std::fflush(stdout);
    if (decision.isNoted) {
        decision.record.decided =
            commandOf(decision) + ": " + decision.reason + "; trial: " + trialOf(decision.record);
        if (!decision.record.save()) {
            std::printf("keldra-start: could not write the record\n");
        }
    }
}

/** The record as it is now; where none can be written, as this process has it in mind. */
startRecord recall(const Decision& last) {
    const startRecord written = startRecord::load();
    const bool isLost = last.isNoted && written.decided != last.record.decided;
    return isLost ? last.record : written;
}

int startUntilItStays(const Options& options) {
    Watch watched(options.patience);
    startRecord record = startRecord::load();
    for (int n = 0; n < MOST_STARTS; ++n) {
        Decision decision = decide(record);
        note(decision);
        if (decision.program.empty()) {
            return FAILED;
        }
        std::vector<std::string> arguments = decision.mode;
        arguments.insert(arguments.end(), options.arguments.begin(), options.arguments.end());
        const auto isOnTrial = [&decision] {
            return decision.isOnTrial || startRecord::load().trial != startRecord::PROVEN;
        };
        const Watch::End end = watched.follow(decision.program, arguments, isOnTrial);
        std::printf("keldra-start: it ended with status %d\n", end.status);
        if (end.onRequest) {
            return EXIT_SUCCESS;
        }
        record = recall(decision);
        const bool isNew = decision.isOnTrial || !record.updater.is(decision.record.updater);
        if (isNew && end.status != 0 && end.seconds < TOO_SOON_S) { // whatever it has proven before
            record.trial = std::max({record.trial, decision.record.trial, 1});
        }
        if (record.trial == startRecord::PROVEN && !(end.status != 0 && record.coming.isKnown())) {
            return end.status;
        }
        sleep(1);
    }
    return FAILED;
}

} // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app(ABOUT, "keldra-start");
    declare(app, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& stop) {
        if (const int status = app.exit(stop); status == EXIT_SUCCESS) {
            return status;
        } // else the default stays: a panel starts whatever its boot script says
    }
    options.arguments = app.remaining();
    if (options.asksStatus) {
        return showStatus();
    }
    if (options.settles) {
        return settle();
    }
    if (!isAlone()) {
        std::fputs("keldra-start: another one is at work\n", stderr);
        return FAILED;
    }
    return startUntilItStays(options);
}
