// The recording as a report: how the line to each module was, in figures and in words.
#pragma once

#include "recording.h"

#include <ostream>

namespace trace {

// A line for each visit of a module, in their order: what a technician wants to know of the line to it. The
// bus processor's own answers count for the module that is asked.
void summarize(std::ostream& out, const Recording& recording);

} // namespace trace
