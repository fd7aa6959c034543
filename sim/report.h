// What is left behind of a run: the report and the dumps of the modules' flash. Formats in README.md.
#pragma once

#include "busProcessor.h"

namespace sim {

// Replaces the file as a whole; "-" prints to standard output. Throws std::runtime_error.
void writeReport(const std::string& file, const BusProcessor& bus, const FaultScript& faults,
                 const Trace& trace);

// NAME.hex for every module that is present. Throws std::runtime_error.
void writeDumps(const std::string& directory, const BusProcessor& bus);

} // namespace sim
