#pragma once

#include "plans.h"

#include <string>

// One update by the real core against the simulated bus, in a sandbox of its own, and what came of it.

struct Result {
    Outcome outcome;
    std::string detail;
};

/**
 * `simulator` is the program. Leaves the trace, the report and the dumps in "/tmp" and the log in
 * "/keldra/logs". Throws std::exception when it could not even begin.
 */
Result runPanel(const Plan& plan, const std::string& simulator);
