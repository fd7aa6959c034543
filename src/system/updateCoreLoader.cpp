#include "updateCoreLoader.h"

#include "../lib/childProcess.h"
#include "../lib/durable.h"
#include "../lib/filePosition.h"
#include "../lib/functs.h"
#include "../lib/sha1.h"
#include "ProcBusThread.h"
#include "actions/serialBootload.h"
#include "coreState.h"
#include "packageRules.h"
#include "parsers/jsonText.h"
#include "parsers/updateParser.h"
#include "runForecast.h"
#include "termination.h"

#include <cstdio>
#include <iostream>
#include <stdexcept>
#include <sys/mount.h>
#include <vector>

using namespace packageRules;

namespace {

const char* const STICK = "/mnt/usb";
const std::string STICK_PACKAGE = "/mnt/usb/" + ARCHIVE;

constexpr int NO_PACKAGE = 2;

/** What touches the stick: done in a process of its own, since a stick may be slow or not answer at all. */
int copyFromStick() {
    functs f;
    if (!f.isFile(STICK_PACKAGE)) {
        return NO_PACKAGE;
    }
    f.copyFile(STICK_PACKAGE, FETCHED, true); // a copy that failed does not validate
    f.copyFile(STICK_PACKAGE + DIGEST, FETCHED + DIGEST, false);
    return 0;
}

} // namespace

void updateCoreLoad::begin() {
    if (atWork && !isFinished()) {
        return;
    }
    wait(); // start() on a thread that still ends would be ignored
    atWork = true;
    start();
}

void updateCoreLoad::run() {
    termination::forbid();
    unsigned char mode = 1;
    if (loadPackage()) {
        core->log->log_item("Updater is ready to update", logger::LOG_ERROR); // so that every filter shows it
        emit sendStatusMessage("Updater file loaded.");
        core->loaded = true;
        mode = core->resumeUpdate ? 2 : 0;
    }
    atWork = false; // who hears of it may begin anew at once
    emit sendUpdatePackageLoaded(mode);
}

bool updateCoreLoad::loadPackage() {
    functs f;
    emit sendStatusMessage("Loading Update File....");
    if (!switchToUpdateMode()) {
        return false;
    }
    awaitStartMode();
    const bool resume = core->resumeUpdate && f.isFile(UNPACKED_MANIFEST) && !f.isFile(UNPACKING);
    const auto goOn = [this] { return !core->cancel; }; // the program may be closed meanwhile
    if (!resume && !(goOn() && fetchPackage() && goOn() && unpackPackage())) {
        if (core->cancel) {
            core->removeUpdateFiles(); // part of a package is nothing to go on with
        }
        return false;
    }
    return goOn() && readManifest() && goOn() && prepareSystem();
}

/** Says what failed, to the operator and to the log; of what was ended on purpose there is nothing to say. */
bool updateCoreLoad::fail(const char* shown, const char* logged) {
    if (core->cancel) {
        return false;
    }
    emit sendStatusMessage(shown);
    core->log->log_item(logged, logger::LOG_ERROR);
    return false;
}

bool updateCoreLoad::switchToUpdateMode() {
    serialBootload sender(core);
    if (sender.sendSystemCommand(busProtocol::CONTROL_MODULE, busProtocol::ENTER_UPDATE_MODE)) {
        return true;
    }
    return fail("Could not switch system to update mode", "Could not switch system to update mode");
}

/** Waits until the program entry has read its mode argument, about as long as the window takes to appear. */
void updateCoreLoad::awaitStartMode() {
    while (core->startModePending && !core->cancel) {
        core->pause(1);
    }
}

/** True when the work succeeds, unless the program is closed meanwhile: it may take long. */
bool updateCoreLoad::finishes(const std::function<bool()>& work) {
    return childProcess::run([&work] { return work() ? 0 : 1; }, &core->cancel) == 0;
}

bool updateCoreLoad::fetchPackage() {
    std::cout << "Loading new file" << std::endl;
    core->dropUnpackedManifest();
    childProcess::shell("rm -r /keldra/tmp/keldra_update*", &core->cancel); // there may be nothing to remove
    if (childProcess::run(copyFromStick, &core->cancel) == NO_PACKAGE) {
        emit sendStatusMessage("No updater file or USB not connected");
        core->log->log_item("No update file found", logger::LOG_WARNING);
        return false;
    }
    const auto isValid = [this] { return validateFile(FETCHED); };
    return finishes(isValid) || fail("Updater file corrupted!", "Update file corrupted");
}

bool updateCoreLoad::unpackPackage() {
    functs f;
    const shared<bool>* const unless = &core->cancel;
    if (f.isDirectory(UNPACKED) && childProcess::shell("rm -r /keldra/tmp/keldra_update", unless) != 0) {
        return fail("Internal Error", "Could not flush temp directory");
    }
    const auto flush = [] { return durable::flushAll(UNPACKED); };
    if (!f.makeDir(UNPACKED) || !f.writeFileContents(UNPACKING, "") || !finishes(flush)) {
        return fail("Internal Error", "Could not create temp directory");
    }
    if (childProcess::shell("tar -C /keldra/tmp/keldra_update/ -zxpf /keldra/tmp/keldra_update.tgz",
                            unless) != 0 ||
        !finishes(flush)) {
        return fail("Internal Error", "Could not untar archieve");
    }
    f.removeFile(UNPACKING);
    return true;
}

bool updateCoreLoad::readManifest() {
    if (!validateFile(UNPACKED_MANIFEST)) {
        return fail("Updater file corrupted!", "Updater manifest is corrupt");
    }
    const std::string text = functs().getFileContents(UNPACKED_MANIFEST);
    if (isBlank(text)) {
        return fail("Internal Error", "Config file is blank");
    }
    core->clearUpdateItems();
    updateParser parser(core);
    return jsonText::parse(text, parser) || fail("Internal Error", "Config file is invalid");
}

bool updateCoreLoad::prepareSystem() {
    if (childProcess::shell("mount -o remount rw /") != 0) {
        return fail("Internal Error", "Could not remount system");
    }
    // The stick may be pulled now; one that is not mounted is no fault.
    childProcess::run([] { return umount(STICK); }, &core->cancel);
    core->comBus->reload_uart();
    return true;
}

bool updateCoreLoad::validateFile(std::string file) {
    functs f;
    if (!f.isFile(file)) {
        return false;
    }
    try {
        return sha1::ofFile(file) == digestIn(f.getFileContents(file + DIGEST));
    } catch (const std::runtime_error&) {
        return false; // unreadable: not proven intact
    }
}

std::string updateCoreLoad::progressText() {
    const char* title = "Copying the package";
    const std::string* file = &STICK_PACKAGE;
    std::uint64_t position = filePosition::of(STICK_PACKAGE);
    if (position == 0) {
        file = &FETCHED;
        position = filePosition::of(FETCHED);
        title = functs().isFile(UNPACKING) ? "Unpacking the package" : "Checking the package";
    }
    if (position == 0) {
        return "Loading the package";
    }
    char text[80];
    std::snprintf(text, sizeof text, "%s · %.1f of %.1f MB", title, static_cast<double>(position) / 1e6,
                  static_cast<double>(runForecast::bytesOf(*file)) / 1e6);
    return text;
}
