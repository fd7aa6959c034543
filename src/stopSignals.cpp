#include "stopSignals.h"

#include "gui/UpdaterWindow.h"
#include "system/updateCore.h"

#include <QEvent>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace {

int notes[2] = {-1, -1}; // a pipe: what a handler writes, the main thread reads

void leaveNote(int) {
    [[maybe_unused]] const ssize_t written = write(notes[1], "", 1);
}

} // namespace

void stopSignals::installHandlers() {
    if (pipe2(notes, O_CLOEXEC | O_NONBLOCK) == 0) {
        std::signal(SIGTERM, leaveNote);
        std::signal(SIGINT, leaveNote);
    }
}

stopSignals::stopSignals(UpdaterWindow* window, updateCore* core)
    : QSocketNotifier(notes[0], Read), closed(window), csys(core) {}

bool stopSignals::event(QEvent* event) {
    if (event->type() != QEvent::SockAct) {
        return QSocketNotifier::event(event);
    }
    setEnabled(false); // once is enough
    closed->endRun();
    csys->saveRecording("stopped");
    emit closed->haltApplication();
    return true;
}
