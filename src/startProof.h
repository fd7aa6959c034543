#pragma once

#include "system/startRecord.h"

#include <QObject>
#include <QTimer>

class UpdaterWindow;
class updateCore;

/**
 * What the updater itself does for the next start: it puts itself back where it belongs, tells the operator
 * what the starter has decided, and proves itself. Nothing of it where no record is kept (startRecord.h).
 * Main thread.
 */
class startProof : public QObject {
public:
    /** Before there is a window: settles which updater is installed. */
    explicit startProof(updateCore* core);

    /**
     * Tells the operator what he has to know, and waits for the proof: the window painted, the bus answered.
     */
    void watchOver(UpdaterWindow* window);
    /** The operator has closed the updater: nothing is underway, and it has proven itself. */
    static void usedToTheEnd();
    /** It starts its successor. */
    static void countRestart();
    /** True when a starter waits for its end and starts another one, if need be. */
    static bool hasStarter();

protected:
    bool eventFilter(QObject* object, QEvent* event) override;

private:
    bool settle(startRecord& record, const startRecord::PROGRAM& own);
    void prove();

    updateCore* csys;
    QTimer timer;
    bool hasPainted = false;
};
