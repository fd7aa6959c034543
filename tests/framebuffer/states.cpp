// Draws the window in each of its states, as a run would bring it there, and keeps what the framebuffer holds
// then. usage: window-states FOLDER
#include "gui/UpdaterWindow.h"
#include "system/updateCore.h"

#include <QApplication>
#include <QElapsedTimer>
#include <filesystem>

namespace {

constexpr int DRAWING_MS = 300;

class States {
public:
    States(QApplication& application, std::string target) : window(&application, &core), folder(target) {
        QObject::disconnect(&window, nullptr, &core, nullptr); // nothing runs
        QObject::connect(&window, &UpdaterWindow::sendCancelUpdate, [this] {
            keep("canceling");
            say({"Canceled"});
        });
        window.showFullScreen();
        QApplication::setOverrideCursor(Qt::BlankCursor);
    }

    void drawAll();

private:
    void say(std::initializer_list<const char*> texts) {
        for (const char* text : texts) {
            window.statusMessage(text);
        }
    }
    void keep(const std::string& name) {
        QElapsedTimer timer;
        for (timer.start(); !timer.hasExpired(DRAWING_MS);) {
            QCoreApplication::processEvents();
        }
        std::filesystem::copy_file("/dev/fb0", folder + "/" + name + ".raw");
    }
    void run() {
        window.startButtonAction();
        core.running = true;
        say({"Starting Update...", "Checking Secondary #3 for update",
             "Updating Secondary #3: 1.2.3 -> 1.3.2"});
        window.updateProgress(66.0);
        window.showProgress("Secondary #3 · page 57 of 107 · 0:41 · about 4:30 min left in all", true);
    }

    updateCore core;
    UpdaterWindow window;
    const std::string folder;
};

void States::drawAll() {
    say({"Loading Update File...."});
    core.progress.check("Secondary #3");
    window.showProgress("Unpacking the package · 4.2 of 7.0 MB", false);
    keep("loading");
    say({"Updater file loaded."});
    core.loaded = true;
    window.updatePackageLoaded(0);
    keep("ready");
    run();
    keep("running");
    window.cancelButtonAction();
    keep("canceled");
    run();
    core.log->log_item("CAN: Page retry count exceeded.  Exiting.", logger::LOG_ERROR);
    window.updateFinished(false);
    keep("failed");
    run();
    window.updateFinished(true);
    keep("succeeded");
    window.close();
    window.showLastPicture();
    keep("stopping");
}

} // namespace

int main(int argc, char** argv) {
    QApplication application(argc, argv);
    States(application, argv[1]).drawAll();
}
