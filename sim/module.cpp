#include "module.h"

#include <algorithm>
#include <utility>

namespace sim {

namespace {

constexpr std::uint8_t LOST_FIELD = 15;

} // namespace

Module::Module(ModuleConfig config, Scheduler& scheduler, Trace& trace, Sink unasked)
    : config_(std::move(config)),
      temper_(config_.temper),
      scheduler_(scheduler),
      unasked_(std::move(unasked)),
      version_(config_.version),
      log_(config_.name, trace),
      powered_(!config_.lost) {
    const auto make = config_.processor->byRecords ? makeRecordBootloader : makePagedBootloader;
    bootloader_ = make(*config_.processor, temper_, config_.flash, log_);
    for (const std::uint32_t page : config_.ignoredPages)
        bootloader_->ignorePage(page);
}

void Module::start(TimePoint now) {
    every(temper_.babblePeriod, now, [this](TimePoint due) { babble(due); });
    every(temper_.identityPeriod, now, [this](TimePoint due) { tellIdentity(due); });
}

void Module::every(Temper::Time period, TimePoint now, const std::function<void(TimePoint due)>& task) {
    if (period.count() == 0)
        return;
    scheduler_.at(now + period, [this, period, task](TimePoint due) {
        task(due);
        every(period, due, task);
    });
}

void Module::babble(TimePoint now) {
    if (isListening() && inBootloader_)
        say(unasked_, replyMessage(replyId(), {}), now);
}

void Module::tellIdentity(TimePoint now) {
    if (isListening())
        say(unasked_, identityMessage(temper_.identityHardware[identitiesTold_++ % 2]), now);
}

void Module::handle(const Request& request, TimePoint now, const Sink& respond) {
    if (!powered_) {
        countLostRequest();
        return;
    }
    if (!config_.present)
        return;
    awaitIdleness(now);
    if (working_)
        hearMeanwhile({request, respond}, now);
    else
        begin({request, respond}, now);
}

void Module::hearMeanwhile(Job job, TimePoint now) {
    if (temper_.busy == Temper::Busy::Queue)
        waiting_.push_back(std::move(job));
    else if (temper_.busy == Temper::Busy::Answer && job.request.kind == RequestKind::Status && inBootloader_)
        finish(job, now);
}

void Module::begin(Job job, TimePoint now) {
    log_.setTime(now);
    if (!obeys(job.request))
        return;
    if (job.request.kind != RequestKind::Status)
        owed_.reset();
    job.answers = answersTo(job.request);
    if (job.answers == Temper::Answers::AtOnce) {
        lastReply_ = Reply{};
        say(job.respond, replyMessage(replyId(), *lastReply_), now);
    }
    const Temper::Time time = workTime(job.request);
    if (time.count() == 0) {
        finish(job, now);
        return;
    }
    working_ = true;
    scheduler_.at(now + time, [this, job = std::move(job), life = life_](TimePoint due) {
        if (life != life_)
            return;
        working_ = false;
        finish(job, due);
        if (restartsBehindWork_)
            restart();
        awaitIdleness(due);
        takeNext(due);
    });
}

void Module::takeNext(TimePoint now) {
    while (!working_ && !waiting_.empty()) {
        Job job = std::move(waiting_.front());
        waiting_.pop_front();
        begin(std::move(job), now);
    }
}

void Module::finish(const Job& job, TimePoint now) {
    log_.setTime(now);
    switch (job.request.kind) {
    case RequestKind::Enter:
        if (const auto answer = enterBootloader())
            say(job.respond, *answer, now);
        break;
    case RequestKind::Leave:
        startProgram();
        say(job.respond, replyMessage(id::REPLY, {}), now);
        break;
    case RequestKind::Status:
        if (const auto reply = statusReply())
            say(job.respond, replyMessage(replyId(), *reply), now);
        break;
    default:
        finishWork(job, now);
        break;
    }
}

void Module::finishWork(const Job& job, TimePoint now) {
    const unsigned written = bootloader_->written();
    const Reply result = bootload(job.request);
    if (job.request.kind == RequestKind::DataRow && result.status == Status::MissedPacket &&
        temper_.outOfOrder == Temper::OutOfOrder::Silent)
        return;
    lastReply_ = result;
    if (job.answers == Temper::Answers::Directly)
        say(job.respond, replyMessage(replyId(), result), now);
    else if (job.answers == Temper::Answers::OnStatus || result.status != Status::Ok)
        owed_ = result;
    if (bootloader_->written() != written && bootloader_->written() == temper_.restartAfter)
        startBootloaderAnew(now);
}

void Module::forgetWork() {
    ++life_;
    working_ = false;
    restartsBehindWork_ = false;
    waiting_.clear();
}

bool Module::obeys(const Request& request) {
    switch (request.kind) {
    case RequestKind::Enter:
        if (inBootloader_ && temper_.deafToEnter)
            return false;
        return ++entersHeard_ >= temper_.enterNth;
    case RequestKind::Leave:
        return true;
    default:
        return inBootloader_ && hasRightLength(request);
    }
}

bool Module::hasRightLength(const Request& request) {
    const bool addressed = request.kind == RequestKind::StartPage || request.kind == RequestKind::EraseBlocks;
    const bool wideAddress = config_.serialBootloader || config_.processor->wideAddress;
    if (!addressed || request.wideAddress == wideAddress)
        return true;
    log_.add(format("%s command in the %u-byte form", nameOf(request.kind), request.wideAddress ? 8U : 6U));
    return false;
}

Temper::Time Module::workTime(const Request& request) const {
    switch (request.kind) {
    case RequestKind::Enter:
        return temper_.enterTime;
    case RequestKind::StartPage:
        return temper_.startTime;
    case RequestKind::DataRow:
        return temper_.rowTime;
    case RequestKind::WritePage: // a repeated one finds nothing to write
        return bootloader_->isOpen() ? temper_.writeTime : Temper::Time(0);
    case RequestKind::EraseBlocks:
        return temper_.erasePageTime * request.count;
    case RequestKind::EraseAll:
        return temper_.eraseAllTime;
    default:
        return Temper::Time(0);
    }
}

Temper::Answers Module::answersTo(const Request& request) const {
    switch (request.kind) {
    case RequestKind::StartPage:
        return temper_.startAnswer;
    case RequestKind::DataRow:
        return temper_.rowAnswer;
    case RequestKind::EraseBlocks:
    case RequestKind::EraseAll:
        return temper_.eraseAnswer;
    case RequestKind::WritePage:
        // Without an open page there is no work that an answer could run ahead of: the last result is known.
        if (temper_.writeAnswer == Temper::Answers::AtOnce && !bootloader_->isOpen())
            return Temper::Answers::Directly;
        return temper_.writeAnswer;
    default:
        return Temper::Answers::Directly;
    }
}

Reply Module::bootload(const Request& request) {
    switch (request.kind) {
    case RequestKind::StartPage:
        return bootloader_->startPage(request.address, request.count);
    case RequestKind::DataRow:
        return bootloader_->dataRow(request.row, request.data);
    case RequestKind::WritePage:
        return bootloader_->writePage();
    case RequestKind::EraseBlocks:
        return bootloader_->eraseBlocks(request.address, request.count);
    default:
        return bootloader_->eraseAll();
    }
}

std::optional<Reply> Module::statusReply() {
    const bool tellsState = temper_.onStatus == Temper::OnStatus::State;
    if (temper_.onStatus == Temper::OnStatus::Nothing)
        return {};
    if (tellsState && working_)
        return Reply{Status::BadChecksum, 0};
    if (owed_)
        return std::exchange(owed_, std::nullopt);
    if (tellsState)
        return Reply{Status::Ok, bootloader_->lastRow()};
    return lastReply_.value_or(Reply{Status::MissedPacket, 0});
}

void Module::say(const Sink& sink, Message message, TimePoint now) {
    if (temper_.latency.count() == 0) {
        sink(std::move(message), now);
        return;
    }
    scheduler_.at(now + temper_.latency,
                  [sink, message = std::move(message)](TimePoint due) { sink(message, due); });
}

Message Module::replyMessage(std::uint8_t messageId, Reply reply) const {
    const std::uint8_t name = temper_.namedModule.value_or(config_.address);
    const bool isRenamed = temper_.renamedModule && bootloader_->written() > 0;
    Message message = makeReply(messageId, reply, isRenamed ? *temper_.renamedModule : name);
    message.payload.resize(temper_.replyLength);
    return message;
}

std::uint8_t Module::replyId() const {
    return config_.serialBootloader ? id::SERIAL_REPLY : id::REPLY;
}

std::optional<Message> Module::enterBootloader() {
    startProgram();
    inBootloader_ = true;
    if (config_.processor->identifies)
        return identification();
    if (temper_.silentEnter)
        return {};
    lastReply_ = Reply{Status::Ok, temper_.enterRow};
    return replyMessage(id::REPLY, *lastReply_);
}

Message Module::identification() const {
    const unsigned kind = config_.processor->kind | (config_.serialBootloader ? SERIAL_BIT : 0U);
    return makeIdentification(config_.hardware, version_, static_cast<std::uint8_t>(kind),
                              temper_.identifiedModule.value_or(config_.address));
}

void Module::restart() {
    if (!isListening())
        return;
    restartsBehindWork_ = working_;
    if (working_)
        return;
    forgetWork();
    startProgram();
}

void Module::powerOff(unsigned afterRequests) {
    forgetWork();
    powered_ = false;
    returnAfter_ = afterRequests;
}

void Module::powerOn() {
    powered_ = true;
    entersHeard_ = 0;
    startApplication();
}

void Module::countLostRequest() {
    if (returnAfter_ > 0 && --returnAfter_ == 0)
        powerOn();
}

// What was programmed becomes the program that runs from now on.
void Module::startProgram() {
    if (bootloader_->isComplete() && bootloader_->written() > 0)
        version_ = config_.next.value_or(version_);
    startApplication();
}

void Module::startApplication() {
    bootloader_->restart();
    inBootloader_ = false;
    lastReply_.reset();
    owed_.reset();
}

void Module::startBootloaderAnew(TimePoint now) {
    startApplication();
    inBootloader_ = true;
    if (config_.processor->identifies)
        say(unasked_, identification(), now);
}

// A request came or work was done: the silence after which the session ends begins anew.
void Module::awaitIdleness(TimePoint now) {
    const unsigned occasion = ++occasions_;
    if (temper_.idleTime.count() == 0)
        return;
    scheduler_.at(now + temper_.idleTime, [this, occasion](TimePoint) {
        if (occasion == occasions_ && !working_ && inBootloader_)
            startProgram();
    });
}

std::uint8_t Module::statusField() const {
    if (!config_.present)
        return ABSENT_FIELD;
    if (!powered_)
        return LOST_FIELD;
    return static_cast<std::uint8_t>(config_.mode << 1);
}

std::optional<Message> Module::identity() const {
    if (!isListening() || inBootloader_)
        return {};
    return identityMessage(config_.hardware);
}

Message Module::identityMessage(std::uint8_t hardware) const {
    Message message{id::MODULE_IDENTITY, Bytes(config_.shortIdentity ? 11 : 12)};
    Bytes& p = message.payload;
    p[0] = config_.number;
    // The control module's version takes the place of the serial number.
    const std::size_t versionAt = config_.number == CONTROL_MODULE ? 1 : 7;
    if (versionAt != 1)
        std::copy(config_.serialNumber.begin(), config_.serialNumber.end(), p.begin() + 1);
    p[versionAt] = version_.third;
    p[versionAt + 1] = version_.second;
    p[versionAt + 2] = version_.first;
    if (!config_.shortIdentity && versionAt != 1)
        p[11] = hardware;
    return message;
}

const char* Module::stateName() const {
    if (!isListening())
        return config_.present ? "off" : "absent";
    return inBootloader_ ? "bootloader" : "application";
}

} // namespace sim
