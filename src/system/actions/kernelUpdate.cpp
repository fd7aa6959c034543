#include "kernelUpdate.h"

#include "../../lib/childProcess.h"
#include "packageFile.h"

#include <iostream>

namespace {

const char* const HARMLESS = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._+-/";

bool isHarmless(const std::string& name) {
    return name.find_first_not_of(HARMLESS) == std::string::npos && !packageFile::leadsOutside(name);
}

bool writeImage(const std::string& name) {
    const std::string command = "dd if=" + packageFile::DIRECTORY + name + " of=/dev/mmcblk0p1";
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
    if (image.item.size() <= packageFile::NO_FILE_LENGTH) {
        return true;
    }
    if (!isHarmless(image.item) || !writeImage(image.item)) {
        csys->log->log_item("DD command failed: " + image.item, logger::LOG_ERROR);
        return false;
    }
    base->swVersion = image.version;
    return true;
}
