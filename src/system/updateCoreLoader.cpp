#include "updateCoreLoader.h"

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
#include <cstdlib>
#include <iostream>
#include <stdexcept>
#include <sys/mount.h>
#include <vector>

using namespace packageRules;

namespace {

const char* const STICK = "/mnt/usb";
const std::string STICK_PACKAGE = "/mnt/usb/" + ARCHIVE;

/**
 * Stands while the package is being unpacked. When the panel loses power meanwhile, the manifest may be there
 * already and the rest not: such a tree is never resumed. The name is among those that the next load removes.
 */
const std::string UNPACKING = "/keldra/tmp/keldra_update.unpacking";

} // namespace

void updateCoreLoad::run() {
    termination::forbid();
    if (!loadPackage()) {
        emit sendUpdatePackageLoaded(1);
        return;
    }
    core->log->log_item("Updater is ready to update", logger::LOG_ERROR); // so that every filter shows it
    emit sendStatusMessage("Updater file loaded.");
    core->loaded = true;
    emit sendUpdatePackageLoaded(core->resumeUpdate ? 2 : 0);
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
        return false;
    }
    return goOn() && readManifest() && goOn() && prepareSystem();
}

/** Says what failed, to the operator and to the log. */
bool updateCoreLoad::fail(const char* shown, const char* logged) {
    emit sendStatusMessage(shown);
    core->log->log_item(logged, logger::LOG_ERROR);
    return false;
}

bool updateCoreLoad::switchToUpdateMode() {
    serialBootload sender(core);
    if (sender.sendSystemCommand(busProtocol::CONTROL_MODULE, busProtocol::ENTER_UPDATE_MODE)) {
        return true;
    }
    return !core->cancel &&
           fail("Could not switch system to update mode", "Could not switch system to update mode");
}

/** Waits until the program entry has read its mode argument, about as long as the window takes to appear. */
void updateCoreLoad::awaitStartMode() {
    while (core->startModePending && !core->cancel) {
        core->pause(1);
    }
}

bool updateCoreLoad::fetchPackage() {
    functs f;
    std::cout << "Loading new file" << std::endl;
    core->dropUnpackedManifest();
    // Its result does not matter: there may be nothing to remove.
    [[maybe_unused]] const int removed = std::system("rm -r /keldra/tmp/keldra_update*");
    if (!f.isFile(STICK_PACKAGE)) {
        emit sendStatusMessage("No updater file or USB not connected");
        core->log->log_item("No update file found", logger::LOG_WARNING);
        return false;
    }
    f.copyFile(STICK_PACKAGE, FETCHED, true); // a copy that failed does not validate
    f.copyFile(STICK_PACKAGE + DIGEST, FETCHED + DIGEST, false);
    return validateFile(FETCHED) || fail("Updater file corrupted!", "Update file corrupted");
}

bool updateCoreLoad::unpackPackage() {
    functs f;
    if (f.isDirectory(UNPACKED) && std::system("rm -r /keldra/tmp/keldra_update") != 0) {
        return fail("Internal Error", "Could not flush temp directory");
    }
    if (!f.makeDir(UNPACKED) || !f.writeFileContents(UNPACKING, "") || !durable::flushAll(UNPACKED)) {
        return fail("Internal Error", "Could not create temp directory");
    }
    if (std::system("tar -C /keldra/tmp/keldra_update/ -zxpf /keldra/tmp/keldra_update.tgz") != 0 ||
        !durable::flushAll(UNPACKED)) {
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
    if (std::system("mount -o remount rw /") != 0) {
        return fail("Internal Error", "Could not remount system");
    }
    umount(STICK); // the stick may be pulled now; one that is not mounted does not matter
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
    bool byCommand = false;
    const char* title = "Copying the package";
    const std::string* file = &STICK_PACKAGE;
    std::uint64_t position = filePosition::of(STICK_PACKAGE);
    if (position == 0) {
        file = &FETCHED;
        position = filePosition::of(FETCHED, &byCommand);
        title = byCommand ? "Unpacking the package" : "Checking the package";
    }
    if (position == 0) {
        return "Loading the package";
    }
    char text[80];
    std::snprintf(text, sizeof text, "%s · %.1f of %.1f MB", title, static_cast<double>(position) / 1e6,
                  static_cast<double>(runForecast::bytesOf(*file)) / 1e6);
    return text;
}
