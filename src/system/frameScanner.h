#pragma once

#include "busMessages.h"

#include <cstdint>
#include <functional>

/** Finds the frames in what came from the bus (docs/bus-protocol.md). Pure: the buffer is the caller's. */
namespace frameScanner {

struct SCANNED {
    std::uint32_t consumed; ///< bytes at the buffer's start that are not needed any more
    std::uint32_t missing;  ///< bytes of a frame's CRC that are all it still lacks; 0: more, or no frame
};

/** Called for each frame that is complete, its CRC not yet compared, and where its last CRC byte stands. */
using TAKE = std::function<void(const busMessages::PROCBUS_MSG& msg, std::uint32_t last)>;

/** Begins outside of every frame. A frame that is not complete is kept whole, to be scanned again. */
SCANNED scan(const std::uint8_t* buffer, std::uint32_t held, const TAKE& take);

} // namespace frameScanner
