#pragma once

#include "../lib/logger.h"
#include "../lib/shared.h"
#include "busRecorder.h"
#include "lineQuality.h"
#include "modules.h"
#include "replyBox.h"
#include "runProgress.h"

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

class ProcBusThread;

/**
 * What the updater's threads share: settings, log, bus link, and the table of modules and host items. It
 * starts nothing and knows none of its users; the core, which is one, sets it up and takes it down.
 *
 * A `shared` scalar or text is written by one thread at a time. The lists of a package are filled by the
 * loader before it sets `loaded`, and only read afterwards.
 */
class coreState {
public:
    using PROC_TYPE = busProtocol::PROC_TYPE;
    using enum busProtocol::PROC_TYPE;
    using REPLY = replyBox::RECORD;

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

    busRecorder recorder;
    replyBox answers; ///< of the module that is being bootloaded
    REPLY& bootloader = answers.record();
    runProgress progress;
    lineQuality quality; ///< of the line to the module at hand

    shared<bool> resetG1; ///< the halt message is the second-generation reset
    shared<bool> reboot;  ///< after the event loop: start the updater again instead of halting
    shared<bool> cancel;  ///< asked for by the main thread; polled by the actions and the loader
    shared<bool> loaded;  ///< set by the loader: a package is loaded and parsed
    shared<bool> running; ///< an update run was started
    /** Files of folders that could not be installed in the last run, though it went on. Update thread. */
    shared<unsigned> notInstalled;
    shared<bool> success; ///< set by the update thread: result of the last run
    bool debug = false;
    shared<bool> busAnswered;  ///< since the program's start
    shared<bool> resumeUpdate; ///< second stage of an update, after the updater replaced itself
    shared<bool> forceUpdate;  ///< update items whose versions match, too

    std::string uartPort;
    std::string rootPath;
    std::uint32_t uartBaud = 0;

    std::unique_ptr<logger> log;
    std::unique_ptr<ProcBusThread> comBus;

    MODULE cy1, cy2, cy3, cy4, master, motor, ctrl, s1, s2, s3, s4, mf1, mf2, mf3, arts;

    /** The record of a row of modules::TABLE. */
    MODULE& module(const modules::ROW& row) {
        return *records[static_cast<std::size_t>(&row - modules::TABLE.data())];
    }

    struct {
        BASE_ITEM kernel, rootfs, updater, gui, drivers;
    } core;

    coreState(const coreState&) = delete;
    coreState& operator=(const coreState&) = delete;

    /**
     * While this is set, a loader that has come to the point of reading `resumeUpdate` waits: the program
     * entry sets the flag only after the window has been shown, and showing the window starts the loader.
     */
    shared<bool> startModePending;

    /** Images that can't arrive whole are refused; else the log warns of them. Key `strict_images`. */
    bool strictImages = false;

    /** A module that says nothing but errors is no old bootloader. Key `strict_bootloaders`. */
    bool strictBootloaders = false;

    /**
     * The directory with the public keys of whom packages are taken from; without it, from anybody. Key
     * `trusted_keys`.
     */
    std::optional<std::string> trustedKeys;

    /** SHA-256 of files of the package, in digits, by their names in it; filled as the items' lists are. */
    std::map<std::string, std::string> fileDigests;

    std::uint32_t recorderSize = busRecorder::USUAL_SIZE; ///< bytes; key `recorder_size`
    bool recordsAll = false; ///< the traffic of a run that succeeds is saved, too; key `record`

    /** Runs a shell command; false, and a warning that tells what it said, when it failed. */
    bool runsWell(const std::string& command, const shared<bool>* unless = nullptr) const;
    /** Saves the bus's traffic, if there was any since the last time, and says so in the log. */
    void saveRecording(const char* reason);
    /** Clears the reply state before a request. Called by the requesting thread. */
    void busResetResponse() { answers.reset(); }
    /** The record as one reply left it. */
    REPLY reply() { return answers.copy(); }
    /**
     * Waits for a reply: at most `polls` polls of 1 ms, fewer when it comes or the run is cancelled. True
     * when there is one. The calling thread may be terminated meanwhile.
     */
    bool awaitResponse(unsigned polls) { return answers.await(polls, cancel); }
    /** Sleeps for less than a second. The calling thread may be terminated meanwhile. */
    void pause(unsigned milliseconds);
    void removeUpdateFiles();
    /**
     * Removes the unpacked package's manifest and the signature beside the archive, without which neither is
     * ever resumed: the first step of every removal, since a loss of power may leave the rest in part.
     */
    void dropUnpackedManifest();
    void resetInitModule(MODULE* m, bool resetAfter);
    void resetInitBase(BASE_ITEM* b);
    /** The host items, in the order in which the system manifest lists them. */
    std::array<HOST_ITEM, 5> hostItems();
    /** Empties every item's list, so that two packages never mix. Loader thread. */
    void clearUpdateItems();

    /** Both use rootPath + "/config/system.manifest". */
    bool loadSystemManifest();
    /** Replaces the file whole: a loss of power leaves the old one or the new one. */
    bool saveSystemManifest();
    /**
     * Notes that a module's programming begins, or that it is complete. On the card, too: after a loss of
     * power a module may report the version of an image that it has in part. Update thread.
     */
    void setUnfinished(BASE_ITEM& item, bool unfinished);

protected:
    // Defaulted here, so that only who makes and destroys a core needs to know the link's class.
    coreState() = default;
    ~coreState() = default;

    /** Gives every item its address and its state before the first message. */
    void setUpItems();
    /**
     * Reads "/keldra/config/vx3.cfg"; returns the log's size limit. Throws ConfigFile::file_not_found when
     * there is none.
     */
    int readConfiguration();
    /** Reads what setUnfinished() has noted on the card. */
    void loadUnfinished();

private:
    /** In the order of the table. */
    const std::array<MODULE*, modules::TABLE.size()> records = {
        &mf1, &mf2, &mf3, &arts, &s1, &s2, &s3, &s4, &motor, &master, &ctrl, &cy1, &cy2, &cy3, &cy4};
};
