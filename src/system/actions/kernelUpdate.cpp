#include "kernelUpdate.h"

#include "../../lib/childProcess.h"
#include "../packageRules.h"
#include "../runForecast.h"

#include <iostream>

namespace {

bool writeImage(const std::string& name) {
    const std::string command = "dd if=" + packageRules::UNPACKED + name + " of=/dev/mmcblk0p1";
    std::cout << command << std::endl;
    return childProcess::shell(command) == 0;
}

} // namespace

action::STATUS kernelUpdate::needsUpdate(bool force) {
    return needsUpdateHost(force);
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
