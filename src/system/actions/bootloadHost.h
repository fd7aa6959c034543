#pragma once

#include "../../lib/logger.h"
#include "../busMessages.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

/**
 * What a bootloader dialogue needs of the panel: the wire to the module, the time, the log, and word of the
 * operator. Used by one thread, that of the dialogue.
 */
class bootloadHost {
public:
    using clock = std::chrono::steady_clock;
    using milliseconds = std::chrono::milliseconds;

    virtual ~bootloadHost() = default;

    /** Sends one frame. What came before and was not received yet is forgotten. */
    virtual void send(const busMessages::PROCBUS_MSG& msg) = 0;
    /**
     * The oldest answer that came since the last send() and was not received yet; waits for one in polls of
     * 1 ms, at most `wait` of them. None when none came or the run is cancelled.
     */
    virtual std::optional<busMessages::ANSWER> receive(milliseconds wait) = 0;
    virtual void pause(milliseconds time) = 0;
    virtual clock::time_point now() const = 0;
    /** True once the operator has cancelled: every wait then ends at once, and nothing more is sent. */
    virtual bool cancelled() const = 0;
    virtual void log(const std::string& text, logger::LOG_TYPE type) = 0;
    /** So many of the image's pages or records are done. */
    virtual void progress(std::uint32_t /*done*/, std::uint32_t /*total*/) {}
};
