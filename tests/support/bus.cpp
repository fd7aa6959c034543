#include "bus.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <ostream>
#include <poll.h>
#include <stdexcept>
#include <unistd.h>

std::ostream& sim::operator<<(std::ostream& out, const Message& frame) {
    out << "message " << int{frame.id} << ":";
    char text[4];
    for (const std::uint8_t byte : frame.payload) {
        std::snprintf(text, sizeof text, " %02X", byte);
        out << text;
    }
    return out;
}

Bytes hex(const std::string& text) {
    std::string digits = text;
    std::erase(digits, ' ');
    return sim::fromHex(digits);
}

Frame reply(std::uint8_t status, std::uint16_t row, std::uint8_t module) {
    return sim::makeReply(sim::id::REPLY, {static_cast<sim::Status>(status), row}, module);
}

Frame identification(std::uint8_t module, std::uint8_t kind, const std::string& version, std::uint8_t hwRev) {
    return sim::makeIdentification(hwRev, sim::Version::parse(version), kind, module);
}

Bus::Bus() {
    if (pipe2(wake_, O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe");
    }
    listener_ = std::thread([this] { listen(); });
}

Bus::~Bus() {
    close(wake_[1]);
    listener_.join();
    close(wake_[0]);
}

void Bus::feed(const Bytes& bytes) {
    if (write(terminal_.fd(), bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
        throw std::runtime_error("the line is full");
    }
}

void Bus::autoAnswer(Rule rule) {
    const std::lock_guard<std::mutex> held(guard_);
    answerTo_ = std::move(rule);
}

Bytes Bus::sentBytes() {
    const std::lock_guard<std::mutex> held(guard_);
    return line_;
}

std::vector<Frame> Bus::sent() {
    const std::lock_guard<std::mutex> held(guard_);
    return frames_;
}

bool Bus::awaitSent(std::size_t count, int seconds) {
    std::unique_lock<std::mutex> held(guard_);
    return changed_.wait_for(held, std::chrono::seconds(seconds), [&] { return frames_.size() >= count; });
}

void Bus::listen() {
    pollfd ends[] = {{terminal_.fd(), POLLIN, 0}, {wake_[0], POLLIN, 0}};
    std::uint8_t chunk[256];
    while (poll(ends, 2, -1) >= 0 && ends[1].revents == 0) {
        const ssize_t count = read(terminal_.fd(), chunk, sizeof chunk);
        if (count > 0) {
            const std::lock_guard<std::mutex> held(guard_);
            line_.insert(line_.end(), chunk, chunk + count);
            takeFrames();
        }
    }
}

void Bus::takeFrames() {
    const auto left = [this] { return line_.size() - parsed_; };
    while (left() >= sim::FRAME_OVERHEAD &&
           left() >= sim::FRAME_OVERHEAD + line_[parsed_ + sim::LENGTH_OFFSET]) {
        const auto start = line_.begin() + static_cast<std::ptrdiff_t>(parsed_);
        const Frame frame{start[4], Bytes(start + 6, start + 6 + start[5])};
        const Bytes whole = encode(frame);
        if (!std::equal(whole.begin(), whole.end(), start)) {
            ++parsed_; // noise, or the rest of a frame that was discarded
            continue;
        }
        parsed_ += whole.size();
        frames_.push_back(frame);
        changed_.notify_all();
        for (const Frame& message : answerTo_ ? answerTo_(frame) : std::vector<Frame>()) {
            feed(message);
        }
    }
}

std::vector<Frame> Bus::noModules(const Frame& request) {
    if (request.id != sim::id::SYSTEM_COMMAND) {
        return {};
    }
    const std::uint8_t module = request.payload[0];
    if (request.payload[1] != ENTER_BOOTLOADER) {
        return {reply(0, 0, module)};
    }
    const std::uint8_t other = module == sim::CONTROL_MODULE ? 0 : ON_SERIAL_BOOTLOADER;
    return {identification(module, static_cast<std::uint8_t>(1 + other), "1.0.0")};
}
