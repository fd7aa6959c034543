#include "updaterUpdate.h"

#include "../../lib/durable.h"
#include "../../lib/plainFile.h"
#include "../packageRules.h"
#include "../programFile.h"
#include "../stepDurations.h"
#include "packageFile.h"
#include "programTrial.h"

#include <cstdio>
#include <filesystem>
#include <sys/stat.h>

namespace fs = std::filesystem;

namespace {

using PROGRAM = startRecord::PROGRAM;

const fs::path PROGRAM_NAME = fs::path(startRecord::INSTALLED).filename();
constexpr std::uint64_t MARGIN = 64 * 1024; // for what else goes to the card meanwhile

bool hasRoomFor(std::uint64_t bytes, const fs::path& folder) {
    const std::uint64_t room = durable::freeBytes(folder).value_or(UINT64_MAX);
    return room >= MARGIN && room - MARGIN >= bytes;
}

/** Reads it only when it is as long as the one that is looked for: it may have any size. */
bool isThat(const std::string& path, const PROGRAM& known) {
    return plainFile(path, packageRules::UNPACKED).size() == known.size &&
           startRecord::contentOf(path).is(known);
}

} // namespace

/**
 * The new updater's name in the package; empty when the item brings none to where updaters are started from.
 */
std::string updaterUpdate::nameOfProgram() const {
    const std::string& item = base->update.items[revision()].item;
    if (packageRules::standsForNoFile(item) || packageRules::leadsOutside(item)) {
        return "";
    }
    functs f;
    if (f.isDirectory(packageRules::UNPACKED + item)) {
        const std::string name = item + "/" + PROGRAM_NAME.string();
        return f.isFile(packageRules::UNPACKED + name) ? name : "";
    }
    return fs::path("/" + item).lexically_normal() == "/" / PROGRAM_NAME ? item : "";
}

action::STATUS updaterUpdate::needsUpdate(bool force) {
    const STATUS status = fileUpdate::needsUpdate(force);
    if (status != GOUPDATE || force || !startRecord::isKept()) {
        return status;
    }
    const std::string name = nameOfProgram();
    const PROGRAM refused = startRecord::load().refused;
    if (name.empty() || !isThat(packageRules::UNPACKED + name, refused)) {
        return status;
    }
    csys->log->log_item("This package's updater did not start: it is left out", logger::LOG_WARNING);
    return NOUPDATE;
}

bool updaterUpdate::run() {
    const std::string name = nameOfProgram();
    const std::string path = packageRules::UNPACKED + name;
    if (name.empty() || !plainFile(path, packageRules::UNPACKED).isOpen()) {
        return fileUpdate::run(); // which says what is wrong with it, and removes nothing
    }
    if (!startRecord::isKept()) {
        return (!programFile::isMachineCode(path) || isFit(path)) && fileUpdate::run();
    }
    return isFit(path) && prepare(name) && conclude(fileUpdate::run());
}

/** The costly last: what has no room is not read, and what was changed is not started. */
bool updaterUpdate::isFit(const std::string& path) {
    const std::string item = packageRules::UNPACKED + base->update.items[revision()].item;
    if (!hasRoomFor(stepDurations::bytesOf(item), fs::path(startRecord::INSTALLED).parent_path())) {
        return fail("No room for the new updater");
    }
    if (!packageFile::isSound(*csys, path)) {
        return !csys->cancel && copyFailed(startRecord::INSTALLED);
    }
    const std::string objection = programTrial::objection(path, csys->cancel);
    if (csys->cancel) {
        return false;
    }
    return objection.empty() || fail("The new updater would not run here: " + objection);
}

/** Everything that must be on the card before the old one is removed. */
bool updaterUpdate::prepare(const std::string& name) {
    startRecord record = startRecord::load();
    if (!keepFormer(record)) {
        return fail("Could not keep the former updater");
    }
    record.coming = startRecord::contentOf(packageRules::UNPACKED + name, [this] { return !csys->cancel; });
    if (csys->cancel) {
        return false;
    }
    record.coming.version = base->update.items[revision()].version;
    record.item = name;
    record.trial = startRecord::PROVEN;
    record.refused = {};
    record.isBack = false;
    record.underway = csys->forceUpdate ? startRecord::UNDERWAY::FORCED : startRecord::UNDERWAY::UPDATE;
    return startRecord::change([&record](startRecord& kept) { kept = record; }) ||
           fail("Could not note the new updater");
}

/** The last good one is this one, unless it is still on trial. */
bool updaterUpdate::keepFormer(startRecord& record) {
    record.updater = startRecord::programAt(startRecord::INSTALLED);
    record.updater.version = base->swVersion;
    const bool hasGoodOne = startRecord::programAt(startRecord::FORMER).is(record.former);
    if (hasGoodOne && (record.trial != startRecord::PROVEN || record.former.is(record.updater))) {
        return true;
    }
    functs f;
    const std::string copy = startRecord::FORMER + ".new";
    f.removeFile(copy); // of a copy that was cut
    if (!hasRoomFor(record.updater.size, startRecord::FOLDER) ||
        !f.copyFile(startRecord::INSTALLED, copy, true) || chmod(copy.c_str(), 0755) != 0 ||
        !durable::flush(copy) || !startRecord::programAt(copy).is(record.updater) ||
        std::rename(copy.c_str(), startRecord::FORMER.c_str()) != 0) {
        f.removeFile(copy);
        return false;
    }
    record.former = record.updater;
    return durable::flush(startRecord::FOLDER);
}

bool updaterUpdate::putBack(const std::string& source) {
    functs f;
    f.removeFile(startRecord::INSTALLED);
    return f.copyFile(source, startRecord::INSTALLED, true) &&
           chmod(startRecord::INSTALLED.c_str(), 0755) == 0 && durable::flushAll(startRecord::INSTALLED) &&
           startRecord::programAt(startRecord::INSTALLED).is(startRecord::contentOf(source));
}

/** Settles what is there now: the new one, or else the old one again. */
bool updaterUpdate::conclude(bool copied) {
    const startRecord record = startRecord::load();
    const PROGRAM installed = startRecord::programAt(startRecord::INSTALLED);
    const bool arrived = installed.is(record.coming) && durable::flushAll(startRecord::INSTALLED);
    PROGRAM now = arrived ? record.coming : record.updater;
    if (!arrived && !installed.is(record.updater)) {
        if (!putBack(startRecord::FORMER)) {
            return false; // the record stays as it is, for the starter
        }
        now = record.former;
    }
    if (!copied) { // the program may be there, but not all that comes with it
        now.version = record.updater.version;
    }
    startRecord::change([&now, arrived](startRecord& kept) {
        kept.updater = now;
        kept.coming = {};
        kept.trial = arrived ? 0 : startRecord::PROVEN;
    });
    return copied && arrived;
}

bool updaterUpdate::fail(const std::string& text) {
    csys->log->log_item(text, logger::LOG_ERROR);
    return false;
}
