#pragma once

#include "firmware.h"

#include <cstdint>
#include <string>
#include <vector>

// One update by the real core against the simulated bus, in a sandbox of its own, and what came of it.

/** A module that the package has an image for. */
struct Target {
    std::string name; ///< as the inventory has it
    const Kind* kind;
    std::string inventory = {}; ///< further words
    std::string ignored = {};   ///< address of a page that its bootloader ignores
    Memory image = {};
};

struct Plan {
    std::vector<Target> targets;
    std::vector<std::string> upToDate; ///< modules that answer and have the package's version
    std::vector<std::string> faults;
    std::uint64_t seed = 1;
    int starts = 1; ///< the operator starts so many times, 5 s apart, until it succeeds
};

enum class Outcome {
    EQUAL,   ///< every module is programmed, and its flash equals its image
    FAILED,  ///< the run ended with an error, and the operator was told
    MISSING, ///< the run ended well, but said that it did not find a module
    WRONG,   ///< anything else
};

struct Result {
    Outcome outcome;
    std::string detail;
};

std::uint8_t addressOf(const std::string& module);

/**
 * `simulator` is the program. Leaves the trace, the report and the dumps in "/tmp" and the log in
 * "/keldra/logs". Throws std::exception when it could not even begin.
 */
Result runPanel(const Plan& plan, const std::string& simulator);
