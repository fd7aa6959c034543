#include "fileUpdate.h"

#include "../../lib/durable.h"
#include "../../lib/plainFile.h"
#include "../stepDurations.h"
#include "packageFile.h"

#include <algorithm>
#include <cerrno>
#include <dirent.h>
#include <iostream>
#include <sys/stat.h>
#include <vector>

namespace {

constexpr mode_t EXECUTABLE = S_IXUSR | S_IXGRP | S_IXOTH;
constexpr mode_t PERMISSIONS = 07777;
constexpr std::uint64_t STRETCH = 4 << 20; // bytes of small files that memory may hold back from the card

/**
 * The names in a directory that are not hidden, in the file system's order; false when not all can be read.
 */
bool listVisible(const std::string& directory, std::vector<std::string>& names) {
    DIR* dir = opendir(directory.c_str());
    if (dir == nullptr) {
        return false;
    }
    const auto next = [dir] {
        errno = 0; // which alone tells a failure from the end
        return readdir(dir);
    };
    while (const dirent* entry = next()) {
        if (entry->d_name[0] != '.') {
            names.emplace_back(entry->d_name);
        }
    }
    const bool isWhole = errno == 0;
    closedir(dir);
    return isWhole;
}

std::string folderOf(const std::string& path) {
    return path.substr(0, path.find_last_of('/') + 1);
}

/** The blocks that are free once a file is removed: none while it has another name or runs. */
std::uint64_t freedBy(const std::string& path) {
    struct stat old {};
    struct stat running {};
    if (lstat(path.c_str(), &old) != 0 || !S_ISREG(old.st_mode) || old.st_nlink > 1) {
        return 0;
    }
    const bool runs =
        stat("/proc/self/exe", &running) == 0 && running.st_dev == old.st_dev && running.st_ino == old.st_ino;
    constexpr std::uint64_t BLOCK = 512; // in which stat() counts
    return runs ? 0 : static_cast<std::uint64_t>(old.st_blocks) * BLOCK;
}

/** Tells a directory under whatever name it is met. */
std::pair<dev_t, ino_t> identityOf(const std::string& directory) {
    struct stat info {};
    stat(directory.c_str(), &info);
    return {info.st_dev, info.st_ino};
}

} // namespace

action::STATUS fileUpdate::needsUpdate(bool force) {
    return needsUpdateHost(force);
}

bool fileUpdate::run() {
    functs f;
    const coreState::UPDATE_ITEM& entry = base->update.items[revision()];
    if (packageRules::standsForNoFile(entry.item)) {
        return true;
    }
    const std::string source = packageRules::UNPACKED + entry.item;
    const std::string destination = configInstallPath + "/" + entry.item;
    std::cout << source << std::endl;
    if (packageRules::leadsOutside(entry.item)) {
        return copyFailed(destination);
    }
    totalBytes = stepDurations::bytesOf(source);
    copiedBytes = 0;
    copies.clear();
    failures = 0;
    csys->progress.write(runProgress::KIND::BYTES, totalBytes, stepDurations::secondsOfBytes(totalBytes));
    bool copied = false;
    if (f.isDirectory(source)) {
        std::cout << "Copy Directory" << std::endl;
        copied = copyDirectory(source, configInstallPath, f);
    } else {
        std::cout << "Copy File" << std::endl;
        copied = copyOneFile(source, destination, f);
    }
    if (!copied || csys->cancel) {
        return false; // cancelled, a replaced updater would restart and go on by itself
    }
    keepWhatArrived();
    if (csys->cancel || (failures != 0 && copies.empty())) {
        return false; // ended, or nothing at all is there
    }
    csys->notInstalled += failures;
    base->swVersion = entry.version;
    return true;
}

bool fileUpdate::copyFailed(const std::string& destination) {
    ++failures;
    csys->log->log_item("Could not copy new file " + destination, logger::LOG_ERROR);
    return false;
}

/** What the new file has to be like before the old one is removed. */
bool fileUpdate::mayReplace(const std::string& source, const std::string& destination) {
    const auto room = durable::freeBytes(folderOf(destination));
    if (room && stepDurations::bytesOf(source) > *room + freedBy(destination)) {
        csys->log->log_item("No room for " + destination, logger::LOG_WARNING);
        return false;
    }
    return packageFile::isSound(*csys, source);
}

/** Forces everything onto the card, and removes and reports what does not stand there as it was sent. */
void fileUpdate::keepWhatArrived() {
    const auto goOn = [this] { return !csys->cancel; };
    durable::flushAll(configInstallPath); // in one go; whether it worked, each file tells
    for (auto file = copies.begin(); file != copies.end() && goOn();) {
        if (durable::holds(file->first, file->second, goOn) && durable::flush(folderOf(file->first))) {
            ++file;
            continue;
        }
        if (!goOn()) {
            return;
        }
        csys->log->log_item("Read back otherwise than written: " + file->first, logger::LOG_WARNING);
        copyFailed(file->first);
        functs().removeFile(file->first);
        file = copies.erase(file);
    }
}

bool fileUpdate::copyOneFile(std::string source, std::string destination, functs& f) {
    std::cout << "COPY SOURCE " << source << " TO DEST " << destination << std::endl;
    if (csys->cancel) {
        return false;
    }
    if (!mayReplace(source, destination)) {
        return !csys->cancel && copyFailed(destination);
    }
    if (f.isFile(destination) && !f.removeFile(destination)) {
        ++failures;
        csys->log->log_item("Could not remove old file: " + destination, logger::LOG_ERROR);
        return false;
    }
    csys->progress.reading(source);
    if (!plainFile(source, packageRules::UNPACKED).copyTo(destination, [this] { return !csys->cancel; })) {
        return !csys->cancel && copyFailed(destination);
    }
    copies[destination] = source;
    const std::uint64_t stretches = copiedBytes / STRETCH;
    copiedBytes += stepDurations::bytesOf(source);
    csys->progress.reached(copiedBytes, totalBytes);
    if (copiedBytes / STRETCH != stretches) {
        durable::flushAll(folderOf(destination)); // so that there is little left to wait for in the end
    }
    return carryExecutableBits(source, destination); // at once: a later loss of power must find it startable
}

bool fileUpdate::copyDirectory(std::string source, std::string destination, functs& f) {
    std::cout << "COPY SOURCE " << source << " TO DEST " << destination << std::endl;
    std::vector<std::string> names;
    const auto here = identityOf(source);
    const bool leadsBack = std::find(walked.begin(), walked.end(), here) != walked.end();
    if (leadsBack || !plainFile::isWithin(source, packageRules::UNPACKED) || !listVisible(source, names)) {
        ++failures;
        csys->log->log_item("Could not open directory: " + source, logger::LOG_ERROR);
        return false;
    }
    if (!f.isDirectory(destination) && !f.makeDir(destination)) {
        ++failures; // the files go on to say so themselves
        csys->log->log_item("Could not make directory: " + destination, logger::LOG_WARNING);
    }
    walked.push_back(here);
    for (auto name = names.begin(); name != names.end() && !csys->cancel; ++name) {
        const std::string from = source + "/" + *name;
        const std::string to = destination + "/" + *name;
        if (f.isDirectory(from)) {
            copyDirectory(from, to, f);
        } else {
            copyOneFile(from, to, f);
        }
    }
    walked.pop_back();
    return !csys->cancel;
}

/** Gives an installed file its original's executable bits. */
bool fileUpdate::carryExecutableBits(const std::string& source, const std::string& destination) {
    struct stat original {};
    struct stat installed {};
    if (stat(source.c_str(), &original) == 0 && stat(destination.c_str(), &installed) == 0) {
        const mode_t wanted = (installed.st_mode & ~EXECUTABLE) | (original.st_mode & EXECUTABLE);
        if (wanted == installed.st_mode || chmod(destination.c_str(), wanted & PERMISSIONS) == 0) {
            return true;
        }
    }
    ++failures;
    csys->log->log_item("Could not make executable: " + destination, logger::LOG_ERROR);
    return false;
}
