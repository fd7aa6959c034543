#pragma once

#include <QSocketNotifier>

class UpdaterWindow;
class updateCore;

/**
 * SIGTERM and SIGINT stop the updater as the operator would: a run is cancelled, then the updater is closed.
 * Made when the application exists; what was asked for before is done as soon as its events are.
 */
class stopSignals : public QSocketNotifier {
public:
    /** To be called before; the handlers only leave a note. */
    static void installHandlers();

    stopSignals(UpdaterWindow* window, updateCore* core);
    /** True when it was a signal that ended the updater. */
    bool wasAsked() const { return !isEnabled(); }

protected:
    bool event(QEvent* event) override;

private:
    UpdaterWindow* closed;
    updateCore* csys;
};
