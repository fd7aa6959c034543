#pragma once

#include "sim/busProcessor.h"
#include "system/actions/bootloadHost.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

// The bus in a time of its own: nothing here waits, so that an image is flashed in a few milliseconds.

/**
 * The modules behind the simulated bus processor, and the serial line to the panel with the pace of a UART.
 */
class VirtualBus {
public:
    using clock = bootloadHost::clock;

    /** No dialogue may take longer: one that does never ends. */
    static constexpr std::chrono::minutes LONGEST{30};
    class Endless : public std::runtime_error {
        using runtime_error::runtime_error;
    };

    struct Settings {
        std::vector<sim::ModuleConfig> modules;
        std::vector<std::string> faults; ///< lines of the simulator's fault script
        std::uint64_t seed = 1;          ///< of the faults
        double damage = 0;               ///< share of a line's bytes that are flipped, left out or added
        unsigned baud = 115200;
        std::string trace; ///< a file, "-" for standard output; empty for none
    };

    /** Throws std::exception for a fault or a trace it can't use. */
    explicit VirtualBus(Settings settings);
    VirtualBus(const VirtualBus&) = delete;
    VirtualBus& operator=(const VirtualBus&) = delete;

    clock::time_point now() const { return time_; }
    /** Puts a frame on the line to the bus, behind those that are on it. Takes no time. */
    void send(const busMessages::PROCBUS_MSG& msg);
    /** Lets time go by. Throws endless when it has gone by for too long, as send() does. */
    void advance(clock::time_point until);
    /** The same, but stops as soon as an answer is there. */
    void awaitAnswer(clock::time_point until);

    /** Answers that have come and were not taken, the oldest first. */
    std::deque<busMessages::ANSWER> answers;

    const std::vector<std::unique_ptr<sim::Module>>& modules() const { return bus_.modules(); }
    sim::Trace& trace() { return record_; }

private:
    using Hearing = std::function<void(const sim::Frame&, sim::TimePoint)>;

    bool step(clock::time_point until);
    void carry(const sim::Bytes& frame, clock::time_point earliest);
    clock::time_point pass(const sim::Bytes& bytes, clock::time_point begin, sim::Decoder& end,
                           const Hearing& hear);
    void take(const sim::Frame& frame);
    sim::Bytes damaged(const sim::Bytes& bytes);
    clock::duration duration(std::size_t bytes) const;
    void checkLimit(clock::time_point when) const;

    const clock::time_point start_{std::chrono::hours(1)};
    clock::time_point time_ = start_;
    clock::time_point fromPanelFree_ = start_; ///< when a direction has carried all that is on it
    clock::time_point toPanelFree_ = start_;
    unsigned baud_;
    double damage_;
    std::mt19937_64 random_;
    sim::Trace record_;
    sim::FaultScript faults_;
    sim::Scheduler scheduler_;
    sim::Decoder fromPanel_;
    sim::Decoder toPanel_;
    sim::BusProcessor bus_;
};

/** The panel's side of a virtual bus. */
class VirtualHost : public bootloadHost {
public:
    /** `exchangeTime` passes with every request: what the panel itself takes. */
    explicit VirtualHost(VirtualBus& carrier, std::chrono::microseconds exchangeTime = {})
        : bus_(carrier), perExchange_(exchangeTime) {}

    void send(const busMessages::PROCBUS_MSG& msg) override;
    std::optional<busMessages::ANSWER> receive(milliseconds wait) override;
    void pause(milliseconds time) override { bus_.advance(bus_.now() + time); }
    clock::time_point now() const override { return bus_.now(); }
    bool cancelled() const override { return false; }
    void log(const std::string& text, logger::LOG_TYPE type) override;

    std::vector<std::string> logged;
    bool warned = false; ///< there was a warning or an error among it
    std::vector<busMessages::PROCBUS_MSG> sent;

private:
    VirtualBus& bus_;
    std::chrono::microseconds perExchange_;
};
