#include "virtualBus.h"

#include <algorithm>
#include <utility>

namespace {

constexpr std::uint64_t BITS_PER_BYTE = 10; // start, 8 data bits, stop
constexpr sim::BusProcessor::Timing QUIET{std::chrono::microseconds(0), std::chrono::milliseconds(0)};

} // namespace

VirtualBus::VirtualBus(Settings settings)
    : baud_(settings.baud),
      damage_(settings.damage),
      random_(settings.seed),
      record_(settings.trace, start_),
      faults_(settings.seed),
      bus_(
          std::move(settings.modules), faults_, scheduler_, record_,
          [this](const sim::Bytes& frame, sim::TimePoint earliest) { carry(frame, earliest); }, QUIET) {
    for (const std::string& fault : settings.faults) {
        faults_.add(fault);
    }
    bus_.start(start_);
}

void VirtualBus::send(const busMessages::PROCBUS_MSG& msg) {
    sim::Bytes frame(msg.length + busProtocol::FRAME_OVERHEAD);
    busMessages::encodeFrame(msg, frame.data());
    fromPanelFree_ = pass(damaged(frame), std::max(time_, fromPanelFree_), fromPanel_,
                          [this](const sim::Frame& heard, sim::TimePoint due) { bus_.receive(heard, due); });
    checkLimit(fromPanelFree_);
}

/** Puts a frame, or noise, on the line to the panel. */
void VirtualBus::carry(const sim::Bytes& frame, clock::time_point earliest) {
    const sim::Bytes bytes = damaged(frame);
    toPanelFree_ = pass(bytes, std::max(earliest, toPanelFree_), toPanel_,
                        [this](const sim::Frame& heard, sim::TimePoint) { take(heard); });
    scheduler_.at(toPanelFree_, [this, bytes](sim::TimePoint due) { record_.sent(bytes, due); });
}

/** Bytes at the pace of the line, and what the other end hears in them. When the last one is through. */
VirtualBus::clock::time_point VirtualBus::pass(const sim::Bytes& bytes, clock::time_point begin,
                                               sim::Decoder& end, const Hearing& hear) {
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const clock::time_point arrival = begin + duration(i + 1);
        for (sim::Frame& heard : end.feed(bytes[i], arrival)) {
            scheduler_.at(arrival,
                          [hear, heard = std::move(heard)](sim::TimePoint due) { hear(heard, due); });
        }
    }
    return begin + duration(bytes.size());
}

/** As the panel's receiver does it: the closing bytes don't matter, a sync inside a frame loses the frame. */
void VirtualBus::take(const sim::Frame& frame) {
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
bool VirtualBus::step(clock::time_point until) {
    const auto next = scheduler_.next();
    if (!next || *next > until) {
        return false;
    }
    time_ = std::max(time_, *next);
    scheduler_.run(time_);
    return true;
}

void VirtualBus::advance(clock::time_point until) {
    checkLimit(until);
    while (step(until)) {
    }
    time_ = until;
}

void VirtualBus::awaitAnswer(clock::time_point until) {
    checkLimit(until);
    while (answers.empty()) {
        if (!step(until)) {
            time_ = until;
            return;
        }
    }
}

/**
 * Bytes as they come out of a line that damages a share of them: by a flipped bit, or one too few or many.
 */
sim::Bytes VirtualBus::damaged(const sim::Bytes& bytes) {
    if (damage_ == 0) {
        return bytes;
    }
    constexpr double DRAWN = 0x1p-64; // makes a number from 0 to 1 of a drawn one
    sim::Bytes arriving;
    for (const std::uint8_t byte : bytes) {
        const bool isStruck = static_cast<double>(random_()) * DRAWN < damage_;
        const auto how = isStruck ? random_() % 3 : 3;
        if (how == 0) {
            arriving.push_back(static_cast<std::uint8_t>(byte ^ 1U << random_() % 8));
        } else if (how == 1) {
            arriving.push_back(static_cast<std::uint8_t>(random_()));
        }
        if (how == 1 || how == 3) {
            arriving.push_back(byte);
        }
    }
    return arriving;
}

VirtualBus::clock::duration VirtualBus::duration(std::size_t bytes) const {
    const std::uint64_t nanoseconds = bytes * BITS_PER_BYTE * 1'000'000'000U / baud_;
    return std::chrono::nanoseconds(nanoseconds);
}

void VirtualBus::checkLimit(clock::time_point when) const {
    if (when - start_ > LONGEST) {
        throw Endless("a dialogue without end");
    }
}

void VirtualHost::send(const busMessages::PROCBUS_MSG& msg) {
    bus_.advance(bus_.now() + perExchange_);
    bus_.answers.clear();
    sent.push_back(msg);
    bus_.send(msg);
}

std::optional<busMessages::ANSWER> VirtualHost::receive(milliseconds wait) {
    bus_.awaitAnswer(bus_.now() + wait);
    if (bus_.answers.empty()) {
        return {};
    }
    const busMessages::ANSWER answer = bus_.answers.front();
    bus_.answers.pop_front();
    return answer;
}

void VirtualHost::log(const std::string& text, logger::LOG_TYPE type) {
    warned = warned || type != logger::LOG_NOTICE;
    logged.push_back(text);
    bus_.trace().event(bus_.now(), "log " + text);
}
