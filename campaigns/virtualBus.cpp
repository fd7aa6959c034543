#include "virtualBus.h"

#include <algorithm>
#include <utility>

namespace {

constexpr std::uint64_t BITS_PER_BYTE = 10; // start, 8 data bits, stop
constexpr sim::BusProcessor::Timing QUIET{std::chrono::microseconds(0), std::chrono::milliseconds(0)};

} // namespace

virtualBus::virtualBus(SETTINGS settings)
    : baud(settings.baud),
      damage(settings.damage),
      random(settings.seed),
      record(settings.trace, start),
      faults(settings.seed),
      bus(
          std::move(settings.modules), faults, scheduler, record,
          [this](const sim::Bytes& frame, sim::TimePoint earliest) { carry(frame, earliest); }, QUIET) {
    for (const std::string& fault : settings.faults) {
        faults.add(fault);
    }
    bus.start(start);
}

void virtualBus::send(const busMessages::PROCBUS_MSG& msg) {
    sim::Bytes frame(msg.length + busProtocol::FRAME_OVERHEAD);
    busMessages::encodeFrame(msg, frame.data());
    const sim::Bytes bytes = damaged(frame);
    const std::size_t size = bytes.size();
    const clock::time_point begin = std::max(time, fromPanelFree);
    for (std::size_t i = 0; i < size; ++i) {
        for (sim::Frame& heard : fromPanel.feed(bytes[i], begin + duration(i + 1))) {
            scheduler.at(begin + duration(i + 1),
                         [this, heard = std::move(heard)](sim::TimePoint due) { bus.receive(heard, due); });
        }
    }
    fromPanelFree = begin + duration(size);
    checkLimit(fromPanelFree);
}

/** Puts a frame, or noise, on the line to the panel. */
void virtualBus::carry(const sim::Bytes& frame, clock::time_point earliest) {
    const sim::Bytes bytes = damaged(frame);
    const clock::time_point begin = std::max(earliest, toPanelFree);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        for (sim::Frame& heard : toPanel.feed(bytes[i], begin + duration(i + 1))) {
            scheduler.at(begin + duration(i + 1),
                         [this, heard = std::move(heard)](sim::TimePoint) { take(heard); });
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

/**
 * Bytes as they come out of a line that damages a share of them: by a flipped bit, or one too few or many.
 */
sim::Bytes virtualBus::damaged(const sim::Bytes& bytes) {
    if (damage == 0) {
        return bytes;
    }
    constexpr double DRAWN = 0x1p-64; // makes a number from 0 to 1 of a drawn one
    sim::Bytes arriving;
    for (const std::uint8_t byte : bytes) {
        const bool isStruck = static_cast<double>(random()) * DRAWN < damage;
        const auto how = isStruck ? random() % 3 : 3;
        if (how == 0) {
            arriving.push_back(static_cast<std::uint8_t>(byte ^ 1U << random() % 8));
        } else if (how == 1) {
            arriving.push_back(static_cast<std::uint8_t>(random()));
        }
        if (how == 1 || how == 3) {
            arriving.push_back(byte);
        }
    }
    return arriving;
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

void virtualHost::log(const std::string& text, logger::LOG_TYPE type) {
    warned = warned || type != logger::LOG_NOTICE;
    logged.push_back(text);
    bus.trace().event(bus.now(), "log " + text);
}
