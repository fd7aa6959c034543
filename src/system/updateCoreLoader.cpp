#include "updateCoreLoader.h"

#include "../lib/childProcess.h"
#include "../lib/durable.h"
#include "../lib/filePosition.h"
#include "../lib/functs.h"
#include "../lib/plainFile.h"
#include "../lib/sha1.h"
#include "ProcBusThread.h"
#include "actions/serialBootload.h"
#include "coreState.h"
#include "packageRules.h"
#include "packageTrust.h"
#include "parsers/jsonText.h"
#include "parsers/updateParser.h"
#include "stepDurations.h"
#include "stickEvidence.h"
#include "threadTermination.h"
#include "usbStick.h"

#include <cstdio>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <vector>

using namespace packageRules;

void updateCoreLoad::begin() {
    if (atWork && !isFinished()) {
        return;
    }
    wait(); // start() on a thread that still ends would be ignored
    atWork = true;
    start();
}

void updateCoreLoad::run() {
    threadTermination::forbid();
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
    emit sendStatusMessage("Loading Update File....");
    stickEvidence(core).copy(); // first of all: it is wanted most where the rest fails
    if (!switchToUpdateMode()) {
        return false;
    }
    awaitStartMode();
    const bool resume = core->resumeUpdate && mayResume();
    const auto goOn = [this] { return !core->cancel; };                 // the program may be closed meanwhile
    const auto haveTree = [&] { return resume && !core->trustedKeys; }; // else no tree is taken by its looks
    const auto haveArchive = [&] { return goOn() && (resume || fetchPackage()) && goOn() && isTrusted(); };
    if (!haveTree() && !(haveArchive() && goOn() && unpackPackage())) {
        if (core->cancel) {
            core->removeUpdateFiles(); // part of a package is nothing to go on with
        }
        return false;
    }
    return goOn() && readManifest() && goOn() && prepareSystem();
}

/** Says what failed, to the operator and to the log; of what was ended on purpose there is nothing to say. */
bool updateCoreLoad::fail(const char* shown, const std::string& logged) {
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
    fail("Could not switch system to update mode", "Could not switch system to update mode");
    if (!core->cancel) {
        core->saveRecording("failed");
    }
    return false;
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

/**
 * True when an earlier start has left what this one can go on with: the whole tree, or the signed archive.
 */
bool updateCoreLoad::mayResume() {
    functs f;
    if (!core->trustedKeys) {
        return f.isFile(UNPACKED_MANIFEST) && !f.isFile(UNPACKING);
    }
    return f.isFile(FETCHED + SIGNATURE) && finishes([this] { return validateFile(FETCHED); });
}

/** Only then is anything of the archive used. */
bool updateCoreLoad::isTrusted() {
    if (!core->trustedKeys) {
        return true;
    }
    const auto worker = [this](const std::function<bool()>& work) { return finishes(work); };
    const packageTrust::VERDICT verdict = packageTrust::judge(FETCHED, *core->trustedKeys, worker);
    if (!verdict.whyNot.empty()) {
        core->dropUnpackedManifest(); // nothing of it is resumed, whatever the configuration says by then
        return fail("Updater file not trusted!", verdict.whyNot);
    }
    core->log->log_item("Package signed by key " + verdict.key + ": " + verdict.comment, logger::LOG_NOTICE);
    return true;
}

bool updateCoreLoad::fetchPackage() {
    std::cout << "Loading new file" << std::endl;
    core->dropUnpackedManifest();
    childProcess::shell("rm -r /keldra/tmp/keldra_update*", &core->cancel); // there may be nothing to remove
    if (childProcess::run(usbStick::copyPackage, &core->cancel) == usbStick::NO_PACKAGE) {
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
    if (f.isDirectory(UNPACKED) && !core->runsWell("rm -r /keldra/tmp/keldra_update", unless)) {
        return fail("Internal Error", "Could not flush temp directory");
    }
    const auto flush = [] { return durable::flushAll(UNPACKED); };
    if (!f.makeDir(UNPACKED) || !f.writeFileContents(UNPACKING, "") || !finishes(flush)) {
        return fail("Internal Error", "Could not create temp directory");
    }
    if (!core->runsWell("tar -C /keldra/tmp/keldra_update/ -zxpf /keldra/tmp/keldra_update.tgz", unless) ||
        !finishes(flush)) {
        return fail("Internal Error", "Could not untar archieve");
    }
    f.removeFile(UNPACKING);
    return true;
}

bool updateCoreLoad::readManifest() {
    const auto text = plainFile::contents(UNPACKED_MANIFEST, UNPACKED, LONGEST_MANIFEST);
    if (!text || !validateFile(UNPACKED_MANIFEST)) {
        return fail("Updater file corrupted!", "Updater manifest is corrupt");
    }
    if (isBlank(*text)) {
        return fail("Internal Error", "Config file is blank");
    }
    core->clearUpdateItems();
    updateParser parser(core);
    return jsonText::parse(*text, parser) || fail("Internal Error", "Config file is invalid");
}

bool updateCoreLoad::prepareSystem() {
    if (!core->runsWell("mount -o remount rw /")) {
        return fail("Internal Error", "Could not remount system");
    }
    // The stick may be pulled now; one that is not mounted is no fault.
    childProcess::run(usbStick::unmount, &core->cancel);
    core->comBus->reload_uart();
    return true;
}

bool updateCoreLoad::validateFile(std::string file) {
    const std::string tree = std::filesystem::path(file).parent_path();
    const auto digest = plainFile::contents(file + DIGEST, tree, LONGEST_DIGEST);
    if (!digest || !plainFile(file, tree).isOpen()) {
        return false;
    }
    try {
        return sha1::ofFile(file) == digestIn(*digest);
    } catch (const std::runtime_error&) {
        return false; // unreadable: not proven intact
    }
}

std::string updateCoreLoad::progressText() {
    const char* title = "Copying the package";
    const std::string* file = &usbStick::PACKAGE;
    std::uint64_t position = filePosition::of(usbStick::PACKAGE);
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
                  static_cast<double>(stepDurations::bytesOf(*file)) / 1e6);
    return text;
}
