// Stands in for the bus processor and the modules behind it, on a pseudo terminal.
#include "busProcessor.h"
#include "commandLine/run.h"
#include "line.h"
#include "options.h"
#include "report.h"

#include <csignal>
#include <iostream>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/timerfd.h>
#include <system_error>
#include <unistd.h>

namespace {

using namespace sim;

class Descriptor {
public:
    Descriptor(int fd, const char* what) : fd_(fd) {
        if (fd < 0)
            throw std::system_error(errno, std::generic_category(), what);
    }
    ~Descriptor() { ::close(fd_); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    operator int() const { return fd_; }

private:
    int fd_;
};

int signalDescriptor() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : {SIGTERM, SIGINT, SIGUSR1})
        sigaddset(&signals, number);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    return ::signalfd(-1, &signals, SFD_CLOEXEC);
}

// An absolute timer, so that the pace of the line does not drift; nothing pending disarms it.
void arm(int timer, std::optional<TimePoint> deadline) {
    itimerspec when{};
    if (deadline) {
        const auto since = std::max(deadline->time_since_epoch(), Clock::duration(1));
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(since);
        when.it_value.tv_sec = static_cast<time_t>(seconds.count());
        when.it_value.tv_nsec = static_cast<long>(std::chrono::nanoseconds(since - seconds).count());
    }
    ::timerfd_settime(timer, TFD_TIMER_ABSTIME, &when, nullptr);
}

class Simulator {
public:
    explicit Simulator(const Options& options)
        : options_(options),
          signals_(signalDescriptor(), "signalfd"),
          timer_(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK), "timerfd"),
          trace_(options.trace, Clock::now()),
          faults_(options.seed),
          line_(options.link, options.baud),
          bus_(loadInventory(options.inventory), loadFaults(), scheduler_, trace_,
               [this](Bytes frame, TimePoint start) { line_.send(std::move(frame), start); },
               {options.relayDelay, options.statusPeriod}) {}

    // Until SIGTERM or SIGINT.
    void run() {
        std::cout << options_.link << " -> " << line_.slaveName() << std::endl;
        bus_.start(Clock::now());
        for (bool running = true; running;) {
            work();
            running = waitForEvent();
        }
        leaveResults();
    }

private:
    FaultScript& loadFaults() {
        for (const std::string& file : options_.faultFiles)
            faults_.load(file);
        for (const std::string& text : options_.faults)
            faults_.add(text);
        return faults_;
    }

    void work() {
        line_.receive(Clock::now(), [this](std::uint8_t byte, TimePoint arrival) {
            for (Frame& frame : decoder_.feed(byte, arrival))
                scheduler_.at(arrival,
                              [this, frame = std::move(frame)](TimePoint due) { bus_.receive(frame, due); });
        });
        const TimePoint now = Clock::now();
        scheduler_.run(now);
        line_.transmit(
            now, [this](const Bytes& bytes, TimePoint when) { trace_.sent(bytes, when); },
            [this](std::size_t count, TimePoint when) {
                trace_.event(when, "the panel does not read: " + std::to_string(count) + " bytes lost");
            });
    }

    // False when the program is to end.
    bool waitForEvent() {
        std::optional<TimePoint> deadline = scheduler_.next();
        if (const auto next = line_.nextDeadline(); next && (!deadline || *next < *deadline))
            deadline = next;
        arm(timer_, deadline);
        pollfd watched[] = {{line_.fd(), POLLIN, 0}, {timer_, POLLIN, 0}, {signals_, POLLIN, 0}};
        ::poll(watched, std::size(watched), -1);
        return (watched[2].revents & POLLIN) == 0 || handleSignal();
    }

    bool handleSignal() {
        signalfd_siginfo info{};
        if (::read(signals_, &info, sizeof info) != sizeof info)
            return true;
        if (info.ssi_signo != SIGUSR1)
            return false;
        leaveResults();
        return true;
    }

    void leaveResults() {
        for (const Frame& frame : decoder_.flush())
            bus_.receive(frame, Clock::now());
        if (!options_.dump.empty())
            writeDumps(options_.dump, bus_);
        if (!options_.report.empty())
            writeReport(options_.report, bus_, faults_, trace_);
    }

    Options options_;
    Descriptor signals_; // before the line, whose link must not outlive a signal
    Descriptor timer_;
    Trace trace_;
    FaultScript faults_;
    Scheduler scheduler_;
    Decoder decoder_;
    Line line_;
    BusProcessor bus_;
};

} // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app("The bus processor and its modules, on a pseudo terminal.", "bus-sim");
    declare(app, options);
    return commandLine::run(app, argc, argv, 1, [&] {
        Simulator(options).run();
        return 0;
    });
}
