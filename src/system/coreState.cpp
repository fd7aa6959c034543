#include "coreState.h"

#include "../lib/ConfigFile.h"
#include "../lib/childProcess.h"
#include "../lib/durable.h"
#include "../lib/functs.h"
#include "packageRules.h"
#include "threadTermination.h"

#include <sstream>
#include <unistd.h>

namespace {

const char* const CONFIG_FILE = "/keldra/config/vx3.cfg";
const char* const UNFINISHED_FILE = "/config/unfinished.modules"; // bus addresses, one a line

} // namespace

void coreState::setUpItems() {
    for (const modules::ROW& row : modules::TABLE) {
        resetInitModule(&module(row), row.resetAfterUpdate);
        module(row).base.id = row.address;
    }
    for (const HOST_ITEM& entry : hostItems()) {
        resetInitBase(entry.item);
    }
}

std::array<coreState::HOST_ITEM, 5> coreState::hostItems() {
    return {{{"kernel", &core.kernel},
             {"rootfs", &core.rootfs},
             {"updater", &core.updater},
             {"gui", &core.gui},
             {"drivers", &core.drivers}}};
}

int coreState::readConfiguration() {
    const ConfigFile config(CONFIG_FILE, "=", "#", "EndConfigFile");
    config.readInto(uartPort, "up_mbus");
    config.readInto(uartBaud, "ub_mbus");
    config.readInto(rootPath, "dir");
    std::uint32_t strict = 0;
    config.readInto(strict, "strict_images");
    strictImages = strict == 1;
    strict = 0;
    config.readInto(strict, "strict_bootloaders");
    strictBootloaders = strict == 1;
    std::string keys;
    if (config.readInto(keys, "trusted_keys")) {
        trustedKeys = keys;
    }
    config.readInto(recorderSize, "recorder_size");
    std::uint32_t all = 0;
    config.readInto(all, "record");
    recordsAll = all == 1;
    // One value for both keys: panels configured with "debug" alone rely on its number as the log's limit.
    std::uint32_t value = 0;
    config.readInto(value, "debug");
    debug = value == 1;
    config.readInto(value, "log_max_size");
    return static_cast<int>(value);
}

void coreState::resetInitModule(MODULE* m, bool resetAfter) {
    m->available = false;
    m->lostCom = false;
    m->mode = 0;
    m->base.hwRev = 0;
    m->base.isAccurate = false;
    m->base.update.resetAfterUpdate = resetAfter;
    m->base.id = 0;
    m->base.update.items.clear();
}

void coreState::resetInitBase(BASE_ITEM* b) {
    b->hwRev = 0;
    b->id = 0;
    b->isAccurate = false;
    b->update.resetAfterUpdate = false;
    b->update.items.clear();
}

bool coreState::runsWell(const std::string& command, const shared<bool>* unless) const {
    std::string complaint;
    const int status = childProcess::shell(command, unless, complaint);
    if (status != 0 && (unless == nullptr || !*unless)) {
        log->log_item("Exit status " + std::to_string(status) + " of " +
                          command.substr(0, command.find(' ')) + ": " + complaint,
                      logger::LOG_WARNING);
    }
    return status == 0;
}

void coreState::saveRecording(const char* reason) {
    switch (recorder.save(reason)) {
    case busRecorder::SAVED::NOTHING:
        break;
    case busRecorder::SAVED::DONE:
        log->log_item("Bus traffic saved", logger::LOG_NOTICE);
        break;
    case busRecorder::SAVED::FAILED:
        log->log_item("Could not save the bus traffic", logger::LOG_WARNING);
        break;
    }
}

void coreState::loadUnfinished() {
    std::istringstream addresses(functs().getFileContents(rootPath + UNFINISHED_FILE));
    for (unsigned address = 0; addresses >> address;) {
        for (MODULE* each : records) {
            BASE_ITEM& item = each->base;
            item.unfinished = item.unfinished || (address != 0 && item.id == address);
        }
    }
}

void coreState::setUnfinished(BASE_ITEM& item, bool unfinished) {
    item.unfinished = unfinished;
    std::string addresses;
    for (const MODULE* each : records) {
        addresses += each->base.unfinished ? std::to_string(each->base.id) + "\n" : "";
    }
    if (!durable::replaceFile(rootPath + UNFINISHED_FILE, addresses)) {
        log->log_item("Could not note which modules are unfinished", logger::LOG_ERROR);
    }
}

void coreState::clearUpdateItems() {
    fileDigests.clear();
    for (MODULE* each : records) {
        each->base.update.items.clear();
    }
    for (const HOST_ITEM& entry : hostItems()) {
        entry.item->update.items.clear();
    }
}

void coreState::pause(unsigned milliseconds) {
    threadTermination::allowDuring([milliseconds] { return ::usleep(milliseconds * 1000); });
}

void coreState::removeUpdateFiles() {
    dropUnpackedManifest();
    functs f;
    f.rmDir(packageRules::UNPACKED, true, false);
    f.removeFile(packageRules::FETCHED);
    f.removeFile(packageRules::FETCHED + packageRules::DIGEST);
}

void coreState::dropUnpackedManifest() {
    functs().removeFile(packageRules::UNPACKED_MANIFEST);
    functs().removeFile(packageRules::FETCHED + packageRules::SIGNATURE);
}
