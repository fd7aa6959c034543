#include "kernelUpdate.h"

#include "../../lib/durable.h"
#include "../startRecord.h"
#include "../stepDurations.h"
#include "packageFile.h"

#include <fcntl.h>
#include <iostream>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const std::string PARTITION = "/dev/mmcblk0p1";
const char* const DEVICES = "/dev";

/** Bytes; nothing when it is none. */
std::optional<std::uint64_t> sizeOfDevice(const std::string& path) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const off_t size = lseek(fd, 0, SEEK_END);
    close(fd);
    return size < 0 ? std::nullopt : std::optional(static_cast<std::uint64_t>(size));
}

/**
 * What the boot partition takes. Nothing when there is none: dd would make a plain file of that name, in
 * memory. A file that was bound in its place lies elsewhere, and takes anything.
 */
std::optional<std::uint64_t> sizeOfPartition() {
    struct stat partition {};
    struct stat devices {};
    if (stat(PARTITION.c_str(), &partition) != 0 || stat(DEVICES, &devices) != 0) {
        return std::nullopt;
    }
    if (S_ISREG(partition.st_mode) && partition.st_dev != devices.st_dev) {
        return UINT64_MAX;
    }
    return S_ISBLK(partition.st_mode) ? sizeOfDevice(PARTITION) : std::nullopt;
}

void noteTorn(bool isTorn) {
    startRecord::change([isTorn](startRecord& record) { record.tornKernel = isTorn; });
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
    const std::uint64_t bytes = stepDurations::bytesOf(path);
    const bool isGood = packageRules::isHarmless(image.item) && !packageRules::leadsOutside(image.item) &&
                        fits(bytes) && packageFile::isSound(*csys, path);
    if (!isGood && csys->cancel) {
        return false;
    }
    if (!isGood || !writeImage(image.item) || !hasArrived(path)) {
        csys->log->log_item("DD command failed: " + image.item, logger::LOG_ERROR);
        return false;
    }
    base->swVersion = image.version;
    return true;
}

/** Asked before the first byte of the old kernel is overwritten. */
bool kernelUpdate::fits(std::uint64_t bytes) {
    const auto size = sizeOfPartition();
    if (!size) {
        csys->log->log_item("No boot partition", logger::LOG_WARNING);
    } else if (bytes > *size) {
        csys->log->log_item("Larger than the boot partition", logger::LOG_WARNING);
    }
    return size && bytes <= *size;
}

bool kernelUpdate::writeImage(const std::string& name) {
    const std::string path = packageRules::UNPACKED + name;
    const std::uint64_t bytes = stepDurations::bytesOf(path);
    const std::string command = "dd if=" + path + " of=" + PARTITION;
    std::cout << command << std::endl;
    noteTorn(true);
    csys->progress.write(runProgress::KIND::BYTES, bytes, stepDurations::secondsOfBytes(bytes));
    csys->progress.reading(path);
    const bool isWritten = csys->runsWell(command);
    csys->progress.reached(bytes, bytes); // what reads it next, only compares
    return isWritten;
}

bool kernelUpdate::hasArrived(const std::string& path) {
    if (durable::holds(PARTITION, path)) {
        noteTorn(false);
        return true;
    }
    csys->log->log_item("Read back otherwise than written: " + PARTITION, logger::LOG_WARNING);
    return false;
}
