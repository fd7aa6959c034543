#pragma once

#include "coreState.h"

#include <QString>
#include <QThread>
#include <QTimer>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

class action;
class serialBootload;
class updateCoreLoad;

/**
 * The updater's centre: what the threads share (coreState), the package loader, and the update run.
 *
 * Four threads meet here: the main thread (the slots), the update thread (run()), the loader's and the
 * link's.
 */
class updateCore : public QThread, public coreState {
    Q_OBJECT

public:
    std::unique_ptr<updateCoreLoad> load;

    /**
     * Reads the configuration, opens the log, loads the system manifest, opens the bus link and starts its
     * thread. Throws ConfigFile::file_not_found when there is no configuration.
     */
    updateCore();
    /** Ends every thread that still runs. Saves nothing but the log. */
    ~updateCore() override;

    /** Ends every thread, then saves the system manifest. Called after the event loop has ended. */
    void stop();
    /**
     * Tells the bus that the panel restarts; blocks for about 3 s, since the link no longer listens by then.
     */
    void sendHaltMsg();

    void run() override;
    /** Checks one item and updates it if need be; the result is an action::STATUS. Update thread. */
    std::uint8_t runUpdate(action* act, BASE_ITEM* item, const std::string& name, bool force, double tick);

signals:
    void sendUpdateDone(bool status);                 ///< the run ended (or was cancelled)
    void sendStatusMessage(QString msg);              ///< a text for the operator, already logged
    void incrimentProgressBar(double tick);           ///< an item is done
    void sendUpdatePackageLoaded(unsigned char mode); ///< 0 loaded, 1 failed, 2 loaded while resuming
    void sendProgress(QString line, bool writing); ///< twice a second while something goes on: how far it is
    void sendReboot();                             ///< the updater was replaced and must be started again

public slots:
    /** Starts the loader. Does not read the configuration file again. */
    void loadConfiguration(bool reload);
    /**
     * Returns when the update thread has ended: 2 s at most for the actions to notice, then by termination.
     * The main thread's events go on meanwhile.
     */
    void cancelUpdate();
    void startUpdate();
    /** Logs a text and shows it. Any thread. */
    void gotStatusMessage(QString msg);
    void gotLoadDone(unsigned char mode);

private:
    void endThreads();
    void awaitEnd();
    void beat();
    void runItems();
    std::vector<runProgress::STEP> forecast();
    void finish(bool status);
    bool enterUpdateMode(serialBootload& sender);
    bool updateUpdater();
    bool updateEverythingElse(serialBootload& serial);
    void reportLine(const std::string& name);

    QTimer progressTimer;
    bool leftUnfinished =
        false;           ///< the run met a module that an earlier one left in part, and has no image for
    shared<bool> atWork; ///< from the start of a run to its last signal
};
