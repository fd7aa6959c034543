#pragma once

#include <QElapsedTimer>
#include <QTimer>

/**
 * Notices when the main thread stood still: what the operator did meanwhile has queued up in the window
 * system and comes only now, to buttons that may mean something else by then. Main thread.
 */
class heartBeat : public QObject {
    Q_OBJECT

public:
    explicit heartBeat(QObject* parent);

    /** True while input may have queued up, and for a short time after. */
    bool hasMissed() const;

private:
    void beat();

    QTimer timer;
    QElapsedTimer sinceBeat;
    QElapsedTimer sinceStill; ///< invalid until the thread stood still for the first time
};
