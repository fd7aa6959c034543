// The bus's part of a recording, played to an updater.
#pragma once

#include "recording.h"

#include <chrono>
#include <ostream>
#include <string>

namespace trace {

// Makes a serial port at `link` and waits for the panel's requests, frame by frame as they were recorded;
// each is answered with what the bus said then, damaged frames and noise included, as long after the request
// as then. What the bus says before the next request comes, comes before it here, too.
//
// A panel that is slower than the recorded one asks again: a repeated request and a status request get the
// last answer again. Recorded ones may be missing. Any other difference ends the replay.
//
// A recording that begins in the middle, since the recorder's memory was used up, is played from the first
// switch to update mode on; where it has none, from the first module on that is asked into its bootloader.
// Until then the replay itself answers the switch, and no module is there.
//
// Blocks until the recording is through (true), or the panel does something else or nothing for `patience`
// (false). Says what it does on `out`; the first line is "LINK -> SLAVE", when the port is ready. Throws
// std::system_error when there is no port to be had, and std::invalid_argument for a recording without times,
// or in which nothing begins.
bool replay(std::ostream& out, const Recording& recording, const std::string& link,
            std::chrono::seconds patience);

} // namespace trace
