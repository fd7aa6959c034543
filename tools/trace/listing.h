// The recording as a text for people: a line for each frame, and what deserves attention.
#pragma once

#include "recording.h"

#include <ostream>

namespace trace {

struct Summary {
    unsigned frames = 0;
    unsigned damaged = 0; // frames with a wrong CRC or a wrong end
    unsigned noise = 0;   // bytes that belong to no frame
    unsigned silent = 0;  // requests that were followed by another one instead of an answer
    unsigned gaps = 0;
};

// Lists the pieces. A pause of more than `gap` is pointed out, as is a request that stays without an answer.
// A recording without times has no pauses.
Summary list(std::ostream& out, const std::vector<Piece>& pieces, bool timed, std::chrono::milliseconds gap);

void print(std::ostream& out, const Summary& summary);

} // namespace trace
