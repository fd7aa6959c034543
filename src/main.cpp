#include "crashReport.h"
#include "gui/UpdaterWindow.h"
#include "instanceLock.h"
#include "panelEnd.h"
#include "processSettings.h"
#include "startProof.h"
#include "stopSignals.h"
#include "system/updateCore.h"
#include "version.h"

#include <QApplication>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>
#include <unistd.h>

namespace {

const char* const CONFIGURATION = "/keldra/config/vx3.cfg";

bool hasArgument(int argc, char** argv, const char* argument) {
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], argument) == 0) {
            return true;
        }
    }
    return false;
}

/** What a person at a keyboard asks for; the panel never does. True when it was answered. */
bool answerQuestion(int argc, char** argv) {
    if (hasArgument(argc, argv, "--version")) {
        std::cout << "K+Updater " KELDRA_VERSION << std::endl;
        return true;
    }
    if (hasArgument(argc, argv, "--help")) {
        std::cout << "K+Updater [auto [force]] [-qws]\n"
                     "The software updater of the Keldra+ control panel, which starts it.\n"
                     "  auto   go on with an update at once; force: what is up to date, too\n"
                     "  -qws   draw on the framebuffer\n"
                     "It needs the panel's own folders; ./demo runs it on a simulated panel."
                  << std::endl;
        return true;
    }
    return false;
}

/** Without its configuration the program ends in an exception: says why before that. */
void explainMissingConfiguration() {
    if (access(CONFIGURATION, R_OK) != 0) {
        std::cerr << "K+Updater: " << CONFIGURATION << ": " << std::strerror(errno)
                  << "; it runs on a panel, or on a simulated one (./demo)" << std::endl;
    }
}

/** "-qws" asks for the framebuffer, unless a platform is chosen in a way that Qt knows itself. */
void choosePlatform(int argc, char** argv) {
    if (hasArgument(argc, argv, "-qws") && !hasArgument(argc, argv, "-platform") &&
        !hasArgument(argc, argv, "--platform") && qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
        qputenv("QT_QPA_PLATFORM", "linuxfb");
    }
}

/** Takes the options that were the window system's out of the arguments; the application has left them. */
int dropWindowOptions(int argc, char** argv) {
    int kept = 1;
    for (int i = 1; i < argc; ++i) {
        if (std::strcmp(argv[i], "-display") == 0) {
            ++i; // and its value
        } else if (std::strcmp(argv[i], "-qws") != 0) {
            argv[kept++] = argv[i];
        }
    }
    return kept;
}

/**
 * The mode argument: "auto" resumes an update, "auto force" updates what is up to date, too. The loader,
 * which the window has started, goes on from here with what was found.
 */
void readMode(int argc, char** argv, updateCore& core) {
    const bool automatic = argc > 1 && std::strcmp(argv[1], "auto") == 0;
    if (automatic) {
        core.resumeUpdate = true;
        core.forceUpdate = argc > 2 && std::strcmp(argv[2], "force") == 0;
    }
    core.startModePending = false;
    if (automatic) {
        sleep(1);
    }
}

} // namespace

int main(int argc, char** argv) {
    if (answerQuestion(argc, argv)) {
        return 0;
    }
    settleProcess(CONFIGURATION);
    installCrashReport();
    std::cout << "Init Start ------" << std::endl;
    const instanceLock lock;
    if (!lock.isHeld()) {
        std::cerr << "Another updater is running: this one ends" << std::endl;
        return EXIT_FAILURE;
    }
    explainMissingConfiguration();
    auto core = std::make_unique<updateCore>(); // a missing configuration ends the program here
    core->startModePending = true;
    startProof proof(core.get());
    choosePlatform(argc, argv);
    QApplication application(argc, argv);
    auto* window = new UpdaterWindow(&application, core.get()); // the process's end takes it down
    proof.watchOver(window);
    window->showFullScreen();
    QApplication::setOverrideCursor(Qt::BlankCursor);
    readMode(dropWindowOptions(argc, argv), argv, *core);
    stopSignals onSignals(window, core.get());
    const int exitCode = QApplication::exec();
    std::cout << "stopping application" << std::endl;
    core->stop();
    if (onSignals.wasAsked() && startProof::hasStarter()) {
        core->sendHaltMsg(); // who ends the service goes on from here, and may start it again
    } else if (core->reboot) {
        panelEnd::restart(*core, lock);
    } else {
        startProof::usedToTheEnd();
        panelEnd::halt(*core);
    }
    core.reset();
    return exitCode;
}
