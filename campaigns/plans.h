#pragma once

#include "firmware.h"
#include "results.h"
#include "system/modules.h"

#include <cstdint>
#include <string>
#include <vector>

// What a campaign's runs are, from their seeds, and how they may end.

/** A module that the package has an image for. */
struct Target {
    std::string name; ///< as the inventory has it
    const Kind* kind;
    std::string inventory = {}; ///< further words
    std::string ignored = {};   ///< address of a page that its bootloader ignores
    bool smallPages = false;    ///< the pages of its image have a single row
    Memory image = {};
    /** Of the package for hardware revision 1, when the module reports now this one, now revision 0. */
    Memory secondImage = {};
};

struct Plan {
    std::vector<Target> targets;
    std::vector<std::string> upToDate; ///< modules that answer and have the package's version
    std::vector<std::string> faults;
    double lineDamage = 0; ///< share of the bytes on the line, by programs that have it in their hands
    std::uint64_t seed = 1;
    int starts = 1; ///< the operator starts so many times, 5 s apart, until it succeeds
};

/** The version of all images; modules to update have an older one. */
constexpr const char* PACKAGE_VERSION = "2.0.0";
constexpr const char* SECOND_VERSION = "2.0.1"; // of the second images
/** What the simulator's inventory says of the modules, a line for each. */
std::vector<std::string> inventoryOf(const Plan& plan);

/** One line of a script: KIND MODULE STARTS OUTCOME[,OUTCOME]... [KEY=VALUE]... [FAULT[; FAULT]...] */
struct ScriptCase {
    std::string text;
    std::string kind;
    std::string module;
    int starts = 1;
    std::string outcomes; ///< those that are right
    std::string words;    ///< of the module's inventory
    bool smallPages = false;
    double lineDamage = 0;
    std::vector<std::string> faults;
};

std::vector<ScriptCase> readScript(const std::string& file);

// One module, by turns of each kind.

/** A share of its replies is lost, late, doubled or corrupted. */
Plan sharePlan(double share, std::uint64_t seed);
/** One to four faults of any kind. */
Plan mixedPlan(std::uint64_t seed);
/** Requests are lost, 5 to 20 % of them, and of the replies `share` is as in sharePlan(). */
Plan lossPlan(double share, std::uint64_t seed);
/** Bytes are damaged on the line, 0.05 to 1 % of them. */
Plan linePlan(std::uint64_t seed);

/** The whole panel, with one to four faults of any kind. */
Plan fullPlan(std::uint64_t seed);
Plan scriptPlan(const ScriptCase& entry, std::uint64_t seed);
