#include "busProcessor.h"

#include <algorithm>

namespace sim {

namespace {

// It strikes a message, not the module.
bool isOnTheWay(const Fault& fault) {
    return fault.kind() >= FaultKind::Lost;
}

bool isReplyFault(const Fault& fault) {
    return isOnTheWay(fault) && !fault.damagesRequest();
}

// Whether a frame that was damaged on its way still says what it was sent to say.
bool says(const Bytes& bytes, const Message& message) {
    Decoder decoder;
    for (const std::uint8_t byte : bytes)
        for (const Frame& frame : decoder.feed(byte, TimePoint()))
            if (frame.kind != Frame::Kind::Noise && frame.kind != Frame::Kind::BadCrc)
                return frame.message.id == message.id && frame.message.payload == message.payload;
    return false;
}

} // namespace

BusProcessor::BusProcessor(std::vector<ModuleConfig> inventory, FaultScript& faults, Scheduler& scheduler,
                           Trace& trace, Sender sender, Timing timing)
    : faults_(faults),
      scheduler_(scheduler),
      trace_(trace),
      sender_(std::move(sender)),
      timing_(timing),
      log_("bus", trace) {
    for (ModuleConfig& config : inventory)
        modules_.push_back(
            std::make_unique<Module>(std::move(config), scheduler, trace,
                                     [this](const Message& m, TimePoint when) { send(encode(m), when); }));
}

void BusProcessor::start(TimePoint now) {
    for (const auto& module : modules_)
        module->start(now);
    if (timing_.statusPeriod.count() > 0)
        tellOfModules(now);
}

void BusProcessor::receive(const Frame& frame, TimePoint now) {
    trace_.received(frame, now);
    log_.setTime(now);
    if (frame.kind == Frame::Kind::Noise) {
        log_.add(format("%u bytes outside a frame", static_cast<unsigned>(frame.raw.size())));
        return;
    }
    ++counters_.received;
    if (frame.kind != Frame::Kind::Good) {
        ++counters_.damaged;
        log_.add("damaged frame " + toHex(frame.raw));
    }
    if (frame.kind == Frame::Kind::BadCrc)
        return;
    const ParsedRequest parsed = parseRequest(frame.message);
    if (!parsed.breach.empty())
        log_.add(parsed.breach);
    if (!parsed.request)
        return;
    scheduler_.at(now + timing_.relayDelay,
                  [this, frame, request = *parsed.request](TimePoint due) { relay(frame, request, due); });
}

void BusProcessor::relay(const Frame& frame, const Request& request, TimePoint now) {
    Module* const module = route(request);
    std::vector<Fault*> faults;
    if (module == nullptr || module->isListening())
        faults = faults_.strike(module == nullptr ? request.module : module->config().address, request);
    if (!reaches(faults, module, now) || !staysWhole(frame, faults, now))
        return;
    prepare(faults, request, module, now);
    ask(request, module, now,
        [this, faults](Message reply, TimePoint when) { deliver(std::move(reply), faults, when); });
}

Module* BusProcessor::find(std::uint8_t address) const {
    const auto found = std::find_if(modules_.begin(), modules_.end(), [address](const auto& module) {
        return address != 0 && module->config().address == address;
    });
    return found == modules_.end() ? nullptr : found->get();
}

Module* BusProcessor::route(const Request& request) {
    if (request.kind == RequestKind::UpdateMode || request.kind == RequestKind::SystemRestart)
        return nullptr;
    if (request.kind != RequestKind::DataRow)
        addressed_ = find(request.module);
    return addressed_;
}

void BusProcessor::ask(const Request& request, Module* module, TimePoint now, const Module::Sink& respond) {
    const bool repeat =
        answeredItself_ && request.kind == RequestKind::Status && request.module == CONTROL_MODULE;
    const bool own = request.kind == RequestKind::UpdateMode || request.kind == RequestKind::SystemRestart;
    answeredItself_ = own || repeat;
    if (answeredItself_)
        respond(answerItself(request), now);
    else if (module != nullptr)
        module->handle(request, now, respond);
}

Message BusProcessor::answerItself(const Request& request) {
    if (request.kind == RequestKind::UpdateMode)
        updateMode_ = true;
    if (request.kind == RequestKind::SystemRestart)
        restartSystem();
    return makeReply(id::REPLY, {}, CONTROL_MODULE);
}

void BusProcessor::restartSystem() {
    updateMode_ = false;
    for (const auto& module : modules_)
        module->restart();
}

bool BusProcessor::reaches(const std::vector<Fault*>& faults, Module* module, TimePoint now) {
    bool arrives = true;
    for (Fault* fault : faults) {
        const bool isPower = fault->kind() == FaultKind::Silent || fault->kind() == FaultKind::PowerCycle;
        if (fault->kind() != FaultKind::LostRequest && (!isPower || module == nullptr))
            continue;
        inject(*fault, now);
        if (isPower)
            switchOff(*fault, *module, now);
        arrives = false;
    }
    return arrives;
}

bool BusProcessor::staysWhole(const Frame& frame, const std::vector<Fault*>& faults, TimePoint now) {
    Bytes bytes = frame.raw;
    for (Fault* fault : faults) {
        if (!fault->damagesRequest())
            continue;
        inject(*fault, now);
        fault->corrupt(bytes);
    }
    return bytes == frame.raw || says(bytes, frame.message);
}

void BusProcessor::switchOff(Fault& fault, Module& module, TimePoint now) {
    module.powerOff(fault.requests());
    if (fault.delay().count() > 0)
        scheduler_.at(now + fault.delay(), [this, &module](TimePoint due) {
            module.powerOn();
            trace_.event(due, module.config().name + " has power again");
        });
}

void BusProcessor::prepare(const std::vector<Fault*>& faults, const Request& request, Module* module,
                           TimePoint now) {
    if (module == nullptr)
        return;
    for (Fault* fault : faults) {
        if (isOnTheWay(*fault))
            continue;
        inject(*fault, now);
        if (fault->kind() == FaultKind::WriteError)
            module->flash().refuseProgram();
        if (fault->kind() == FaultKind::EraseError)
            module->bootloader().refuseErase();
        if (fault->kind() == FaultKind::IgnorePage)
            module->bootloader().ignorePage(request.address);
    }
}

void BusProcessor::deliver(Message reply, const std::vector<Fault*>& faults, TimePoint now) {
    TimePoint start = now;
    bool lost = false;
    bool twice = false;
    for (Fault* fault : faults) {
        if (!isReplyFault(*fault))
            continue;
        inject(*fault, now);
        fault->alter(reply);
        start += fault->kind() == FaultKind::Late ? fault->delay() : std::chrono::milliseconds(0);
        lost = lost || fault->kind() == FaultKind::Lost;
        twice = twice || fault->kind() == FaultKind::Double;
    }
    if (lost)
        return;
    Bytes frame = encode(reply);
    for (Fault* fault : faults) {
        if (fault->kind() == FaultKind::Noise)
            send(fault->noise(), start);
        if (!fault->damagesRequest())
            fault->corrupt(frame);
    }
    send(frame, start);
    if (twice)
        send(frame, start);
}

void BusProcessor::inject(Fault& fault, TimePoint now) {
    fault.countInjection();
    trace_.event(now, "fault " + fault.text());
}

void BusProcessor::tellOfModules(TimePoint now) {
    scheduler_.at(now + timing_.statusPeriod, [this](TimePoint due) { tellOfModules(due); });
    if (updateMode_)
        return;
    send(encode(moduleStatus()), now);
    for (const auto& module : modules_)
        if (const auto identity = module->identity())
            send(encode(*identity), now);
}

Message BusProcessor::moduleStatus() const {
    Message message{id::MODULE_STATUS, Bytes(5)};
    // Master, motor and the secondaries, two fields a byte, have the addresses 7 to 12.
    for (std::uint8_t i = 0; i < 6; ++i) {
        const Module* module = find(static_cast<std::uint8_t>(7 + i));
        const unsigned field = module == nullptr ? Module::ABSENT_FIELD : module->statusField();
        std::uint8_t& byte = message.payload[2U + i / 2];
        byte = static_cast<std::uint8_t>(byte | field << (i % 2 * 4));
    }
    return message;
}

void BusProcessor::send(const Bytes& frame, TimePoint start) {
    ++counters_.sent;
    scheduler_.at(start, [this, frame](TimePoint due) { sender_(frame, due); });
}

} // namespace sim
