// The trace of the line, a line of text each, and the record of what broke the protocol.
//
//   SECONDS.MICROSECONDS > HEX NAME FIELDS    from the panel
//   SECONDS.MICROSECONDS < HEX NAME FIELDS    to the panel
//   SECONDS.MICROSECONDS ! TEXT               anything else worth knowing
//
// The time counts from the start of the program to the last stop bit. HEX is everything that was on the line,
// in upper case digits without separators. NAME is noise for bytes outside a frame; the word CRC-ERROR or
// CLOSING-ERROR ends the line of a frame that is wrong there.
#pragma once

#include "codec.h"

#include <fstream>

namespace sim {

class Trace {
public:
    // Writes to the named file, "-" for standard output; nowhere when the name is empty. Throws
    // std::runtime_error when the file can't be opened.
    Trace(const std::string& file, TimePoint start);

    void received(const Frame& frame, TimePoint when) { line('>', frame, when); }
    void sent(const Bytes& bytes, TimePoint when);
    void event(TimePoint when, const std::string& text);
    // SECONDS.MICROSECONDS as in the trace.
    std::string stamp(TimePoint when) const;

private:
    void line(char direction, const Frame& frame, TimePoint when);

    TimePoint start_;
    std::ofstream file_;
    std::ostream* stream_ = nullptr;
};

// What the panel did against the protocol, as one part of the bus saw it.
class ProtocolLog {
public:
    struct Entry {
        TimePoint when;
        std::string text;
    };

    ProtocolLog(std::string owner, Trace& trace) : owner_(std::move(owner)), trace_(trace) {}
    void setTime(TimePoint now) { now_ = now; }
    void add(const std::string& text);
    const std::vector<Entry>& entries() const { return entries_; }

private:
    std::string owner_;
    Trace& trace_;
    TimePoint now_;
    std::vector<Entry> entries_;
};

} // namespace sim
