// One module on the bus: its application, which only enters the bootloader, and the bootloader.
#pragma once

#include "bootloader.h"
#include "inventory.h"
#include "request.h"

namespace sim {

class Module {
public:
    // The field in message 21 of a module that is not there.
    static constexpr std::uint8_t absentField = 1;

    Module(ModuleConfig config, Trace& trace);
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;

    // The answer to a request that reached the module; none when it stays silent.
    std::optional<Message> handle(const Request& request, TimePoint now);
    // What answers request as the module would, but with this content.
    Message answerWith(Reply reply, RequestKind request) const;

    // The system restarts: the module takes up a new program, if it got one, and starts its application.
    void restart();
    // The module hears nothing until powerOn; afterRequests > 0: it comes back by itself once so many
    // requests have been lost on it.
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
    std::optional<Message> answer(const Request& request);
    std::optional<Message> enterBootloader();
    void startApplication();
    void countLostRequest();
    Reply bootload(const Request& request);
    bool hasRightLength(const Request& request);
    std::uint8_t replyId() const;

    ModuleConfig config_;
    Version version_;
    ProtocolLog log_;
    std::unique_ptr<Bootloader> bootloader_;
    bool powered_;
    unsigned returnAfter_ = 0; // requests, while without power; 0: never
    bool inBootloader_ = false;
    std::optional<Reply> lastReply_; // since the bootloader started
};

} // namespace sim
