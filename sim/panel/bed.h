// What a panel has around it, for programs that run the updater's code in a sandbox (tests/in-sandbox): its
// configuration, a serial port, and a simulated bus.
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

namespace panel {

// Writes a file and the directories above it.
void put(const std::string& path, const std::string& text, unsigned mode = 0644);
std::string contents(const std::string& path);

// Runs a shell command: true when it succeeds.
bool succeeds(const std::string& command);
// Throws std::runtime_error when it fails.
void shell(const std::string& command);

// Writes the updater's settings; `more` holds further lines.
void configure(const std::string& port, unsigned baud = 115200,
               const std::string& more = "log_max_size = 1000000\n");

// A pseudo terminal: whoever makes it has the one end, the updater opens the other by its name.
class Terminal {
public:
    Terminal();
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;
    ~Terminal();

    int fd() const { return master_; }
    const std::string& name() const { return name_; }

private:
    int master_;
    int slave_; // kept open and raw, so that the line survives an updater that closes its port
    std::string name_;
};

// The simulated bus on the port PORT, with its inventory, until stop() or this object's end.
class SimulatedBus {
public:
    static constexpr const char* PORT = "/tmp/ttyKB";

    // `program` is bus-sim. Returns when the port is ready; throws std::runtime_error when it does not come.
    SimulatedBus(const std::string& program, const std::string& inventory,
                 const std::vector<std::string>& options = {});
    SimulatedBus(const SimulatedBus&) = delete;
    SimulatedBus& operator=(const SimulatedBus&) = delete;
    ~SimulatedBus();

    // It leaves its report and its dumps.
    void stop();

private:
    pid_t process_ = 0;
};

} // namespace panel
