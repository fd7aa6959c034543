// One module on the bus: its application, which only enters the bootloader, and the bootloader. How it works
// in time, and what it does where the protocol leaves it a choice, is its temper.
#pragma once

#include "bootloader.h"
#include "inventory.h"
#include "request.h"
#include "scheduler.h"

#include <deque>

namespace sim {

class Module {
public:
    // The field in message 21 of a module that is not there.
    static constexpr std::uint8_t ABSENT_FIELD = 1;

    // Takes a message at the time at which it has left the module.
    using Sink = std::function<void(Message message, TimePoint now)>;

    // scheduler and trace must outlive the module. unasked takes what answers no request.
    Module(ModuleConfig config, Scheduler& scheduler, Trace& trace, Sink unasked);
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;

    // To be called once, first: what it does of its own accord begins.
    void start(TimePoint now);
    // A request that reached the module. Its answer goes to respond: within this call when it takes no time,
    // else out of the scheduler; never when the module stays silent.
    void handle(const Request& request, TimePoint now, const Sink& respond);

    // The system restarts: the module takes up a new program, if it got one, and starts its application. One
    // that is at work does so behind it.
    void restart();
    // The module hears nothing until powerOn, and what it was at is forgotten; afterRequests > 0: it comes
    // back by itself once so many requests have been lost on it.
    void powerOff(unsigned afterRequests = 0);
    // With no page open and in its application.
    void powerOn();

    bool isListening() const { return config_.present && powered_; }
    // Its field in message 21.
    std::uint8_t statusField() const;
    // Message 22; none while no application runs that could send it.
    std::optional<Message> identity() const;

    const ModuleConfig& config() const { return config_; }
    const Version& version() const { return version_; }
    const Flash& flash() const { return config_.flash; }
    Flash& flash() { return config_.flash; }
    Bootloader& bootloader() { return *bootloader_; }
    const Bootloader& bootloader() const { return *bootloader_; }
    const ProtocolLog& log() const { return log_; }
    const char* stateName() const;

private:
    struct Job {
        Request request;
        Sink respond;
        Temper::Answers answers = Temper::Answers::Directly;
    };

    // A request on its way through the module: it waits for the work before it, begins and is finished.
    void hearMeanwhile(Job job, TimePoint now);
    void begin(Job job, TimePoint now);
    void finish(const Job& job, TimePoint now);
    void finishWork(const Job& job, TimePoint now);
    void takeNext(TimePoint now);
    void forgetWork();

    bool obeys(const Request& request);
    bool hasRightLength(const Request& request);
    Temper::Time workTime(const Request& request) const;
    Temper::Answers answersTo(const Request& request) const;
    Reply bootload(const Request& request);
    std::optional<Reply> statusReply();

    void say(const Sink& sink, Message message, TimePoint now);
    Message replyMessage(std::uint8_t messageId, Reply reply) const;
    std::uint8_t replyId() const;
    std::optional<Message> enterBootloader();
    Message identification() const;

    Message identityMessage(std::uint8_t hardware) const;

    void every(Temper::Time period, TimePoint now, const std::function<void(TimePoint due)>& task);
    void babble(TimePoint now);
    void tellIdentity(TimePoint now);

    void startProgram();
    void startApplication();
    void startBootloaderAnew(TimePoint now);
    void countLostRequest();
    void awaitIdleness(TimePoint now);

    ModuleConfig config_;
    const Temper& temper_;
    Scheduler& scheduler_;
    Sink unasked_;
    Version version_;
    ProtocolLog log_;
    std::unique_ptr<Bootloader> bootloader_;
    bool powered_;
    unsigned returnAfter_ = 0; // requests, while without power; 0: never
    unsigned entersHeard_ = 0; // since power came
    bool inBootloader_ = false;
    std::optional<Reply> lastReply_; // since the bootloader started
    std::optional<Reply> owed_; // result that a status request can still fetch, up to the next other request

    bool working_ = false;
    bool restartsBehindWork_ = false;
    std::deque<Job> waiting_; // in the order in which they came
    unsigned life_ = 0;       // work that began in an earlier one is void
    unsigned identitiesTold_ = 0;
    unsigned occasions_ = 0; // on which the session was kept from ending
};

} // namespace sim
