#include "trace.h"

#include "messages.h"

#include <iostream>
#include <stdexcept>

namespace sim {

namespace {

std::string nameOf(const Frame& frame) {
    switch (frame.kind) {
    case Frame::Kind::Noise:
        return "noise";
    case Frame::Kind::BadCrc:
        return describe(frame.message) + " CRC-ERROR";
    case Frame::Kind::BadClosing:
        return describe(frame.message) + " CLOSING-ERROR";
    case Frame::Kind::Good:
        break;
    }
    return describe(frame.message);
}

} // namespace

Trace::Trace(const std::string& file, TimePoint start) : start_(start) {
    if (file == "-") {
        stream_ = &std::cout;
    } else if (!file.empty()) {
        file_.open(file);
        if (!file_)
            throw std::runtime_error("cannot write the trace " + file);
        stream_ = &file_;
    }
}

std::string Trace::stamp(TimePoint when) const {
    const auto total = std::chrono::duration_cast<std::chrono::microseconds>(when - start_).count();
    return format("%lld.%06lld", static_cast<long long>(total / 1'000'000),
                  static_cast<long long>(total % 1'000'000));
}

void Trace::sent(const Bytes& bytes, TimePoint when) {
    if (stream_ == nullptr)
        return;
    auto frame = decode(bytes);
    if (!frame || frame->raw.size() != bytes.size())
        frame = Frame{Frame::Kind::Noise, bytes, {}};
    line('<', *frame, when);
}

void Trace::line(char direction, const Frame& frame, TimePoint when) {
    if (stream_ == nullptr)
        return;
    *stream_ << stamp(when) << ' ' << direction << ' ' << toHex(frame.raw) << ' ' << nameOf(frame)
             << std::endl; // flushed, as the program may be killed at any time
}

void Trace::event(TimePoint when, const std::string& text) {
    if (stream_ != nullptr)
        *stream_ << stamp(when) << " ! " << text << std::endl;
}

void ProtocolLog::add(const std::string& text) {
    entries_.push_back({now_, text});
    trace_.event(now_, "protocol " + owner_ + ": " + text);
}

} // namespace sim
