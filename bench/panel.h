#pragma once

#include <string>
#include <sys/types.h>

namespace bench {

/** A pseudo terminal: whoever makes it has the one end, the updater opens the other by its name. */
class TERMINAL {
public:
    TERMINAL();
    TERMINAL(const TERMINAL&) = delete;
    TERMINAL& operator=(const TERMINAL&) = delete;
    ~TERMINAL();

    int fd() const { return master; }
    const std::string& name() const { return slaveName; }

private:
    int master;
    int slave; ///< kept open and raw
    std::string slaveName;
};

/** The simulated bus, started with these options, until this object's end. Its port is PORT. */
class SIMULATOR {
public:
    static constexpr const char* PORT = "/tmp/ttyKB";

    SIMULATOR(const std::string& program, const std::string& options);
    SIMULATOR(const SIMULATOR&) = delete;
    SIMULATOR& operator=(const SIMULATOR&) = delete;
    ~SIMULATOR();

private:
    pid_t process;
};

void writeFile(const std::string& path, const std::string& text);
/** Writes an inventory of every module, all of this kind, and returns its path. */
std::string inventoryOf(const std::string& kind);
/** Runs a shell command; throws when it fails. */
void shell(const std::string& command);
/** Writes the updater's settings. */
void configure(const std::string& port, unsigned baud);

} // namespace bench
