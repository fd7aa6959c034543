#pragma once

#include "../lib/logger.h"
#include "../lib/shared.h"
#include "responseSignal.h"

#include <QString>
#include <QThread>
#include <array>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

class ProcBusThread;
class action;
class updateCoreLoad;

/**
 * The updater's centre: settings, log, bus link, package loader, the table of modules and host items, and the
 * update run.
 *
 * Four threads meet here: the main thread (the slots), the update thread (run()), the loader's and the
 * link's. They share the fields below: a `shared` scalar or text is written by one of them at a
 * time. The lists of a package are filled by the loader before it sets `loaded`, and only read afterwards.
 */
class updateCore : public QThread {
    Q_OBJECT

public:
    /** Processor kind of a module, as its bootloader reports it. */
    enum PROC_TYPE : std::uint8_t {
        UNKNOWN = 0,
        PIC24 = 1,
        PIC32_REC = 2,
        STM32F3 = 3,
        STM32F0 = 4,
        PIC32_MEM = 5,
        STM32F4 = 6
    };

    /** One file or image of a package. */
    struct UPDATE_ITEM {
        std::string item; ///< its name within the package
        std::string version;
    };

    /** One updatable thing: a host item or a module's firmware. */
    struct BASE_ITEM {
        sharedText swVersion;       ///< installed version: system manifest, or reported by the module
        shared<std::uint8_t> hwRev; ///< hardware revision: selects the entry of `update.items`
        std::uint8_t id = 0;        ///< bus address; 0 for host items
        shared<bool> isAccurate;    ///< the installed version is known for certain
        struct {
            std::vector<UPDATE_ITEM> items; ///< what the package offers, indexed by hardware revision
            bool resetAfterUpdate = false;  ///< restart the module after programming
        } update;
        bool unfinished = false; ///< setUnfinished(): update it whatever version it reports
    };

    /** A host item under its name in both manifests. */
    struct HOST_ITEM {
        const char* name;
        BASE_ITEM* item;
    };

    /** One bus module; the link thread writes all but the package's list. */
    struct MODULE {
        shared<std::uint8_t> mode; ///< reported operating mode, 0 to 7
        sharedText serial;
        shared<bool> available;
        shared<bool> lostCom;
        BASE_ITEM base;
    };

    /**
     * The last reply of the module that is being bootloaded. The link thread writes it, `hasResponse` last;
     * the thread that waits for the reply reads `hasResponse` first, and the fields then from a copy
     * (reply()), so that the next reply can't get between them.
     */
    struct REPLY {
        shared<std::uint8_t> status;            ///< canBootload::BLSTATUS
        shared<std::int8_t> moduleReported{-1}; ///< bus address, -1 for none
        shared<std::uint32_t> page;             ///< row (or page) the reply refers to; 0xFFFF for none
        shared<bool> hasResponse;               ///< a reply came since busResetResponse()
        shared<std::uint8_t> hwRev;
        sharedText swVersion;
        shared<bool> blInitData; ///< an identification was received
        shared<bool> serialBootload;
        shared<bool> oldProtocol;
        shared<PROC_TYPE> reportedType{UNKNOWN};
    } bootloader;

    shared<bool> resetG1; ///< the halt message is the second-generation reset
    shared<bool> reboot;  ///< after the event loop: start the updater again instead of halting
    shared<bool> cancel;  ///< asked for by the main thread; polled by the actions and the loader
    shared<bool> loaded;  ///< set by the loader: a package is loaded and parsed
    shared<bool> running; ///< an update run was started
    shared<bool> success; ///< set by the update thread: result of the last run
    bool debug = false;
    shared<bool> resumeUpdate; ///< second stage of an update, after the updater replaced itself
    shared<bool> forceUpdate;  ///< update items whose versions match, too

    std::string uartPort;
    std::string rootPath;
    std::uint32_t uartBaud = 0;

    std::unique_ptr<logger> log;
    std::unique_ptr<ProcBusThread> comBus;

    MODULE cy1, cy2, cy3, cy4, master, motor, ctrl, s1, s2, s3, s4, mf1, mf2, mf3, arts;

    struct {
        BASE_ITEM kernel, rootfs, updater, gui, drivers;
    } core;

    std::unique_ptr<updateCoreLoad> load;

    /**
     * Reads "/keldra/config/vx3.cfg", opens the log, loads the system manifest, opens the bus link and starts
     * its thread. Throws ConfigFile::file_not_found when there is no configuration.
     */
    updateCore();
    /** Ends every thread that still runs. Saves nothing but the log. */
    ~updateCore() override;

    /**
     * While this is set, a loader that has come to the point of reading `resumeUpdate` waits: the program
     * entry sets the flag only after the window has been shown, and showing the window starts the loader.
     */
    shared<bool> startModePending;
    bool strictImages = false; ///< refuse an image that can't arrive whole; else it is sent as it was read

    /** Ends every thread, then saves the system manifest. Called after the event loop has ended. */
    void stop();
    /** Tells the bus that the panel restarts; blocks for about 3 s, since the link no longer listens by then.
     */
    void sendHaltMsg();
    /** Clears the reply state before a request. Called by the requesting thread. */
    void busResetResponse();
    /**
     * Files a reply with `file`, which writes the record's fields, and makes it known to the requesting
     * thread. Called by the link thread; never half before and half behind a busResetResponse().
     */
    template <class FILE>
    void fileResponse(FILE file) {
        const std::lock_guard<std::mutex> held(recordGuard);
        file(bootloader);
        bootloader.hasResponse = true;
        responseFiled.notify();
    }
    /** The record as one reply left it. */
    REPLY reply();
    /**
     * Waits for a reply: at most `polls` polls of 1 ms, fewer when it comes or the run is cancelled. True
     * when there is one. The calling thread may be terminated meanwhile.
     */
    bool awaitResponse(unsigned polls);
    /** Sleeps for less than a second. The calling thread may be terminated meanwhile. */
    void pause(unsigned milliseconds);
    void removeUpdateFiles();
    /**
     * Removes the unpacked package's manifest, without which it is never resumed: the first step of every
     * removal, since a loss of power may leave the rest of it in part.
     */
    void dropUnpackedManifest();
    void resetInitModule(MODULE* m, bool resetAfter);
    void resetInitBase(BASE_ITEM* b);
    /** The host items, in the order in which the system manifest lists them. */
    std::array<HOST_ITEM, 5> hostItems();
    /** Empties every item's list, so that two packages never mix. Loader thread. */
    void clearUpdateItems();

    void run() override;
    /** Checks one item and updates it if need be; the result is an action::STATUS. Update thread. */
    std::uint8_t runUpdate(action* act, updateCore::BASE_ITEM* item, const std::string& name, bool force,
                           double tick);

    /** Both use rootPath + "/config/system.manifest". */
    bool loadSystemManifest();
    /** Replaces the file whole: a loss of power leaves the old one or the new one. */
    bool saveSystemManifest();
    /**
     * Notes that a module's programming begins, or that it is complete. On the card, too: after a loss of
     * power a module may report the version of an image that it has in part. Update thread.
     */
    void setUnfinished(BASE_ITEM& item, bool unfinished);

signals:
    void sendUpdateDone(bool status);                 ///< the run ended (or was cancelled)
    void sendStatusMessage(QString msg);              ///< a text for the operator, already logged
    void incrimentProgressBar(double tick);           ///< an item is done
    void sendUpdatePackageLoaded(unsigned char mode); ///< 0 loaded, 1 failed, 2 loaded while resuming
    void sendReboot();                                ///< the updater was replaced and must be started again

public slots:
    /** Starts the loader. Does not read the configuration file again. */
    void loadConfiguration(bool reload);
    /** Blocks until the update thread has ended: 2 s at most for the actions to notice, then by termination.
     */
    void cancelUpdate();
    void startUpdate();
    /** Logs a text and shows it. Any thread. */
    void gotStatusMessage(QString msg);
    void gotLoadDone(unsigned char mode);

private:
    void setUpItems();
    void loadUnfinished();
    bool replaceFile(const std::string& path, const std::string& text);
    int readConfiguration();
    void endThreads();
    bool enterUpdateMode();
    bool updateUpdater();
    bool updateEverythingElse();

    responseSignal responseFiled;
    std::mutex recordGuard; ///< held while a reply is filed or cleared, with termination forbidden
};
