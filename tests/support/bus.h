#pragma once

#include "sim/messages.h"
#include "sim/panel/bed.h"

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

using Bytes = sim::Bytes;
using Frame = sim::Message;
using sim::encode;

namespace sim {
std::ostream& operator<<(std::ostream& out, const Message& frame);
}

/** "4B 2B" as bytes. */
Bytes hex(const std::string& text);

// Messages to the panel.
Frame reply(std::uint8_t status, std::uint16_t row, std::uint8_t module);
/** `kind` is the processor; `version` "1.2.3" travels third number first. */
Frame identification(std::uint8_t module, std::uint8_t kind, const std::string& version,
                     std::uint8_t hwRev = 0);

// Requests of the panel.
const Frame ENTER_UPDATE_MODE{16, {2, 0x37}};
const Frame RESTART_SYSTEM{16, {2, 0x21}};
constexpr std::uint8_t ENTER_BOOTLOADER = ',';
constexpr std::uint8_t ON_SERIAL_BOOTLOADER = 0x80; ///< added to an identification's kind

/**
 * Plays the bus processor on a pseudo terminal. A thread of its own takes in what the panel sends at once (a
 * panel that sends again discards what has not been taken) and answers by the rule that was set; without one
 * the bus is silent.
 */
class Bus {
public:
    using Rule = std::function<std::vector<Frame>(const Frame& request)>;

    Bus();
    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;
    ~Bus();

    const std::string& port() const { return terminal_.name(); }

    void feed(const Frame& frame) { feed(encode(frame)); }
    void feed(const Bytes& bytes);
    /** From now on each request is answered with the frames that the rule returns (on the bus's thread). */
    void autoAnswer(Rule rule);

    /** All bytes and all frames that the panel has sent so far. */
    Bytes sentBytes();
    std::vector<Frame> sent();
    /** Waits until `count` frames were sent; false after `seconds` without them. */
    bool awaitSent(std::size_t count, int seconds = 20);

    /**
     * A bus that answers at once: system commands with status 0, and a module asked into its bootloader with
     * an identification that says it sits on the other bootloader. The update run finds no module at all.
     */
    static std::vector<Frame> noModules(const Frame& request);

private:
    void listen();
    void takeFrames();

    panel::Terminal terminal_;
    int wake_[2] = {-1, -1};
    std::mutex guard_;
    std::condition_variable changed_;
    Rule answerTo_;
    Bytes line_;
    std::size_t parsed_ = 0; ///< bytes of `line` that `frames` covers
    std::vector<Frame> frames_;
    std::thread listener_;
};
