// The update run: the part of updateCore that its own thread executes.

#include "ProcBusThread.h"
#include "actions/canBootload.h"
#include "actions/fileUpdate.h"
#include "actions/kernelUpdate.h"
#include "actions/serialBootload.h"
#include "actions/updaterUpdate.h"
#include "startRecord.h"
#include "stepDurations.h"
#include "stickEvidence.h"
#include "threadTermination.h"
#include "updateCore.h"

#include <chrono>
#include <cstdio>

namespace {

constexpr double TICK = 6.0;     // progress of one item, of 100
constexpr int SHOWN_LENGTH = 80; // of a version, which is the text of a file
const char* const UPDATER_DIR = "/usr/bin/";
const char* const SYSTEM_DIR = "/";

std::string shortened(const std::string& text) {
    return QString::fromStdString(text).left(SHOWN_LENGTH).toStdString();
}

class stopwatch {
public:
    double seconds() const {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }

private:
    std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
};

} // namespace

void updateCore::run() {
    threadTermination::forbid();
    progress.start(forecast());
    runItems();
    progress.end();
    if (cancel) {
        saveRecording("canceled");
    }
}

/** What the run will visit, and how long each may take. */
std::vector<runProgress::STEP> updateCore::forecast() {
    std::vector<runProgress::STEP> steps;
    const auto addFiles = [&](const char* name, const BASE_ITEM& item) {
        steps.push_back({name, runProgress::KIND::BYTES, stepDurations::ofHostItem(item, forceUpdate)});
    };
    const auto addModule = [&](const modules::ROW& row, const BASE_ITEM& item) {
        const auto sharesImages = [&row](const modules::ROW& other) {
            return &other != &row && std::string_view(other.item) == row.item;
        };
        const bool isOneOfSeveral = std::ranges::any_of(modules::VISITED, sharesImages);
        steps.push_back({row.shown, runProgress::KIND::PAGES,
                         stepDurations::ofModule(item, isOneOfSeveral, forceUpdate, uartBaud),
                         isOneOfSeveral && !item.isAccurate ? row.item : ""});
    };
    if (!resumeUpdate) {
        addFiles("Updater", core.updater);
    }
    addFiles("Kernel", core.kernel);
    addFiles("Drivers", core.drivers);
    addFiles("GUI", core.gui);
    for (const modules::ROW& row : modules::VISITED) {
        addModule(row, module(row).base);
    }
    return steps;
}

void updateCore::runItems() {
    leftUnfinished = false;
    notInstalled = 0;
    gotStatusMessage("Starting Update...");
    comBus->setBuffSize(receiveSize::RUN);
    comBus->reload_uart();
    gotStatusMessage("Switching System to Bootload Mode...");
    const stopwatch total;
    serialBootload serial(this);
    if (!enterUpdateMode(serial)) {
        finish(false);
        return;
    }
    if (resumeUpdate) {
        emit incrimentProgressBar(TICK); // for the updater, done before the restart
    } else if (!updateUpdater()) {
        return;
    }
    resumeUpdate = false;
    startRecord::noteUnderway(forceUpdate ? startRecord::UNDERWAY::FORCED : startRecord::UNDERWAY::UPDATE);
    if (!updateEverythingElse(serial)) {
        return; // runUpdate has said what there was to say
    }
    if (leftUnfinished) { // everything else is done, but the panel is not as it should be
        finish(false);
        return;
    }
    success = true;
    std::printf("Bootload Total Length: %0.2f\n", total.seconds());
    std::fflush(stdout);
    finish(true);
}

void updateCore::finish(bool status) {
    startRecord::noteUnderway(startRecord::UNDERWAY::NOTHING);
    recorder.mark(status ? "end: succeeded" : "end: failed");
    const std::string missing =
        notInstalled != 0 ? ", but without " + std::to_string(notInstalled) + " of its files" : "";
    log->log_item(status ? "Run ended: succeeded" + missing : "Run ended: failed", logger::LOG_NOTICE);
    if (!cancel && (!status || recordsAll)) { // before it is shown: the power may be cut then
        saveRecording(status ? "succeeded" : "failed");
    }
    stickEvidence(this).noteModules();
    atWork = false; // who hears of it may start the next run at once
    emit sendUpdateDone(status);
}

bool updateCore::enterUpdateMode(serialBootload& sender) {
    if (sender.sendSystemCommand(busProtocol::CONTROL_MODULE, busProtocol::ENTER_UPDATE_MODE)) {
        return true;
    }
    if (!cancel) {
        gotStatusMessage("Could not switch system to update mode");
        log->log_item("Could not switch system to update mode", logger::LOG_ERROR);
    }
    return false;
}

/** First stage. False when the run ends here: the updater was replaced and starts anew, or it failed. */
bool updateCore::updateUpdater() {
    updaterUpdate files(this);
    files.setInstallPath(UPDATER_DIR);
    switch (runUpdate(&files, &core.updater, "Updater", forceUpdate, TICK)) {
    case action::UPERROR:
        std::printf("UPDATE ERROR\n");
        std::fflush(stdout);
        return false;
    case action::GOUPDATE:
        if (recordsAll) {
            saveRecording("restart");
        }
        atWork = false;
        emit sendReboot();
        return false;
    default:
        return true;
    }
}

/** Every item but the updater, in the order that the modules need. False when one of them failed. */
bool updateCore::updateEverythingElse(serialBootload& serial) {
    kernelUpdate kernelWriter(this);
    fileUpdate files(this);
    canBootload can(this, &serial.wire());
    const auto update = [this](action* act, BASE_ITEM* item, const char* name) {
        return runUpdate(act, item, name, forceUpdate, TICK) != action::UPERROR;
    };
    files.setInstallPath(SYSTEM_DIR);
    if (!update(&kernelWriter, &core.kernel, "Kernel") || !update(&files, &core.drivers, "Drivers") ||
        !update(&files, &core.gui, "GUI")) {
        return false;
    }
    for (const modules::ROW& row : modules::VISITED) {
        action* act = &can;
        if (row.bootloader == modules::BOOTLOADER::SERIAL) {
            comBus->setBuffSize(receiveSize::SERIAL_MODULE);
            act = &serial;
        }
        quality.begin();
        const bool goesOn = update(act, &module(row).base, row.shown);
        reportLine(row.shown);
        if (!goesOn) {
            return false;
        }
    }
    return true;
}

/** How the line to a module was: one that only just works is to be noticed before it fails. */
void updateCore::reportLine(const std::string& name) {
    if (quality.wasHeard()) {
        log->log_item("Line to " + name + ": " + quality.text(),
                      quality.isBad() ? logger::LOG_WARNING : logger::LOG_NOTICE);
    }
}

std::uint8_t updateCore::runUpdate(action* act, BASE_ITEM* item, const std::string& name, bool force,
                                   double tick) {
    act->setBase(item);
    progress.check(name);
    const action::STATUS status = act->needsUpdate(force);
    const auto report = [this](const std::string& text) { gotStatusMessage(QString::fromStdString(text)); };
    report("Checking " + name + " for update");
    const bool offersNothing = status == action::GOUPDATE && item->update.items.empty();
    if (item->unfinished && (status == action::NOUPDATE || offersNothing)) {
        report(name + " is half programmed, the package has nothing for it");
        log->log_item("Unfinished module, and nothing in the package for it", logger::LOG_ERROR);
        leftUnfinished = true;
        emit incrimentProgressBar(tick);
        return status;
    }
    switch (status) {
    case action::NOMODULE:
        report(name + " not found");
        break;
    case action::NOUPDATE:
        report(name + " up-to-date");
        break;
    case action::UPERROR:
        break;
    case action::GOUPDATE: {
        const auto& items = item->update.items;
        if (items.empty()) {
            return action::NOMODULE; // a module that the package has nothing for: passed over without a word
        }
        const std::uint8_t revision = act->revision();
        const std::string version = revision < items.size() ? items[revision].version : "";
        report("Updating " + name + ": " + shortened(item->swVersion) + " -> " + shortened(version));
        const stopwatch operation;
        if (!act->run()) {
            finish(false);
            return action::UPERROR;
        }
        std::printf("Length of Operation: %0.2f\n", operation.seconds());
        std::fflush(stdout);
        break;
    }
    }
    emit incrimentProgressBar(tick);
    return status;
}
