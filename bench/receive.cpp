#include "bench.h"
#include "sim/panel/bed.h"

#include "drivers/uart.h"
#include "lib/crc16.h"
#include "system/busProtocol.h"
#include "system/updateCore.h"

#include <atomic>
#include <cerrno>
#include <ctime>
#include <functional>
#include <pthread.h>
#include <stdexcept>
#include <thread>
#include <unistd.h>

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr unsigned BAUD = 921600;
constexpr double LINE_RATE = BAUD / 10.0; // bytes a second
constexpr double SHARE_SECONDS = 5;
constexpr std::size_t RATE_BYTES = 6'000'000;
constexpr int READ_AT_ONCE = 3; // bytes, as the link reads

void addFrame(Bytes& out, std::uint8_t id, const Bytes& payload) {
    out.insert(out.end(), busProtocol::SYNC.begin(), busProtocol::SYNC.end());
    out.push_back(id);
    out.push_back(static_cast<std::uint8_t>(payload.size()));
    out.insert(out.end(), payload.begin(), payload.end());
    const std::uint32_t crc = crc16().crc16_calculate(payload, false);
    out.push_back(busProtocol::byteOf(crc, 0));
    out.push_back(busProtocol::byteOf(crc, 1));
    out.insert(out.end(), busProtocol::FRAME_END.begin(), busProtocol::FRAME_END.end());
}

/** What a busy bus sends: replies, identities and module states, whole frames in a multiple of 3 bytes. */
Bytes traffic(std::size_t least) {
    Bytes bytes;
    while (bytes.size() < least || bytes.size() % READ_AT_ONCE != 0) {
        addFrame(bytes, busProtocol::REPLY, {0, 7, 0, 13});
        addFrame(bytes, busProtocol::MODULE_IDENTITY, {13, 1, 2, 3, 4, 5, 6, 0, 1, 4, 0, 2});
        addFrame(bytes, busProtocol::MODULE_STATUS, {0, 0, 0x22, 0x22, 0x22});
    }
    return bytes;
}

double cpuSeconds(clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

/** What all threads but this one have used. */
double cpuOfOthers() {
    return cpuSeconds(CLOCK_PROCESS_CPUTIME_ID) - cpuSeconds(CLOCK_THREAD_CPUTIME_ID);
}

void writeAll(int fd, const std::uint8_t* data, std::size_t size) {
    while (size > 0) {
        const ssize_t written = write(fd, data, size);
        if (written <= 0) {
            throw std::runtime_error("cannot write to the line");
        }
        data += written;
        size -= static_cast<std::size_t>(written);
    }
}

/** Sends as a UART at full speed delivers: what has come in since the last millisecond. */
void sendPaced(int fd, const Bytes& bytes) {
    timespec next{};
    clock_gettime(CLOCK_MONOTONIC, &next);
    const auto each = static_cast<std::size_t>(LINE_RATE / 1000);
    for (std::size_t at = 0; at < bytes.size(); at += each) {
        writeAll(fd, bytes.data() + at, std::min(each, bytes.size() - at));
        next.tv_nsec += static_cast<long>(static_cast<double>(each) / LINE_RATE * 1e9);
        next.tv_sec += next.tv_nsec / 1'000'000'000;
        next.tv_nsec %= 1'000'000'000;
        clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &next, nullptr);
    }
}

/** Reads like the link, and does nothing with it. */
class BareReader {
public:
    explicit BareReader(const std::string& port) {
        line.uart_open(port);
        line.uart_set_options(BAUD, 100, 1, false);
        thread = std::thread([this] {
            std::uint8_t buffer[READ_AT_ONCE];
            for (;;) {
                received += static_cast<std::size_t>(line.uart_read(buffer, READ_AT_ONCE));
            }
        });
    }
    ~BareReader() {
        pthread_cancel(thread.native_handle());
        thread.join();
    }
    BareReader(const BareReader&) = delete;
    BareReader& operator=(const BareReader&) = delete;

    std::atomic<std::size_t> received = 0;

private:
    uart line;
    std::thread thread;
};

/** Calls `work` with the line while the updater, or the bare reader, takes in what is sent. */
void withReader(const std::string& reader,
                const std::function<void(int fd, const std::function<bool(const Bytes&)>& tookIn)>& work) {
    const panel::Terminal line;
    if (reader == "bare") {
        const BareReader bare(line.name());
        work(line.fd(), [&bare](const Bytes& sent) { return bare.received >= sent.size(); });
        return;
    }
    panel::configure(line.name(), BAUD, reader == "unrecorded" ? "recorder_size = 0\n" : "");
    updateCore core;
    work(line.fd(), [&core](const Bytes&) { return core.arts.available.operator bool(); });
}

} // namespace

void bench::receiveShare(const Arguments& arguments) {
    const Bytes bytes = traffic(static_cast<std::size_t>(LINE_RATE * SHARE_SECONDS));
    withReader(arguments.at(0), [&bytes](int fd, const auto&) {
        const double cpu = cpuOfOthers();
        const double start = now();
        sendPaced(fd, bytes);
        report(100 * (cpuOfOthers() - cpu) / (now() - start));
    });
}

void bench::receiveRate(const Arguments& arguments) {
    Bytes bytes = traffic(RATE_BYTES);
    do { // ends with the one frame by which the end is seen
        addFrame(bytes, busProtocol::MODULE_IDENTITY, {50, 1, 2, 3, 4, 5, 6, 0, 1, 5, 0, 0});
    } while (bytes.size() % READ_AT_ONCE != 0);
    withReader(arguments.at(0), [&bytes](int fd, const auto& tookIn) {
        const double start = now();
        writeAll(fd, bytes.data(), bytes.size());
        while (!tookIn(bytes)) {
            usleep(100);
        }
        report(static_cast<double>(bytes.size()) / 1e6 / (now() - start));
    });
}
