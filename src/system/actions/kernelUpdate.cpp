#include "kernelUpdate.h"

#include "../../lib/childProcess.h"
#include "../../lib/durable.h"
#include "../packageRules.h"
#include "../runForecast.h"
#include "../startRecord.h"

#include <iostream>

namespace {

const std::string BOOT_PARTITION = "/dev/mmcblk0p1";

void noteTorn(bool isTorn) {
    startRecord::change([isTorn](startRecord& record) { record.tornKernel = isTorn; });
}

bool writeImage(const std::string& name) {
    const std::string command = "dd if=" + packageRules::UNPACKED + name + " of=" + BOOT_PARTITION;
    std::cout << command << std::endl;
    noteTorn(true);
    if (childProcess::shell(command) != 0) {
        return false;
    }
    durable::flush(BOOT_PARTITION);
    noteTorn(false);
    return true;
}

} // namespace

action::STATUS kernelUpdate::needsUpdate(bool force) {
    return needsUpdateHost(force || startRecord::load().tornKernel);
}

bool kernelUpdate::run() {
    if (csys->cancel) {
        return false;
    }
    const coreState::UPDATE_ITEM& image = base->update.items[revision()];
    if (packageRules::standsForNoFile(image.item)) {
        return true;
    }
    const std::string path = packageRules::UNPACKED + image.item;
    const std::uint64_t bytes = runForecast::bytesOf(path);
    csys->progress.write(runProgress::KIND::BYTES, bytes, runForecast::secondsOfBytes(bytes));
    csys->progress.reading(path);
    if (!packageRules::isHarmless(image.item) || packageRules::leadsOutside(image.item) ||
        !writeImage(image.item)) {
        csys->log->log_item("DD command failed: " + image.item, logger::LOG_ERROR);
        return false;
    }
    base->swVersion = image.version;
    return true;
}
