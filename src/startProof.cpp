#include "startProof.h"

#include "gui/UpdaterWindow.h"
#include "lib/durable.h"
#include "system/actions/updaterUpdate.h"
#include "system/updateCore.h"

#include <QEvent>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <unistd.h>

namespace {

using PROGRAM = startRecord::PROGRAM;

constexpr int LOOK_MS = 250;
const char* const SELF = "/proc/self/exe";

pid_t starter() {
    const char* const text = std::getenv("KELDRA_STARTER");
    return text != nullptr ? static_cast<pid_t>(std::atoi(text)) : -1;
}

bool runsWhereItBelongs() {
    std::error_code unknown;
    return std::filesystem::equivalent(SELF, startRecord::INSTALLED, unknown);
}

} // namespace

bool startProof::hasStarter() {
    return getppid() == starter();
}

startProof::startProof(updateCore* core) : csys(core) {
    if (!startRecord::isKept()) {
        return;
    }
    const PROGRAM own = startRecord::contentOf(SELF);
    startRecord record = startRecord::load();
    const bool settled = hasStarter() && settle(record, own);
    if (settled || (own.is(record.updater) && !record.updater.version.empty())) {
        csys->core.updater.swVersion = record.updater.version; // the last run may not have come to write it
    }
    connect(&timer, &QTimer::timeout, this, &startProof::prove);
    if (record.trial != startRecord::PROVEN) {
        timer.start(LOOK_MS);
    }
}

/** Takes the last step of its own installation, should a loss of power or the starter have left it to it. */
bool startProof::settle(startRecord& record, const PROGRAM& own) {
    const PROGRAM coming = record.coming;
    const PROGRAM whole = own.is(coming) ? coming : record.former;
    if (!own.is(whole) || (runsWhereItBelongs() && !coming.isKnown())) {
        return false;
    }
    if (!runsWhereItBelongs()) {
        // Also of the former one: what is there meanwhile must be taken for no other.
        startRecord::change([&whole](startRecord& kept) { kept.coming = whole; });
        csys->runsWell("mount -o remount rw /"); // else the log has why the next step fails
        if (!updaterUpdate::putBack(SELF)) {
            csys->log->log_item("Could not put the updater back", logger::LOG_ERROR);
            return true;
        }
        csys->log->log_item("The updater was put back", logger::LOG_WARNING);
    }
    durable::flushAll(startRecord::INSTALLED);
    record.updater = whole;
    record.coming = {};
    const bool isFormer = !whole.is(coming);
    startRecord::change([&whole, isFormer](startRecord& kept) {
        kept.updater = whole;
        kept.coming = {};
        kept.underway = isFormer ? startRecord::UNDERWAY::NOTHING : kept.underway;
    });
    return true;
}

void startProof::watchOver(UpdaterWindow* window) {
    window->installEventFilter(this);
    const startRecord record = startRecord::load();
    const auto say = [this, window](const char* text) {
        csys->gotStatusMessage(text);
        window->remind(text);
    };
    if (record.isBack) {
        say("The new updater did not start; the former one is back");
    }
    if (record.tornKernel) {
        say("The kernel was written in part: update it again before the panel is switched off");
    }
}

bool startProof::eventFilter(QObject* object, QEvent* event) {
    if (event->type() == QEvent::Paint && !hasPainted) {
        hasPainted = true;
        if (hasStarter()) {
            kill(starter(), SIGUSR1); // it waits for the window
        }
    }
    return QObject::eventFilter(object, event);
}

void startProof::prove() {
    if (hasPainted && csys->busAnswered) {
        timer.stop();
        startRecord::change([](startRecord& record) { record.trial = startRecord::PROVEN; });
    }
}

void startProof::usedToTheEnd() {
    startRecord::change([](startRecord& record) {
        record.trial = startRecord::PROVEN;
        record.underway = startRecord::UNDERWAY::NOTHING;
        record.isBack = false;
    });
}

void startProof::countRestart() {
    startRecord::change([](startRecord& record) {
        if (record.trial != startRecord::PROVEN) {
            ++record.trial;
        }
    });
}
