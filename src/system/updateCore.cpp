#include "updateCore.h"

#include "ProcBusThread.h"
#include "actions/serialBootload.h"
#include "startRecord.h"
#include "updateCoreLoader.h"
#include "version.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <iostream>

namespace {

constexpr int BEAT_MS = 500;
constexpr unsigned long CANCEL_WAIT_MS = 2000;

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
    recorder.begin(recorderSize, rootPath + "/logs/bus.trace",
                   "updater=" KELDRA_VERSION " baud=" + std::to_string(uartBaud));
    comBus = std::make_unique<ProcBusThread>(this);
    comBus->start(QThread::InheritPriority);
    load = std::make_unique<updateCoreLoad>();
    connect(load.get(), &updateCoreLoad::sendStatusMessage, this, &updateCore::gotStatusMessage);
    connect(load.get(), &updateCoreLoad::sendUpdatePackageLoaded, this, &updateCore::gotLoadDone);
    connect(&progressTimer, &QTimer::timeout, this, &updateCore::beat);
}

updateCore::~updateCore() {
    endThreads();
    comBus->checkStop();
    log.reset(); // first: saving the log must not wait for the rest
    comBus.reset();
    load.reset();
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

void updateCore::loadConfiguration(bool reload) {
    cancel = false; // of an earlier run: the loader's requests look at it, too
    log->forgetLastError();
    resumeUpdate = reload;
    load->setCore(this);
    load->begin();
    progressTimer.start(BEAT_MS);
}

void updateCore::startUpdate() {
    cancel = false;
    running = true;
    log->forgetLastError();
    if (!atWork || isFinished()) {
        wait(); // start() on a thread that still ends would be ignored
        atWork = true;
        start();
    }
    progressTimer.start(BEAT_MS);
}

/** Tells how far the run or the loader is, until neither goes on. */
void updateCore::beat() {
    const runProgress::STATE state = progress.state();
    if (isRunning()) {
        if (debug && !state.text.empty()) {
            std::cout << "Progress: " << state.text << std::endl;
        }
        emit sendProgress(QString::fromStdString(state.text), state.isWriting);
    } else if (load->isRunning()) {
        emit sendProgress(QString::fromStdString(load->progressText()), false);
    } else {
        progressTimer.stop();
    }
}

void updateCore::cancelUpdate() {
    cancel = true;
    awaitEnd();
    startRecord::noteUnderway(startRecord::UNDERWAY::NOTHING);
    success = false; // also of a run that had come to its end when it was cancelled
    gotStatusMessage("Canceled");
    saveRecording("canceled");
    emit sendUpdateDone(false);
}

/**
 * endWorker() of the update thread, with the main thread's events going on: what the run said before its end
 * arrives before its end is told, and the window stays alive for as long as a command of it takes.
 */
void updateCore::awaitEnd() {
    QEventLoop loop;
    connect(this, &QThread::finished, &loop, &QEventLoop::quit);
    QTimer::singleShot(CANCEL_WAIT_MS, &loop, [this] { terminate(); });
    if (QCoreApplication::instance() != nullptr && isRunning()) {
        loop.exec(); // ends early when the application does
    }
    endWorker(*this);
    QCoreApplication::sendPostedEvents(nullptr,
                                       QEvent::MetaCall); // of a run that ended before the loop began
}

void updateCore::gotStatusMessage(QString msg) {
    recorder.mark(msg.toStdString());
    log->log_item(msg.toStdString(), logger::LOG_NOTICE);
    emit sendStatusMessage(msg);
}

void updateCore::gotLoadDone(unsigned char mode) {
    emit sendUpdatePackageLoaded(mode);
}
