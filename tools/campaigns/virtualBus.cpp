#include "virtualBus.h"

#include <algorithm>
#include <array>
#include <utility>

namespace {

constexpr std::uint64_t BITS_PER_BYTE = 10; // start, 8 data bits, stop
constexpr sim::BusProcessor::Timing QUIET{std::chrono::microseconds(0), std::chrono::milliseconds(0)};

} // namespace

virtualBus::virtualBus(SETTINGS settings)
    : baud(settings.baud),
      record(settings.trace, start),
      faults(settings.seed),
      bus(
          {std::move(settings.module)}, faults, scheduler, record,
          [this](const sim::Bytes& frame, sim::TimePoint earliest) { carry(frame, earliest); }, QUIET) {
    for (const std::string& fault : settings.faults) {
        faults.add(fault);
    }
    bus.start(start);
}

void virtualBus::send(const busMessages::PROCBUS_MSG& msg) {
    std::array<std::uint8_t, busProtocol::MAX_PAYLOAD + busProtocol::FRAME_OVERHEAD> bytes{};
    const std::size_t size = busMessages::encodeFrame(msg, bytes.data());
    const clock::time_point begin = std::max(time, fromPanelFree);
    for (std::size_t i = 0; i < size; ++i) {
        for (sim::Frame& frame : fromPanel.feed(bytes[i], begin + duration(i + 1))) {
            scheduler.at(begin + duration(i + 1),
                         [this, frame = std::move(frame)](sim::TimePoint due) { bus.receive(frame, due); });
        }
    }
    fromPanelFree = begin + duration(size);
    checkLimit(fromPanelFree);
}

/** Puts a frame, or noise, on the line to the panel. */
void virtualBus::carry(const sim::Bytes& bytes, clock::time_point earliest) {
    const clock::time_point begin = std::max(earliest, toPanelFree);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        for (sim::Frame& frame : toPanel.feed(bytes[i], begin + duration(i + 1))) {
            scheduler.at(begin + duration(i + 1),
                         [this, frame = std::move(frame)](sim::TimePoint) { take(frame); });
        }
    }
    toPanelFree = begin + duration(bytes.size());
    scheduler.at(toPanelFree, [this, bytes](sim::TimePoint due) { record.sent(bytes, due); });
}

/** As the panel's receiver does it: the closing bytes don't matter, a sync inside a frame loses the frame. */
void virtualBus::take(const sim::Frame& frame) {
    const sim::Bytes& payload = frame.message.payload;
    const bool whole = frame.kind == sim::Frame::Kind::Good || frame.kind == sim::Frame::Kind::BadClosing;
    if (!whole || payload.empty() || payload.size() > busProtocol::MAX_RECEIVED ||
        std::search(payload.begin(), payload.end(), busProtocol::SYNC.begin(), busProtocol::SYNC.end()) !=
            payload.end()) {
        return;
    }
    busMessages::PROCBUS_MSG msg;
    msg.id = frame.message.id;
    msg.length = static_cast<std::uint8_t>(payload.size());
    std::copy(payload.begin(), payload.end(), msg.data);
    if (const auto answer = busMessages::decodeAnswer(msg)) {
        answers.push_back(*answer);
    }
}

/** Does what is due next, if it is due by then. */
bool virtualBus::step(clock::time_point until) {
    const auto next = scheduler.next();
    if (!next || *next > until) {
        return false;
    }
    time = std::max(time, *next);
    scheduler.run(time);
    return true;
}

void virtualBus::advance(clock::time_point until) {
    checkLimit(until);
    while (step(until)) {
    }
    time = until;
}

void virtualBus::awaitAnswer(clock::time_point until) {
    checkLimit(until);
    while (answers.empty()) {
        if (!step(until)) {
            time = until;
            return;
        }
    }
}

virtualBus::clock::duration virtualBus::duration(std::size_t bytes) const {
    const std::uint64_t nanoseconds = bytes * BITS_PER_BYTE * 1'000'000'000U / baud;
    return std::chrono::nanoseconds(nanoseconds);
}

void virtualBus::checkLimit(clock::time_point when) const {
    if (when - start > LONGEST) {
        throw endless("a dialogue without end");
    }
}

void virtualHost::send(const busMessages::PROCBUS_MSG& msg) {
    bus.advance(bus.now() + perExchange);
    bus.answers.clear();
    sent.push_back(msg);
    bus.send(msg);
}

std::optional<busMessages::ANSWER> virtualHost::receive(milliseconds wait) {
    bus.awaitAnswer(bus.now() + wait);
    if (bus.answers.empty()) {
        return {};
    }
    const busMessages::ANSWER answer = bus.answers.front();
    bus.answers.pop_front();
    return answer;
}

void virtualHost::log(const std::string& text, logger::LOG_TYPE) {
    logged.push_back(text);
    bus.trace().event(bus.now(), "log " + text);
}
