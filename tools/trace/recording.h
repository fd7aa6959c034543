// What was recorded of the line between the panel and the bus.
#pragma once

#include "sim/codec.h"

#include <istream>

namespace trace {

enum class Direction { FromPanel, ToPanel, Unknown };

// Bytes that stood together in the recording: a frame, noise, or all of a recording without times.
struct Entry {
    sim::TimePoint when; // 0 when the recording has no times
    Direction direction = Direction::FromPanel;
    sim::Bytes bytes;
    std::string event; // set instead of the bytes: what the simulated bus remarked here
};

struct Recording {
    bool timed = false; // else the raw bytes of a line: no times, and only the frames tell the directions
    std::vector<Entry> entries;
    bool isCut = false; // the text's last line is not finished and was left out
};

// Takes a text that `bus-sim --trace` or the panel has written, whose lines may stand in any order, or else
// the raw bytes of a serial sniffer. A trace may end in the middle of a line. Throws std::invalid_argument
// for a line of a trace that can't be read, and std::runtime_error when there is nothing.
Recording read(std::istream& in);

// A frame, or noise, with what is known of it.
struct Piece {
    sim::TimePoint when;
    Direction direction = Direction::FromPanel;
    sim::Frame frame;
    std::string event; // as in Entry; the frame is empty then
};

// Cuts the recording into frames, in its order.
std::vector<Piece> cut(const Recording& recording);

} // namespace trace
