#include "bench.h"
#include "sim/panel/bed.h"

#include "gui/UpdaterWindow.h"
#include "system/updateCore.h"
#include "system/updateCoreLoader.h"

#include <QApplication>
#include <QEvent>
#include <QTimer>
#include <chrono>
#include <ctime>
#include <fcntl.h>
#include <functional>
#include <stdexcept>
#include <unistd.h>

namespace {

constexpr unsigned BAUD = 115200;

double secondsSince1970() {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

/** Calls `painted` once, when the window has been painted for the first time. */
class PaintWatch : public QObject {
public:
    PaintWatch(QWidget* window, std::function<void()> painted) : call(std::move(painted)) {
        window->installEventFilter(this);
    }
    bool eventFilter(QObject* window, QEvent* event) override {
        if (event->type() == QEvent::Paint) {
            window->removeEventFilter(this);
            QTimer::singleShot(0, this, call); // behind the painting that begins here
        }
        return false;
    }

private:
    std::function<void()> call;
};

void putOntoStick(const std::string& package) {
    panel::shell("cp " + package + "* /mnt/usb");
}

/** A bus on which every module answers, so that no time goes into waiting for one that is not there. */
std::unique_ptr<panel::SimulatedBus> startBus(const std::string& program,
                                              const std::string& configuration = "") {
    panel::configure(panel::SimulatedBus::PORT, BAUD, configuration);
    return std::make_unique<panel::SimulatedBus>(program, bench::inventoryOf("stm32f3"));
}

} // namespace

void bench::loadPackage(const Arguments& arguments) {
    const bool isSigned = arguments.size() > 2; // by a key in this directory
    const auto bus = startBus(arguments.at(0), isSigned ? "trusted_keys = " + arguments[2] + "\n" : "");
    putOntoStick(arguments.at(1));
    double bare = 0;
    for (int n = 0; n < 2; ++n) { // the first warms the caches, for the loader, too
        const double start = now();
        panel::shell("cd /mnt/usb && sha1sum keldra_update.tgz >/dev/null && mkdir /tmp/bare && "
                     "tar -C /tmp/bare -zxpf keldra_update.tgz");
        bare = now() - start;
        panel::shell("rm -r /tmp/bare");
    }
    updateCore core;
    unsigned char mode = 1;
    QObject::connect(
        core.load.get(), &updateCoreLoad::sendUpdatePackageLoaded, core.load.get(),
        [&mode](unsigned char ended) { mode = ended; }, Qt::DirectConnection);
    const double start = now();
    core.loadConfiguration(false);
    core.load->wait();
    report(now() - start);
    report(bare);
    if (mode != 0) {
        throw std::runtime_error("not loaded");
    }
}

void bench::paintWindow(const Arguments& arguments) {
    const double started = std::stod(arguments.at(0));
    int count = 1;
    char name[] = "K+Updater";
    char* words[] = {name, nullptr};
    const auto painted = [started] {
        report(secondsSince1970() - started);
        report(peakMemory());
        _exit(0);
    };
    if (arguments.at(1) == "bare") {
        QApplication application(count, words);
        QWidget window;
        const PaintWatch watch(&window, painted);
        window.showFullScreen();
        QApplication::exec();
    }
    const panel::Terminal line;
    panel::configure(line.name(), BAUD);
    updateCore core;
    QApplication application(count, words);
    UpdaterWindow window(&application, &core);
    const PaintWatch watch(&window, painted);
    window.showFullScreen();
    QApplication::exec();
}

void bench::progressLine(const Arguments& arguments) {
    constexpr int BEATS = 200;
    constexpr double SECONDS_OF_BEAT = 0.5;
    constexpr off_t STEP = 100'000; // so that there is something else to draw each time
    int count = 1;
    char name[] = "K+Updater";
    char* words[] = {name, nullptr};
    const panel::Terminal line;
    panel::configure(line.name(), BAUD);
    updateCore core;
    QApplication application(count, words);
    UpdaterWindow window(&application, &core);
    window.showFullScreen();
    QCoreApplication::processEvents();
    const int file = open(arguments.at(0).c_str(), O_RDONLY | O_CLOEXEC);
    core.running = true;
    core.progress.start({{"GUI", runProgress::KIND::BYTES, SECONDS_OF_BEAT * BEATS}});
    core.progress.check("GUI");
    core.progress.write(runProgress::KIND::BYTES, STEP * BEATS, SECONDS_OF_BEAT * BEATS);
    core.progress.reading(arguments.at(0));
    const std::clock_t begun = std::clock();
    for (int beat = 0; beat < BEATS; ++beat) {
        lseek(file, beat * STEP, SEEK_SET);
        const runProgress::STATE state = core.progress.state();
        window.showProgress(QString::fromStdString(state.text), state.isWriting);
        QCoreApplication::processEvents();
    }
    report(100 * static_cast<double>(std::clock() - begun) / CLOCKS_PER_SEC / (BEATS * SECONDS_OF_BEAT));
    close(file);
    _exit(0);
}

void bench::updatePanel(const Arguments& arguments) {
    const auto bus = startBus(arguments.at(0));
    putOntoStick(arguments.at(1));
    int count = 1;
    char name[] = "K+Updater";
    char* words[] = {name, nullptr};
    bool success = false;
    const double start = now();
    updateCore core;
    QApplication application(count, words);
    UpdaterWindow window(&application, &core);
    QObject::connect(&core, &updateCore::sendUpdatePackageLoaded, &window, &UpdaterWindow::updateStart,
                     Qt::QueuedConnection);
    QObject::connect(&core, &updateCore::sendUpdateDone, &window, [&success](bool status) {
        success = status;
        QApplication::quit();
    });
    window.showFullScreen();
    QApplication::exec();
    core.wait();
    report(now() - start);
    report(peakMemory());
    if (!success) {
        throw std::runtime_error("the update failed");
    }
}
