#include "updateCore.h"

#include "../lib/ConfigFile.h"
#include "../lib/functs.h"
#include "ProcBusThread.h"
#include "actions/serialBootload.h"
#include "termination.h"
#include "updateCoreLoader.h"

#include <iostream>
#include <sstream>
#include <unistd.h>

namespace {

const char* const CONFIG_FILE = "/keldra/config/vx3.cfg";
const char* const UNFINISHED_FILE = "/config/unfinished.modules"; // bus addresses, one a line
constexpr unsigned long CANCEL_WAIT_MS = 2000;
constexpr unsigned long THREAD_END_MS = 100; // from a worker's last signal to its end

constexpr struct {
    updateCore::MODULE updateCore::*module;
    std::uint8_t address;
    bool resetAfterUpdate;
} MODULES[] = {
    {&updateCore::cy1, 0, true},     {&updateCore::cy2, 0, true},  {&updateCore::cy3, 0, true},
    {&updateCore::cy4, 0, true},     // kept in the table, never visited
    {&updateCore::master, 7, false}, // the one that goes on without a restart
    {&updateCore::motor, 8, true},   {&updateCore::ctrl, 2, true}, {&updateCore::s1, 9, true},
    {&updateCore::s2, 10, true},     {&updateCore::s3, 11, true},  {&updateCore::s4, 12, true},
    {&updateCore::mf1, 13, true},    {&updateCore::mf2, 14, true}, {&updateCore::mf3, 15, true},
    {&updateCore::arts, 16, true},
};

/** Ends a worker that has been asked to: by itself within 2 s, else at its next place to be terminated. */
void endWorker(QThread& worker) {
    if (!worker.wait(CANCEL_WAIT_MS)) {
        worker.terminate();
        worker.wait();
    }
}

} // namespace

updateCore::updateCore() {
    setUpItems();
    const int logSize = readConfiguration();
    std::cout << "Init Logger" << std::endl;
    log = std::make_unique<logger>(rootPath + "/logs/", "update.log", logSize, false, true);
    if (debug) {
        log->debugMode();
    }
    if (!loadSystemManifest()) {
        log->log_item("Could not load system manifest...Full update will run", logger::LOG_WARNING);
    }
    loadUnfinished();
    comBus = std::make_unique<ProcBusThread>(this);
    comBus->start(QThread::InheritPriority);
    load = std::make_unique<updateCoreLoad>();
    connect(load.get(), SIGNAL(sendStatusMessage(QString)), this, SLOT(gotStatusMessage(QString)));
    connect(load.get(), SIGNAL(sendUpdatePackageLoaded(unsigned char)), this,
            SLOT(gotLoadDone(unsigned char)));
}

updateCore::~updateCore() {
    endThreads();
    comBus->checkStop();
    log.reset(); // first: saving the log must not wait for the rest
    comBus.reset();
    load.reset();
}

void updateCore::setUpItems() {
    for (const auto& entry : MODULES) {
        resetInitModule(&(this->*entry.module), entry.resetAfterUpdate);
        (this->*entry.module).base.id = entry.address;
    }
    for (const HOST_ITEM& entry : hostItems()) {
        resetInitBase(entry.item);
    }
}

std::array<updateCore::HOST_ITEM, 5> updateCore::hostItems() {
    return {{{"kernel", &core.kernel},
             {"rootfs", &core.rootfs},
             {"updater", &core.updater},
             {"gui", &core.gui},
             {"drivers", &core.drivers}}};
}

/** Returns the log's size limit. */
int updateCore::readConfiguration() {
    const ConfigFile config(CONFIG_FILE, "=", "#", "EndConfigFile");
    config.readInto(uartPort, "up_mbus");
    config.readInto(uartBaud, "ub_mbus");
    config.readInto(rootPath, "dir");
    std::uint32_t strict = 0;
    config.readInto(strict, "strict_images");
    strictImages = strict == 1;
    // One value for both keys: panels configured with "debug" alone rely on its number as the log's limit.
    std::uint32_t value = 0;
    config.readInto(value, "debug");
    debug = value == 1;
    config.readInto(value, "log_max_size");
    return static_cast<int>(value);
}

void updateCore::resetInitModule(MODULE* m, bool resetAfter) {
    m->available = false;
    m->lostCom = false;
    m->mode = 0;
    m->base.hwRev = 0;
    m->base.isAccurate = false;
    m->base.update.resetAfterUpdate = resetAfter;
    m->base.id = 0;
    m->base.update.items.clear();
}

void updateCore::resetInitBase(BASE_ITEM* b) {
    b->hwRev = 0;
    b->id = 0;
    b->isAccurate = false;
    b->update.resetAfterUpdate = false;
    b->update.items.clear();
}

void updateCore::loadUnfinished() {
    std::istringstream addresses(functs().getFileContents(rootPath + UNFINISHED_FILE));
    for (unsigned address = 0; addresses >> address;) {
        for (const auto& entry : MODULES) {
            BASE_ITEM& item = (this->*entry.module).base;
            item.unfinished = item.unfinished || (address != 0 && item.id == address);
        }
    }
}

void updateCore::setUnfinished(BASE_ITEM& item, bool unfinished) {
    item.unfinished = unfinished;
    std::string addresses;
    for (const auto& entry : MODULES) {
        const BASE_ITEM& each = (this->*entry.module).base;
        addresses += each.unfinished ? std::to_string(each.id) + "\n" : "";
    }
    if (!replaceFile(rootPath + UNFINISHED_FILE, addresses)) {
        log->log_item("Could not note which modules are unfinished", logger::LOG_ERROR);
    }
}

void updateCore::clearUpdateItems() {
    for (const auto& entry : MODULES) {
        (this->*entry.module).base.update.items.clear();
    }
    for (const HOST_ITEM& entry : hostItems()) {
        entry.item->update.items.clear();
    }
}

void updateCore::stop() {
    endThreads();
    comBus->sendStop();
    comBus->checkStop();
    if (!saveSystemManifest()) {
        log->log_item("Could not save system manifest", logger::LOG_ERROR);
    }
}

/** Ends the loader and the update thread, should they still run: they use what is torn down next. */
void updateCore::endThreads() {
    cancel = true;
    endWorker(*load);
    endWorker(*this);
    cancel = false; // the halt message is still to be sent
}

void updateCore::sendHaltMsg() {
    serialBootload sender(this);
    log->log_item("Restarting full system", logger::LOG_NOTICE);
    if (resetG1) {
        sender.sendResetG1();
    } else {
        sender.sendSystemCommand(busProtocol::CONTROL_MODULE, busProtocol::RESTART);
    }
}

void updateCore::busResetResponse() {
    const std::lock_guard<std::mutex> held(recordGuard);
    bootloader.hasResponse = false;
    bootloader.page = 0xFFFF;
    bootloader.status = 0;
    bootloader.moduleReported = -1;
    responseFiled.clear();
}

updateCore::REPLY updateCore::reply() {
    const std::lock_guard<std::mutex> held(recordGuard);
    return bootloader;
}

bool updateCore::awaitResponse(unsigned polls) {
    for (unsigned i = 0; i < polls && !bootloader.hasResponse; ++i) {
        if (cancel) {
            return false;
        }
        responseFiled.poll();
    }
    return bootloader.hasResponse;
}

void updateCore::pause(unsigned milliseconds) {
    termination::allowDuring([milliseconds] { return ::usleep(milliseconds * 1000); });
}

void updateCore::removeUpdateFiles() {
    dropUnpackedManifest();
    functs f;
    f.rmDir("/keldra/tmp/keldra_update", true, false);
    f.removeFile("/keldra/tmp/keldra_update.tgz");
    f.removeFile("/keldra/tmp/keldra_update.tgz.sha");
}

void updateCore::dropUnpackedManifest() {
    functs().removeFile("/keldra/tmp/keldra_update/update.manifest");
}

void updateCore::loadConfiguration(bool reload) {
    cancel = false; // of an earlier run: the loader's requests look at it, too
    resumeUpdate = reload;
    load->setCore(this);
    load->wait(THREAD_END_MS); // start() on a thread that still ends would be ignored
    load->start();
}

void updateCore::startUpdate() {
    cancel = false;
    running = true;
    wait(THREAD_END_MS);
    start();
}

void updateCore::cancelUpdate() {
    cancel = true;
    endWorker(*this);
    gotStatusMessage("Canceled");
    emit sendUpdateDone(false);
}

void updateCore::gotStatusMessage(QString msg) {
    log->log_item(msg.toStdString(), logger::LOG_NOTICE);
    emit sendStatusMessage(msg);
}

void updateCore::gotLoadDone(unsigned char mode) {
    emit sendUpdatePackageLoaded(mode);
}
