#pragma once

#include "../lib/shared.h"

#include <QString>
#include <QThread>
#include <functional>
#include <string>

class coreState;

/**
 * The thread that brings a package from the USB stick onto the panel, proves it intact, unpacks it and reads
 * its manifest into the core. Owned and started by the core. One run ends with exactly one
 * sendUpdatePackageLoaded(); a failed step leaves what it left, and the next run clears it.
 */
class updateCoreLoad : public QThread {
    Q_OBJECT

public:
    /** The core that is read and filled; set before the thread is started. Not owned. */
    void setCore(coreState* c) { core = c; }
    /** Starts the thread, unless it is at work. */
    void begin();
    void run() override;
    /** True when `file` exists and its SHA-1 is the one that `file` + ".sha" names. */
    bool validateFile(std::string file);
    /** What it is at and how far, for the operator. Any thread. */
    static std::string progressText();

signals:
    void sendStatusMessage(QString msg);
    void sendUpdatePackageLoaded(unsigned char mode); ///< 0 loaded, 1 failed, 2 loaded while resuming

private:
    bool loadPackage();
    bool switchToUpdateMode();
    void awaitStartMode();
    bool finishes(const std::function<bool()>& work);
    bool mayResume();
    bool fetchPackage();
    bool isTrusted();
    bool unpackPackage();
    bool readManifest();
    bool prepareSystem();
    bool fail(const char* shown, const std::string& logged);

    coreState* core = nullptr;
    shared<bool> atWork; ///< from begin() to the last signal
};
