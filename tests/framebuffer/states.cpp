// Draws the window in each of its states, as a run would bring it there, and keeps what the framebuffer holds
// then. usage: window-states FOLDER
#include "gui/UpdaterWindow.h"
#include "system/updateCore.h"

#include <QApplication>
#include <QThread>
#include <filesystem>

namespace {

constexpr int DRAWING_TURNS = 30; // of 10 ms, or as long as a slow machine takes for each

class States {
public:
    States(QApplication& application, std::string target) : window_(&application, &core_), folder_(target) {
        QObject::disconnect(&window_, nullptr, &core_, nullptr); // nothing runs
        QObject::connect(&window_, &UpdaterWindow::sendCancelUpdate, [this] {
            keep("canceling");
            say({"Canceled"});
        });
        window_.showFullScreen();
        QApplication::setOverrideCursor(Qt::BlankCursor);
    }

    void drawAll();

private:
    void say(std::initializer_list<const char*> texts) {
        for (const char* text : texts) {
            window_.statusMessage(text);
        }
    }
    void keep(const std::string& name) {
        for (int turn = 0; turn < DRAWING_TURNS; ++turn) {
            QCoreApplication::processEvents();
            QThread::msleep(10);
        }
        std::filesystem::copy_file("/dev/fb0", folder_ + "/" + name + ".raw");
    }
    void run() {
        window_.startButtonAction();
        core_.running = true;
        say({"Starting Update...", "Checking Secondary #3 for update",
             "Updating Secondary #3: 1.2.3 -> 1.3.2"});
        window_.updateProgress(66.0);
        window_.showProgress("Secondary #3 · page 57 of 107 · 0:41 · about 4:30 min left in all", true);
    }

    updateCore core_;
    UpdaterWindow window_;
    const std::string folder_;
};

void States::drawAll() {
    say({"Loading Update File...."});
    core_.progress.check("Secondary #3");
    window_.showProgress("Unpacking the package · 4.2 of 7.0 MB", false);
    keep("loading");
    say({"Updater file loaded."});
    core_.loaded = true;
    window_.updatePackageLoaded(0);
    keep("ready");
    run();
    keep("running");
    window_.cancelButtonAction();
    keep("canceled");
    run();
    core_.log->log_item("CAN: Page retry count exceeded.  Exiting.", logger::LOG_ERROR);
    window_.updateFinished(false);
    keep("failed");
    run();
    window_.updateFinished(true);
    keep("succeeded");
    window_.close();
    window_.showLastPicture();
    keep("stopping");
}

} // namespace

int main(int argc, char** argv) {
    QApplication application(argc, argv);
    States(application, argv[1]).drawAll();
}
