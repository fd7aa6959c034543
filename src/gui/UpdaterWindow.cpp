#include "UpdaterWindow.h"

#include "../lib/functs.h"
#include "../system/updateCore.h"
#include "version.h"

#include <QApplication>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QPlainTextEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QShowEvent>
#include <QVBoxLayout>
#include <cstdio>
#include <iostream>
#include <string>

namespace {

constexpr int WIDTH = 480; // the panel's pixels
constexpr int HEIGHT = 272;
constexpr int BAND_HEIGHT = 34;
constexpr int PROGRESS_HEIGHT = 30;
constexpr int BUTTON_HEIGHT = 56;
constexpr int COMPLETE = 100;
const char* const STYLE_SHEET = "/keldra/config/style.css";

QFrame* makeBox(QWidget* parent) {
    auto* box = new QFrame(parent);
    box->setObjectName("blkBox");
    return box;
}

QPushButton* makeButton(const char* text, QWidget* parent) {
    auto* button = new QPushButton(text, parent);
    button->setFixedHeight(BUTTON_HEIGHT);
    button->setFocusPolicy(Qt::NoFocus);
    return button;
}

} // namespace

UpdaterWindow::UpdaterWindow(QApplication* application, updateCore* core) : csys(core) {
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
    statusGui = new QPlainTextEdit(body);
    statusGui->setReadOnly(true);
    statusGui->setFocusPolicy(Qt::NoFocus);
    startBtnGui = makeButton("Reload", body);
    startBtnGui->setEnabled(false);
    runAllBtnGui = makeButton("ALL", body);
    runAllBtnGui->setEnabled(false);
    cancelBtnGui = makeButton("Cancel", body);

    auto* bandRow = new QHBoxLayout(band);
    bandRow->setContentsMargins(8, 0, 8, 0);
    bandRow->addWidget(title, 3);
    bandRow->addWidget(version, 2);

    auto* buttons = new QHBoxLayout;
    buttons->setSpacing(8);
    buttons->addWidget(startBtnGui, 2);
    buttons->addWidget(runAllBtnGui, 1);
    buttons->addWidget(cancelBtnGui, 2);

    auto* bodyColumn = new QVBoxLayout(body);
    bodyColumn->setContentsMargins(8, 6, 8, 8);
    bodyColumn->setSpacing(6);
    bodyColumn->addWidget(progressGui);
    bodyColumn->addWidget(statusGui, 1);
    bodyColumn->addLayout(buttons);

    auto* column = new QVBoxLayout(content);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(0);
    column->addWidget(band);
    column->addWidget(body, 1);
}

void UpdaterWindow::connectCore(QApplication* application) {
    connect(startBtnGui, SIGNAL(clicked()), this, SLOT(startButtonAction()));
    connect(runAllBtnGui, SIGNAL(clicked()), this, SLOT(runAllAction()));
    connect(cancelBtnGui, SIGNAL(clicked()), this, SLOT(cancelButtonAction()));
    connect(this, SIGNAL(haltApplication()), application, SLOT(quit()));
    connect(this, SIGNAL(sendLoadConfiguration(bool)), csys, SLOT(loadConfiguration(bool)));
    connect(this, SIGNAL(sendStartUpdate()), csys, SLOT(startUpdate()));
    connect(this, SIGNAL(sendCancelUpdate()), csys, SLOT(cancelUpdate()));
    connect(csys, SIGNAL(sendUpdateDone(bool)), this, SLOT(updateFinished(bool)));
    connect(csys, SIGNAL(sendStatusMessage(QString)), this, SLOT(statusMessage(QString)));
    connect(csys, SIGNAL(incrimentProgressBar(double)), this, SLOT(updateProgress(double)));
    connect(csys, SIGNAL(sendUpdatePackageLoaded(unsigned char)), this,
            SLOT(updatePackageLoaded(unsigned char)));
    connect(csys, SIGNAL(sendReboot()), this, SLOT(rebootSystem()));
}

void UpdaterWindow::showEvent(QShowEvent* event) {
    QMainWindow::showEvent(event);
    if (!event->spontaneous()) { // not when the window system only uncovers the window, in mid-update perhaps
        emit sendLoadConfiguration(false);
    }
}

void UpdaterWindow::statusMessage(QString msg) {
    statusGui->appendPlainText(msg);
}

void UpdaterWindow::updateProgress(double tick) {
    curTick += tick;
    progressGui->setValue(static_cast<int>(curTick));
}

void UpdaterWindow::updatePackageLoaded(unsigned char mode) {
    if (mode == 1) {
        statusGui->appendPlainText("Could not load update package...");
        startBtnGui->setEnabled(true);
        return;
    }
    startBtnGui->setText("Run Update");
    startBtnGui->setEnabled(true);
    runAllBtnGui->setEnabled(true);
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
        startBtnGui->setEnabled(false);
    } else if (csys->success) {
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
    curTick = 0;
    progressGui->setValue(0);
    startBtnGui->setEnabled(false);
    runAllBtnGui->setEnabled(false);
    emit sendStartUpdate();
}

void UpdaterWindow::cancelButtonAction() {
    if (csys->running) {
        emit sendCancelUpdate();
    } else {
        emit haltApplication();
    }
}

void UpdaterWindow::updateFinished(bool status) {
    std::cout << "Update Done" << std::endl;
    startBtnGui->setEnabled(true);
    csys->running = false;
    if (status) {
        progressGui->setValue(COMPLETE);
        statusGui->appendPlainText("Update Succeeded!");
        startBtnGui->setText("Close");
        cancelBtnGui->setEnabled(false);
    } else {
        startBtnGui->setText("Start");
        statusGui->appendPlainText("Update Failed!");
        cancelBtnGui->setEnabled(true);
        runAllBtnGui->setEnabled(true);
    }
}

void UpdaterWindow::rebootSystem() {
    csys->reboot = true;
    emit haltApplication();
}
