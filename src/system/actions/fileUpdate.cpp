#include "fileUpdate.h"

#include "../packageRules.h"
#include "../runForecast.h"

#include <algorithm>
#include <dirent.h>
#include <iostream>
#include <sys/stat.h>
#include <vector>

namespace {

constexpr mode_t EXECUTABLE = S_IXUSR | S_IXGRP | S_IXOTH;
constexpr mode_t PERMISSIONS = 07777;

/** The names in a directory that are not hidden, in the file system's order; false when it can't be listed.
 */
bool listVisible(const std::string& directory, std::vector<std::string>& names) {
    DIR* dir = opendir(directory.c_str());
    if (dir == nullptr) {
        return false;
    }
    while (const dirent* entry = readdir(dir)) {
        if (entry->d_name[0] != '.') {
            names.emplace_back(entry->d_name);
        }
    }
    closedir(dir);
    return true;
}

/** Tells a directory under whatever name it is met. */
std::pair<dev_t, ino_t> identityOf(const std::string& directory) {
    struct stat info {};
    stat(directory.c_str(), &info);
    return {info.st_dev, info.st_ino};
}

bool sameSize(const std::string& one, const std::string& other) {
    struct stat a {};
    struct stat b {};
    return stat(one.c_str(), &a) == 0 && stat(other.c_str(), &b) == 0 && a.st_size == b.st_size;
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
    totalBytes = runForecast::bytesOf(source);
    copiedBytes = 0;
    csys->progress.write(runProgress::KIND::BYTES, totalBytes, runForecast::secondsOfBytes(totalBytes));
    bool copied = false;
    if (f.isDirectory(source)) {
        std::cout << "Copy Directory" << std::endl;
        copied = copyDirectory(source, configInstallPath, f);
    } else {
        std::cout << "Copy File" << std::endl;
        copied = copyOneFile(source, destination, f);
    }
    if (!copied) {
        return false;
    }
    if (csys->cancel) {
        return false; // a replaced updater would restart and go on by itself
    }
    base->swVersion = entry.version;
    return true;
}

bool fileUpdate::copyFailed(const std::string& destination) {
    csys->log->log_item("Could not copy new file " + destination, logger::LOG_ERROR);
    return false;
}

bool fileUpdate::copyOneFile(std::string source, std::string destination, functs& f) {
    std::cout << "COPY SOURCE " << source << " TO DEST " << destination << std::endl;
    if (csys->cancel) {
        return false;
    }
    if (f.isFile(destination) && !f.removeFile(destination)) {
        csys->log->log_item("Could not remove old file: " + destination, logger::LOG_ERROR);
        return false;
    }
    csys->progress.reading(source);
    // Only a regular file is copied (a named pipe would never end), and only a whole copy counts: a full card
    // shows nowhere else.
    if (!f.isFile(source) || !f.copyFile(source, destination, true) || !sameSize(source, destination)) {
        return copyFailed(destination);
    }
    copiedBytes += runForecast::bytesOf(source);
    csys->progress.reached(copiedBytes, totalBytes);
    return carryExecutableBits(source, destination); // at once: a later loss of power must find it startable
}

bool fileUpdate::copyDirectory(std::string source, std::string destination, functs& f) {
    std::cout << "COPY SOURCE " << source << " TO DEST " << destination << std::endl;
    std::vector<std::string> names;
    const auto here = identityOf(source);
    const bool leadsBack = std::find(walked.begin(), walked.end(), here) != walked.end();
    if (leadsBack || !listVisible(source, names)) {
        csys->log->log_item("Could not open directory: " + source, logger::LOG_ERROR);
        return false;
    }
    if (!f.isDirectory(destination)) {
        f.makeDir(destination);
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
    csys->log->log_item("Could not make executable: " + destination, logger::LOG_ERROR);
    return false;
}
