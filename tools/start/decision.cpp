#include "decision.h"

#include "lib/functs.h"
#include "lib/sha1.h"
#include "system/packageRules.h"

#include <algorithm>
#include <stdexcept>

namespace {

using PROGRAM = startRecord::PROGRAM;
using UNDERWAY = startRecord::UNDERWAY;

const char* const USUAL_NAME = "K+Updater";

std::vector<std::string> resuming(const startRecord& record) {
    std::vector<std::string> mode = {"auto"};
    if (record.underway == UNDERWAY::FORCED) {
        mode.emplace_back("force");
    }
    return mode;
}

/** Counts a start of one that has to prove itself. */
void putOnTrial(Decision& decision) {
    decision.isOnTrial = decision.isNoted = true;
    decision.record.trial = std::max(decision.record.trial, 0) + 1;
}

/** The new one had its chances. It stays where it is until the former one has put itself back. */
Decision giveUp(startRecord record) {
    record.refused = record.coming.isKnown() ? record.coming : record.updater;
    record.coming = record.updater = record.former;
    record.item.clear();
    record.trial = startRecord::PROVEN;
    record.underway = UNDERWAY::NOTHING;
    record.isBack = true;
    Decision decision;
    decision.program = startRecord::FORMER;
    decision.reason = "the new one did not prove itself in two starts";
    decision.isNoted = true;
    decision.record = record;
    return decision;
}

/** A file that nobody has told of: somebody put it there, who may know what he does. */
bool takeUnknown(const PROGRAM& installed, Decision& decision) {
    startRecord& record = decision.record;
    if (record.coming.isKnown()) {
        return false; // what a loss of power has left of the old one or the new one
    }
    decision.program = startRecord::INSTALLED;
    if (!record.updater.isKnown()) {
        decision.reason = "there is no record of what is installed";
        return true;
    }
    decision.reason = "it is not the one that was installed last";
    record.updater = installed;
    putOnTrial(decision);
    return true;
}

/** The installed updater, when it may be started. */
bool takeInstalled(const PROGRAM& installed, Decision& decision) {
    startRecord& record = decision.record;
    if (!installed.isKnown() || installed.is(record.refused)) {
        return false;
    }
    const bool isComing = installed.is(record.coming);
    if (!isComing && !installed.is(record.updater)) {
        return takeUnknown(installed, decision);
    }
    decision.program = startRecord::INSTALLED;
    decision.reason = isComing ? "it is whole, but for the last step of its installation" : "it is whole";
    const bool wasCutShort = record.underway != UNDERWAY::NOTHING && (isComing || !record.coming.isKnown());
    if (wasCutShort && packageIsComplete()) {
        decision.mode = resuming(record);
        decision.reason += ", and an update was cut short";
    }
    if (record.trial != startRecord::PROVEN || isComing) {
        putOnTrial(decision);
    }
    return true;
}

bool takePackaged(Decision& decision) {
    startRecord& record = decision.record;
    const std::string path = packageRules::UNPACKED + (record.item.empty() ? USUAL_NAME : record.item);
    const PROGRAM packaged = startRecord::programAt(path);
    const bool isMeant = !record.coming.isKnown() || packaged.is(record.coming);
    if (!packaged.isKnown() || !isMeant || packaged.is(record.refused) || !packageIsComplete()) {
        return false;
    }
    decision.program = path;
    decision.reason = "the installed one is not whole; the package's puts itself back";
    decision.mode = resuming(record);
    record.coming = {packaged.size, packaged.digest, record.coming.version};
    putOnTrial(decision);
    return true;
}

} // namespace

bool packageIsComplete() {
    functs f;
    if (!f.isFile(packageRules::UNPACKED_MANIFEST) || f.isFile(packageRules::UNPACKING)) {
        return false;
    }
    try {
        return sha1::ofFile(packageRules::UNPACKED_MANIFEST) ==
               packageRules::digestIn(
                   f.getFileContents(packageRules::UNPACKED_MANIFEST + packageRules::DIGEST));
    } catch (const std::runtime_error&) {
        return false;
    }
}

Decision decide(const startRecord& record) {
    const PROGRAM installed = startRecord::programAt(startRecord::INSTALLED);
    const PROGRAM kept = startRecord::programAt(startRecord::FORMER);
    const bool hasFormer = kept.is(record.former);
    if (record.trial >= startRecord::TRIES && hasFormer) {
        return giveUp(record);
    }
    Decision decision;
    decision.record = record;
    if (takeInstalled(installed, decision)) {
        return decision;
    }
    if (takePackaged(decision)) {
        return decision;
    }
    if (hasFormer || (kept.isKnown() && !installed.isKnown())) {
        decision.program = startRecord::FORMER;
        decision.reason = "the installed one is not whole; the last good one puts itself back";
    } else if (installed.isKnown()) {
        decision.program = startRecord::INSTALLED;
        decision.reason = "it is not whole, but there is no other";
    } else {
        decision.reason = "there is no updater, no package and no copy of the last good one";
    }
    return decision;
}
