#include "panelEnd.h"

#include "instanceLock.h"
#include "lib/childProcess.h"
#include "outputRelay.h"
#include "startProof.h"
#include "system/updateCore.h"

#include <string>

/**
 * `mount` takes its "ro" for the device, which a remount does not look at: the file systems stay writable,
 * and what was written reaches them by the halt.
 */
void panelEnd::halt(updateCore& core) {
    core.sendHaltMsg();
    core.dropUnpackedManifest();
    core.runsWell("mount -o remount ro /"); // the log is saved with the core, behind this
    core.runsWell("mount -o remount ro /keldra");
    childProcess::shell("rm -r /keldra/tmp/keldra_update*"); // there may be nothing to remove
    childProcess::shell("halt&");                            // its status is nobody's: it goes on by itself
}

void panelEnd::restart(const updateCore& core, const instanceLock& lock) {
    std::string command = "K+Updater auto ";
    if (core.forceUpdate) {
        command += "force ";
    }
    startProof::countRestart();
    childProcess::run([&] {
        lock.handOver();
        outputRelay::giveBack();
        return childProcess::runInstead(command + "-qws&");
    });
}
