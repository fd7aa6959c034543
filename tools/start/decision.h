#pragma once

#include "system/startRecord.h"

#include <string>
#include <vector>

/** Which updater is to be started, and why. */
struct Decision {
    std::string program;           ///< empty: there is none that could be
    std::vector<std::string> mode; ///< its first arguments
    std::string reason;
    bool isOnTrial = false; ///< it has not proven itself yet
    bool isNoted = false;   ///< `record` has to be on the card before it is started
    startRecord record;
};

/** Looks at what lies on the panel and at what the record says of it. Changes nothing. */
Decision decide(const startRecord& record);

/** True when all of a package lies unpacked and its manifest is as its digest says. */
bool packageIsComplete();
