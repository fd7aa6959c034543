#include "decision.h"

#include "lib/functs.h"
#include "lib/sha1.h"
#include "system/packageRules.h"
#include "system/programFile.h"

#include <algorithm>
#include <stdexcept>

namespace {

using PROGRAM = startRecord::PROGRAM;
using UNDERWAY = startRecord::UNDERWAY;

const char* const USUAL_NAME = "K+Updater";
const std::string NOT_WHOLE = "the installed one is not known to be whole; ";

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

/** Where no record tells of any: somebody put it there, who may know what he does. */
bool takeUnrecorded(Decision& decision) {
    const startRecord& record = decision.record;
    if (record.updater.isKnown() || record.coming.isKnown() ||
        !programFile::objection(startRecord::INSTALLED).empty()) {
        return false;
    }
    decision.program = startRecord::INSTALLED;
    decision.reason = "there is no record of what is installed";
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
        return takeUnrecorded(decision);
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
    const bool isMeant =
        record.coming.isKnown() ? packaged.is(record.coming) : programFile::objection(path).empty();
    if (!packaged.isKnown() || !isMeant || packaged.is(record.refused) || !packageIsComplete()) {
        return false;
    }
    decision.program = path;
    decision.reason = NOT_WHOLE + "the package's puts itself back";
    decision.mode = resuming(record);
    record.coming = {packaged.size, packaged.digest, record.coming.version};
    putOnTrial(decision);
    return true;
}

bool takeFormer(const PROGRAM& kept, Decision& decision) {
    const startRecord& record = decision.record;
    const bool isGood = kept.is(record.former) || kept.is(record.updater); // copied before it is noted
    if (!isGood && (!kept.isKnown() || !programFile::objection(startRecord::FORMER).empty())) {
        return false;
    }
    decision.program = startRecord::FORMER;
    decision.reason = isGood ? NOT_WHOLE + "the last good one puts itself back"
                             : NOT_WHOLE + "the copy of another, which no record tells of, takes its place";
    return true;
}

/** What is not known to be whole is still better than none. */
void takeTheOnlyOne(const PROGRAM& installed, Decision& decision) {
    if (!installed.isKnown()) {
        decision.reason = "there is no updater, no package and no copy of the last good one";
        return;
    }
    const std::string objection = programFile::objection(startRecord::INSTALLED);
    decision.program = startRecord::INSTALLED;
    decision.reason = (objection.empty() ? "it is not the one that was installed last" : objection) +
                      ", but there is no other";
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
    if (record.trial >= startRecord::TRIES && kept.is(record.former)) {
        return giveUp(record);
    }
    Decision decision;
    decision.record = record;
    if (!takeInstalled(installed, decision) && !takePackaged(decision) && !takeFormer(kept, decision)) {
        takeTheOnlyOne(installed, decision);
    }
    return decision;
}
