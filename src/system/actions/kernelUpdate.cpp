#include "kernelUpdate.h"

#include "../runForecast.h"
#include "packageFile.h"

#include <cstdlib>
#include <iostream>

namespace {

const char* const HARMLESS = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._+-/";

bool isHarmless(const std::string& name) {
    return name.find_first_not_of(HARMLESS) == std::string::npos && !packageFile::leadsOutside(name);
}

bool writeImage(const std::string& name) {
    const std::string command = "dd if=" + packageFile::DIRECTORY + name + " of=/dev/mmcblk0p1";
    std::cout << command << std::endl;
    return std::system(command.c_str()) == 0;
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
    const std::uint64_t bytes = runForecast::bytesOf(packageFile::DIRECTORY + image.item);
    csys->progress.write(runProgress::KIND::BYTES, bytes, runForecast::secondsOfBytes(bytes));
    csys->progress.reading(packageFile::DIRECTORY + image.item);
    if (!isHarmless(image.item) || !writeImage(image.item)) {
        csys->log->log_item("DD command failed: " + image.item, logger::LOG_ERROR);
        return false;
    }
    base->swVersion = image.version;
    return true;
}
