#include "UpdaterWindow.h"

#include "../lib/functs.h"
#include "../system/advice.h"
#include "../system/updateCore.h"
#include "heartBeat.h"
#include "statusLog.h"
#include "tapButton.h"
#include "version.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QShowEvent>
#include <QStyle>
#include <QVBoxLayout>
#include <QWindow>
#include <cstdio>
#include <iostream>
#include <string>

namespace {

constexpr int WIDTH = 480; // the panel's pixels
constexpr int HEIGHT = 272;
constexpr int BAND_HEIGHT = 34;
constexpr int PROGRESS_HEIGHT = 26;
constexpr int MARGIN = 8;
constexpr int ROW_HEIGHT = 18;
constexpr int ROWS = 2;      // of the line; what a run shows takes no more
constexpr int MOST_ROWS = 3; // behind a failure
constexpr int BUTTON_HEIGHT = 56;
constexpr int PICTURE_MS = 500; // at most, for the window system to show a window
const char* const BELOW = "\n\n";
const char* const KEEP_POWER = "Do not remove power.";
constexpr int COMPLETE = 100;
const char* const STYLE_SHEET = "/keldra/config/style.css";

QFrame* makeBox(QWidget* parent) {
    auto* box = new QFrame(parent);
    box->setObjectName("blkBox");
    return box;
}

tapButton* makeButton(const char* text, const heartBeat& heart, QWidget* parent) {
    auto* button = new tapButton(text, heart, parent);
    button->setFixedHeight(BUTTON_HEIGHT);
    button->setFocusPolicy(Qt::NoFocus);
    return button;
}

QLabel* makeLine(QWidget* parent) {
    auto* line = new QLabel(parent);
    line->setObjectName("line");
    line->setTextFormat(Qt::PlainText);
    line->setAlignment(Qt::AlignLeft | Qt::AlignTop);
    line->setWordWrap(true);
    line->setFixedHeight(ROWS * ROW_HEIGHT);
    line->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Fixed);
    return line;
}

} // namespace

UpdaterWindow::UpdaterWindow(QApplication* application, updateCore* core)
    : heart(new heartBeat(this)), csys(core) {
    std::cout << "Init STD Win Attributes & CSS" << std::endl;
    setFixedSize(WIDTH, HEIGHT);
    setWindowFlags(Qt::Window | Qt::FramelessWindowHint);
    applyStyle(application);
    buildWidgets();
    connectCore(application);
}

void UpdaterWindow::applyStyle(QApplication* application) {
    const std::string style = functs().getFileContents(STYLE_SHEET);
    if (style.empty()) {
        std::cout << "Could not load CSS file" << std::endl;
        return;
    }
    application->setStyleSheet(QString::fromStdString(style));
}

void UpdaterWindow::buildWidgets() {
    auto* content = new QWidget(this);
    setCentralWidget(content);

    QFrame* band = makeBox(content);
    band->setFixedHeight(BAND_HEIGHT);
    auto* title = new QLabel("Keldra+ Updater", band);
    title->setObjectName("header2");
    title->setAlignment(Qt::AlignCenter);
    char versionText[32];
    std::snprintf(versionText, sizeof versionText, "Version: %s", KELDRA_VERSION);
    auto* version = new QLabel(versionText, band);
    version->setAlignment(Qt::AlignCenter);

    QFrame* body = makeBox(content);
    progressGui = new QProgressBar(body);
    progressGui->setFixedHeight(PROGRESS_HEIGHT);
    progressGui->setValue(0);
    lineGui = makeLine(body);
    statusGui = new statusLog(body);
    startBtnGui = makeButton("Reload", *heart, body);
    startBtnGui->setEnabled(false);
    runAllBtnGui = makeButton("ALL", *heart, body);
    runAllBtnGui->setEnabled(false);
    cancelBtnGui = makeButton("Cancel", *heart, body);

    auto* bandRow = new QHBoxLayout(band);
    bandRow->setContentsMargins(MARGIN, 0, MARGIN, 0);
    bandRow->addWidget(title, 3);
    bandRow->addWidget(version, 2);

    auto* buttons = new QHBoxLayout;
    buttons->setSpacing(8);
    buttons->addWidget(startBtnGui, 2);
    buttons->addWidget(runAllBtnGui, 1);
    buttons->addWidget(cancelBtnGui, 2);

    auto* bodyColumn = new QVBoxLayout(body);
    bodyColumn->setContentsMargins(MARGIN, 6, MARGIN, MARGIN);
    bodyColumn->setSpacing(6);
    bodyColumn->addWidget(progressGui);
    bodyColumn->addWidget(lineGui);
    bodyColumn->addWidget(statusGui, 1);
    bodyColumn->addLayout(buttons);

    auto* column = new QVBoxLayout(content);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(0);
    column->addWidget(band);
    column->addWidget(body, 1);
}

void UpdaterWindow::connectCore(QApplication* application) {
    connect(startBtnGui, &QPushButton::clicked, this, &UpdaterWindow::startButtonAction);
    connect(runAllBtnGui, &QPushButton::clicked, this, &UpdaterWindow::runAllAction);
    connect(cancelBtnGui, &QPushButton::clicked, this, &UpdaterWindow::cancelButtonAction);
    connect(this, &UpdaterWindow::haltApplication, application, &QApplication::quit);
    connect(application, &QApplication::aboutToQuit, this, &UpdaterWindow::showLastPicture);
    connect(this, &UpdaterWindow::sendLoadConfiguration, csys, &updateCore::loadConfiguration);
    connect(this, &UpdaterWindow::sendStartUpdate, csys, &updateCore::startUpdate);
    connect(this, &UpdaterWindow::sendCancelUpdate, csys, &updateCore::cancelUpdate);
    connect(csys, &updateCore::sendUpdateDone, this, &UpdaterWindow::updateFinished);
    connect(csys, &updateCore::sendStatusMessage, this, &UpdaterWindow::statusMessage);
    connect(csys, &updateCore::incrimentProgressBar, this, &UpdaterWindow::updateProgress);
    connect(csys, &updateCore::sendUpdatePackageLoaded, this, &UpdaterWindow::updatePackageLoaded);
    connect(csys, &updateCore::sendProgress, this, &UpdaterWindow::showProgress);
    connect(csys, &updateCore::sendReboot, this, &UpdaterWindow::rebootSystem);
}

void UpdaterWindow::showEvent(QShowEvent* event) {
    QMainWindow::showEvent(event);
    if (!event->spontaneous()) { // not when the window system only uncovers the window, in mid-update perhaps
        emit sendLoadConfiguration(false);
    }
}

void UpdaterWindow::statusMessage(QString msg) {
    appendLine(msg);
    lastShown = msg;
    isInternal = msg == "Internal Error" || (isInternal && !msg.startsWith("Loading"));
}

/** With `debug`, standard output tells what was shown, too. */
void UpdaterWindow::appendLine(const QString& text) {
    statusGui->appendPlainText(text);
    if (csys->debug) {
        std::cout << "Shown: " + text.toStdString() + "\n" << std::flush;
    }
}

void UpdaterWindow::updateProgress(double tick) {
    curTick += tick;
    progressGui->setValue(static_cast<int>(curTick));
}

void UpdaterWindow::updatePackageLoaded(unsigned char mode) {
    if (mode == 1) {
        appendLine("Could not load update package...");
        startBtnGui->become(true);
        showLoadFailure();
        return;
    }
    if (reminder.isEmpty()) {
        showLine("Ready. Run Update installs what is new, ALL everything.", "Cancel halts the panel.");
    } else {
        showLine(reminder, "", true);
    }
    startBtnGui->become("Run Update", true);
    runAllBtnGui->become(true);
    if (mode == 2) {
        updateStart();
    }
}

void UpdaterWindow::updateStart() {
    if (csys->loaded && !csys->running) {
        startButtonAction();
    }
}

void UpdaterWindow::startButtonAction() {
    statusGui->clear();
    if (!csys->loaded) {
        emit sendLoadConfiguration(false);
        startBtnGui->become(false);
    } else if (csys->success) {
        showLine("Shutting down.", KEEP_POWER, true);
        lineGui->repaint();
        csys->removeUpdateFiles();
        emit haltApplication();
    } else {
        if (!csys->resumeUpdate) {
            csys->forceUpdate = false; // left over from "ALL"
        }
        beginUpdate();
    }
}

void UpdaterWindow::runAllAction() {
    if (csys->loaded) {
        csys->forceUpdate = true;
        beginUpdate();
    }
}

void UpdaterWindow::beginUpdate() {
    reminder.clear();
    curTick = 0;
    progressGui->setValue(0);
    startBtnGui->become(false);
    runAllBtnGui->become(false);
    cancelBtnGui->become(true); // from now on it ends the run, and no longer halts the panel
    emit sendStartUpdate();
}

void UpdaterWindow::cancelButtonAction() {
    const bool wasRunning = csys->running;
    QCoreApplication::sendPostedEvents(this, QEvent::MetaCall); // the run may have told its end already
    if (wasRunning != csys->running || canceling) {
        return;
    }
    if (wasRunning) {
        cancelRun();
    } else {
        emit haltApplication();
    }
}

void UpdaterWindow::endRun() {
    QCoreApplication::sendPostedEvents(this, QEvent::MetaCall); // the run may have told its end already
    if (csys->running && !canceling) {
        cancelRun();
    }
}

/** The core waits for the run's end inside the signal, with the events of the window going on. */
void UpdaterWindow::cancelRun() {
    canceling = true;
    startBtnGui->become(false);
    runAllBtnGui->become(false);
    cancelBtnGui->become(false);
    showLine("Canceling...", KEEP_POWER, true);
    emit sendCancelUpdate();
    canceling = false;
    conclude(false);
}

void UpdaterWindow::updateFinished(bool status) {
    if (!canceling) {
        conclude(status);
    }
}

/** The one verdict on a run. */
void UpdaterWindow::conclude(bool status) {
    std::cout << "Update Done" << std::endl;
    csys->running = false;
    if (status) {
        progressGui->setValue(COMPLETE);
        appendLine("Update Succeeded!");
        startBtnGui->become("Close", true);
        cancelBtnGui->become(false);
    } else {
        startBtnGui->become("Start", true);
        appendLine("Update Failed!");
        cancelBtnGui->become(true);
        runAllBtnGui->become(true);
    }
    showVerdict(status);
    statusGui->showEnd();
}

void UpdaterWindow::rebootSystem() {
    if (!canceling) {
        csys->reboot = true;
        emit haltApplication();
    }
}

/** The verdict on what has ended meanwhile stays. */
void UpdaterWindow::showProgress(QString line, bool writing) {
    if (!canceling && (csys->running || !startBtnGui->isEnabled())) {
        showLine(line, writing ? KEEP_POWER : "", writing);
    }
}

/** What to do about the log's last error, or else about what was shown last. */
QString UpdaterWindow::remedy() const {
    const std::string known = advice::about(csys->log->lastError());
    return QString::fromStdString(known.empty() ? advice::about(lastShown.toStdString()) : known);
}

/** The one text for several reasons is followed by which it was, as far as there is room for it. */
QString UpdaterWindow::whyNotLoaded() const {
    const QString todo = remedy();
    const std::string error = csys->log->lastError();
    if (!reminder.isEmpty() || !isInternal || error.empty()) {
        return reminder.isEmpty() ? todo : reminder;
    }
    return cutToFit(QString::fromStdString(error), ": " + todo) + ": " + todo;
}

void UpdaterWindow::showLoadFailure() {
    // What was unpacked before the restart goes when loading begins anew, and the stick is not mounted any
    // more.
    const bool isLost = csys->resumeUpdate && !csys->log->lastError().empty();
    showLine(whyNotLoaded(), isLost ? "Plug in the stick again, then press Reload." : "Then press Reload.",
             true);
}

void UpdaterWindow::showVerdict(bool status) {
    if (status && csys->notInstalled != 0) {
        showLine("Complete, but some files could not be copied: see the log.",
                 "Press Close: the panel halts.", true);
    } else if (status) {
        showLine("The update is complete.", "Press Close: the panel halts.");
    } else if (lastShown == "Canceled") {
        showLine("Canceled: some of it may be installed.", "Start goes on. Cancel halts the panel.");
    } else {
        const QString name = QString::fromStdString(csys->progress.stepName());
        showLine(name.isEmpty() ? remedy() : name + ": " + remedy(), "", true);
    }
}

void UpdaterWindow::showLastPicture() {
    csys->disconnect(this); // a package that is loaded only now must not start an update
    QCoreApplication::removePostedEvents(this, QEvent::MetaCall);
    auto* picture =
        new QLabel(csys->reboot ? "Restarting the updater." : "Shutting down."); // of the process's end
    picture->setText(picture->text() + BELOW + KEEP_POWER);
    picture->setObjectName("lastPicture");
    picture->setAlignment(Qt::AlignCenter);
    picture->setFixedSize(WIDTH, HEIGHT);
    picture->setWindowFlags(Qt::Window | Qt::FramelessWindowHint);
    picture->showFullScreen();
    QElapsedTimer timer;
    timer.start();
    do { // the event loop has ended: what draws and sends it to the screen is to come before all else
        QCoreApplication::processEvents(QEventLoop::ExcludeUserInputEvents, PICTURE_MS);
    } while (!picture->windowHandle()->isExposed() && !timer.hasExpired(PICTURE_MS));
    picture->repaint();
    QCoreApplication::processEvents(QEventLoop::ExcludeUserInputEvents);
}

bool UpdaterWindow::fits(const QString& text, int rows) const {
    const QRect room(0, 0, WIDTH - 2 * MARGIN, HEIGHT);
    return lineGui->fontMetrics().boundingRect(room, Qt::TextWordWrap, text).height() <= rows * ROW_HEIGHT;
}

/** As much of the text as leaves room for what follows it, and for a row below. */
QString UpdaterWindow::cutToFit(const QString& text, const QString& following) const {
    QString shown = text;
    for (auto kept = text.size(); kept > 0 && !fits(shown + following, MOST_ROWS - 1); --kept) {
        shown = text.left(kept - 1) + "…";
    }
    return shown;
}

/** However long its text, it takes up the same room while a run goes on; behind a failure, a row more. */
void UpdaterWindow::showLine(const QString& text, const QString& advice, bool alarm) {
    const QString whole = advice.isEmpty() ? text : text + '\n' + advice;
    lineGui->setText(whole);
    lineGui->setFixedHeight((csys->running || fits(whole, ROWS) ? ROWS : MOST_ROWS) * ROW_HEIGHT);
    if (lineGui->property("alarm").toBool() != alarm) {
        lineGui->setProperty("alarm", alarm);
        lineGui->style()->unpolish(lineGui); // so that the style sheet looks at the property again
        lineGui->style()->polish(lineGui);
    }
}
