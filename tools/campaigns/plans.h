#pragma once

#include "panelRun.h"

#include <cstdint>
#include <string>
#include <vector>

// What a campaign's runs are, from their seeds.

/** One line of a script: KIND MODULE STARTS OUTCOME[,OUTCOME]... FAULT[; FAULT]... */
struct ScriptCase {
    std::string kind;
    std::string module;
    int starts = 1;
    std::string outcomes; ///< those that are right
    std::vector<std::string> faults;
};

std::vector<ScriptCase> readScript(const std::string& file);

/** One module, by turns of each kind, a share of whose replies is lost, late, doubled or corrupted. */
Plan sharePlan(double share, std::uint64_t seed);
/** The whole panel, with one to four faults of any kind. */
Plan fullPlan(std::uint64_t seed);
Plan scriptPlan(const ScriptCase& entry, std::uint64_t seed);
