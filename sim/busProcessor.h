// The bus processor: answers the system commands, relays everything else to the modules and their answers
// back, and tells of the modules from time to time. Faults strike on its way between panel and module.
#pragma once

#include "faults.h"
#include "module.h"
#include "scheduler.h"

namespace sim {

// Used by one thread only; all work that lies ahead goes through the scheduler. It asks no clock: whoever
// drives it hands in the time, which may be a made-up one that never falls.
class BusProcessor {
public:
    // Puts a frame on the line to the panel, its first bit not before start.
    using Sender = std::function<void(Bytes frame, TimePoint start)>;

    struct Timing {
        std::chrono::microseconds relayDelay{0};
        std::chrono::milliseconds statusPeriod{1000}; // 0: no messages 21 and 22
    };

    struct Counters {
        unsigned received = 0; // whole frames from the panel
        unsigned damaged = 0;  // frames with a bad CRC or closing
        unsigned sent = 0;     // frames to the panel
    };

    // scheduler, faults and trace must outlive the bus processor.
    BusProcessor(std::vector<ModuleConfig> inventory, FaultScript& faults, Scheduler& scheduler, Trace& trace,
                 Sender sender, Timing timing);

    // To be called once, first.
    void start(TimePoint now);
    // A frame, or noise, whose last bit arrived at now.
    void receive(const Frame& frame, TimePoint now);

    const std::vector<std::unique_ptr<Module>>& modules() const { return modules_; }
    const ProtocolLog& log() const { return log_; }
    const Counters& counters() const { return counters_; }

private:
    void relay(const Frame& frame, const Request& request, TimePoint now);
    Module* find(std::uint8_t address) const;
    Module* route(const Request& request);
    void ask(const Request& request, Module* module, TimePoint now, const Module::Sink& respond);
    Message answerItself(const Request& request);
    void restartSystem();
    bool reaches(const std::vector<Fault*>& faults, Module* module, TimePoint now);
    bool staysWhole(const Frame& frame, const std::vector<Fault*>& faults, TimePoint now);
    void prepare(const std::vector<Fault*>& faults, const Request& request, Module* module, TimePoint now);
    void switchOff(Fault& fault, Module& module, TimePoint now);
    void deliver(Message reply, const std::vector<Fault*>& faults, TimePoint now);
    void inject(Fault& fault, TimePoint now);
    void tellOfModules(TimePoint now);
    Message moduleStatus() const;
    void send(const Bytes& frame, TimePoint start);

    FaultScript& faults_;
    Scheduler& scheduler_;
    Trace& trace_;
    Sender sender_;
    Timing timing_;
    ProtocolLog log_;
    std::vector<std::unique_ptr<Module>> modules_;
    Counters counters_;
    bool updateMode_ = false;
    bool answeredItself_ = false; // the last request but for status requests was the bus processor's own
    Module* addressed_ = nullptr; // rows go to the module that was addressed last
};

} // namespace sim
