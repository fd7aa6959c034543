#include "module.h"

#include <algorithm>

namespace sim {

namespace {

constexpr std::uint8_t lostField = 15;

} // namespace

Module::Module(ModuleConfig config, Trace& trace)
    : config_(std::move(config)),
      version_(config_.version),
      log_(config_.name, trace),
      powered_(!config_.lost) {
    const auto make = config_.processor->byRecords ? makeRecordBootloader : makePagedBootloader;
    bootloader_ = make(*config_.processor, config_.flash, log_);
    for (const std::uint32_t page : config_.ignoredPages)
        bootloader_->ignorePage(page);
}

std::optional<Message> Module::handle(const Request& request, TimePoint now) {
    log_.setTime(now);
    if (!powered_)
        countLostRequest();
    else if (config_.present)
        return answer(request);
    return {};
}

std::optional<Message> Module::answer(const Request& request) {
    if (request.kind == RequestKind::Enter)
        return enterBootloader();
    if (request.kind == RequestKind::Leave) {
        restart();
        return answerWith({}, request.kind);
    }
    if (!inBootloader_ || !hasRightLength(request))
        return {};
    lastReply_ = bootload(request);
    return answerWith(*lastReply_, request.kind);
}

Message Module::answerWith(Reply reply, RequestKind request) const {
    const bool systemCommand = request == RequestKind::Leave || request == RequestKind::Enter;
    const std::uint8_t messageId = systemCommand ? id::reply : replyId();
    return config_.shortReplies ? makeShortReply(messageId, reply)
                                : makeReply(messageId, reply, config_.address);
}

std::uint8_t Module::replyId() const {
    return config_.serialBootloader ? id::serialReply : id::reply;
}

std::optional<Message> Module::enterBootloader() {
    restart();
    inBootloader_ = true;
    const Processor& processor = *config_.processor;
    if (!processor.identifies) {
        lastReply_ = Reply{};
        return answerWith(*lastReply_, RequestKind::Enter);
    }
    const auto kind = static_cast<std::uint8_t>(processor.kind | (config_.serialBootloader ? serialBit : 0));
    return makeIdentification(config_.hardware, version_, kind, config_.address);
}

bool Module::hasRightLength(const Request& request) {
    const bool addressed = request.kind == RequestKind::StartPage || request.kind == RequestKind::EraseBlocks;
    const bool wideAddress = config_.serialBootloader || config_.processor->wideAddress;
    if (!addressed || request.wideAddress == wideAddress)
        return true;
    log_.add(format("%s command in the %u-byte form", nameOf(request.kind), request.wideAddress ? 8U : 6U));
    return false;
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
    case RequestKind::EraseAll:
        return bootloader_->eraseAll();
    default:
        return lastReply_.value_or(Reply{Status::MissedPacket, 0});
    }
}

void Module::restart() {
    if (!isListening())
        return;
    if (bootloader_->isComplete() && bootloader_->written() > 0)
        version_ = config_.next.value_or(version_);
    startApplication();
}

void Module::powerOff(unsigned afterRequests) {
    powered_ = false;
    returnAfter_ = afterRequests;
}

void Module::powerOn() {
    powered_ = true;
    startApplication();
}

void Module::countLostRequest() {
    if (returnAfter_ > 0 && --returnAfter_ == 0)
        powerOn();
}

void Module::startApplication() {
    bootloader_->restart();
    inBootloader_ = false;
    lastReply_.reset();
}

std::uint8_t Module::statusField() const {
    if (!config_.present)
        return absentField;
    if (!powered_)
        return lostField;
    return static_cast<std::uint8_t>(config_.mode << 1);
}

std::optional<Message> Module::identity() const {
    if (!isListening() || inBootloader_)
        return {};
    Message message{id::moduleIdentity, Bytes(config_.shortIdentity ? 11 : 12)};
    Bytes& p = message.payload;
    p[0] = config_.number;
    // The control module's version takes the place of the serial number.
    const std::size_t versionAt = config_.number == controlModule ? 1 : 7;
    if (versionAt != 1)
        std::copy(config_.serialNumber.begin(), config_.serialNumber.end(), p.begin() + 1);
    p[versionAt] = version_.third;
    p[versionAt + 1] = version_.second;
    p[versionAt + 2] = version_.first;
    if (!config_.shortIdentity && versionAt != 1)
        p[11] = config_.hardware;
    return message;
}

const char* Module::stateName() const {
    if (!isListening())
        return config_.present ? "off" : "absent";
    return inBootloader_ ? "bootloader" : "application";
}

} // namespace sim
