// The serial line: a pseudo terminal whose slave end the panel opens, with the pace of a UART on top.
#pragma once

#include "text.h"

#include <deque>
#include <functional>
#include <optional>

namespace sim {

// Owns both ends of the pseudo terminal and the link to the slave. It keeps the slave open, so that the panel
// may close and reopen its port. Used by one thread only; nothing here blocks.
class Line {
public:
    // Sets the slave raw and open to everyone. baud 0: bytes take no time. Throws std::system_error when
    // there is no terminal to be had, or when link exists and is no symbolic link.
    Line(std::string link, unsigned baud);
    ~Line(); // removes the link, unless it points elsewhere by now
    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;

    int fd() const { return master_; } // readable when the panel has sent something
    const std::string& slaveName() const { return slaveName_; }

    // Takes everything the panel has sent; sink gets each byte with the time at which its stop bit has
    // passed.
    void receive(TimePoint now, const std::function<void(std::uint8_t, TimePoint)>& sink);

    // Queues bytes behind those that wait already; the first start bit comes no earlier than start.
    void send(Bytes bytes, TimePoint start);
    // When transmit is to be called next; none when nothing waits.
    std::optional<TimePoint> nextDeadline() const;
    // Writes the bytes that are due; sent gets each send's bytes with the time of their last stop bit. lost
    // gets the number of bytes for which the panel left no room.
    void transmit(TimePoint now, const std::function<void(const Bytes&, TimePoint)>& sent,
                  const std::function<void(std::size_t, TimePoint)>& lost);

private:
    struct Outgoing {
        Bytes bytes;
        TimePoint start;
        std::size_t written;
    };

    void openTerminal();
    void placeLink() const;
    void close();
    TimePoint after(TimePoint start, std::size_t bytes) const;
    std::size_t due(const Outgoing& outgoing, TimePoint now) const;

    std::string link_;
    unsigned baud_;
    int master_ = -1;
    int slave_ = -1;
    std::string slaveName_;
    TimePoint receiveFree_;  // when the direction from the panel has carried all bytes read so far
    TimePoint transmitFree_; // the same for all bytes queued to the panel
    std::deque<Outgoing> outgoing_;
};

} // namespace sim
