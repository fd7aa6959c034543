// The recording as a file for Wireshark.
#pragma once

#include "recording.h"

#include <ostream>

namespace trace {

// Writes a packet capture of user-defined link type 0: each frame, or noise, behind one byte that tells the
// direction, 0 from the panel, 1 to it, 2 unknown. Marks are packets of direction 3, their text.
// wireshark.lua takes them apart. The times are those of the day when the recording knows them, else they
// begin at 0.
void writeCapture(std::ostream& out, const Recording& recording);

} // namespace trace
