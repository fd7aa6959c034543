#include "line.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <stdlib.h>
#include <sys/stat.h>
#include <system_error>
#include <termios.h>
#include <unistd.h>

namespace sim {

namespace {

constexpr std::uint64_t BITS_PER_BYTE = 10; // start, 8 data bits, stop
constexpr mode_t EVERYONE = 0666;

[[noreturn]] void fail(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

} // namespace

Line::Line(std::string link, unsigned baud) : link_(std::move(link)), baud_(baud) {
    try {
        openTerminal();
        placeLink();
    } catch (...) {
        close();
        throw;
    }
}

Line::~Line() {
    std::error_code ignored;
    if (std::filesystem::read_symlink(link_, ignored) == slaveName_)
        std::filesystem::remove(link_, ignored);
    close();
}

void Line::openTerminal() {
    master_ = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
    if (master_ < 0 || ::grantpt(master_) != 0 || ::unlockpt(master_) != 0)
        fail("no pseudo terminal");
    std::array<char, 64> name{};
    if (::ptsname_r(master_, name.data(), name.size()) != 0)
        fail("no name for the pseudo terminal");
    slaveName_ = name.data();
    slave_ = ::open(slaveName_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (slave_ < 0)
        fail(slaveName_);
    termios options{};
    if (::tcgetattr(slave_, &options) != 0)
        fail(slaveName_);
    ::cfmakeraw(&options);
    if (::tcsetattr(slave_, TCSANOW, &options) != 0 || ::fchmod(slave_, EVERYONE) != 0)
        fail(slaveName_);
}

void Line::placeLink() const {
    namespace fs = std::filesystem;
    if (fs::exists(fs::symlink_status(link_)) && !fs::is_symlink(link_)) {
        errno = EEXIST;
        fail(link_);
    }
    const std::string fresh = link_ + ".new";
    ::unlink(fresh.c_str());
    if (::symlink(slaveName_.c_str(), fresh.c_str()) != 0 || ::rename(fresh.c_str(), link_.c_str()) != 0)
        fail("--link " + link_);
}

void Line::close() {
    if (slave_ >= 0)
        ::close(slave_);
    if (master_ >= 0)
        ::close(master_);
}

TimePoint Line::after(TimePoint start, std::size_t bytes) const {
    if (baud_ == 0)
        return start;
    // Rounded up, so that a byte counted as due has really passed.
    const std::uint64_t scaled = bytes * BITS_PER_BYTE * 1'000'000'000U;
    return start + std::chrono::nanoseconds((scaled + baud_ - 1) / baud_);
}

void Line::receive(TimePoint now, const std::function<void(std::uint8_t, TimePoint)>& sink) {
    std::array<std::uint8_t, 4096> chunk{};
    for (;;) {
        const ssize_t count = ::read(master_, chunk.data(), chunk.size());
        if (count <= 0)
            return;
        const TimePoint start = std::max(now, receiveFree_);
        const auto size = static_cast<std::size_t>(count);
        receiveFree_ = after(start, size);
        for (std::size_t i = 0; i < size; ++i)
            sink(chunk[i], after(start, i + 1));
    }
}

void Line::send(Bytes bytes, TimePoint start) {
    const TimePoint begin = std::max(start, transmitFree_);
    transmitFree_ = after(begin, bytes.size());
    outgoing_.push_back({std::move(bytes), begin, 0});
}

std::optional<TimePoint> Line::nextDeadline() const {
    if (outgoing_.empty())
        return {};
    return after(outgoing_.front().start, outgoing_.front().written + 1);
}

std::size_t Line::due(const Outgoing& outgoing, TimePoint now) const {
    std::size_t count = outgoing.written;
    while (count < outgoing.bytes.size() && after(outgoing.start, count + 1) <= now)
        ++count;
    return count;
}

void Line::transmit(TimePoint now, const std::function<void(const Bytes&, TimePoint)>& sent,
                    const std::function<void(std::size_t, TimePoint)>& lost) {
    while (!outgoing_.empty()) {
        Outgoing& front = outgoing_.front();
        const std::size_t count = due(front, now) - front.written;
        if (count == 0)
            return;
        const ssize_t written = ::write(master_, front.bytes.data() + front.written, count);
        const std::size_t taken = written > 0 ? static_cast<std::size_t>(written) : 0;
        front.written += count;
        if (taken < count)
            lost(count - taken, now);
        if (front.written < front.bytes.size())
            return;
        sent(front.bytes, after(front.start, front.bytes.size()));
        outgoing_.pop_front();
    }
}

} // namespace sim
