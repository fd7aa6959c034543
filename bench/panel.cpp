#include "panel.h"

#include "system/modules.h"

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <stdexcept>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

namespace bench {

TERMINAL::TERMINAL() : master(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
    if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0) {
        throw std::runtime_error("no pseudo terminal");
    }
    slaveName = ptsname(master);
    slave = open(slaveName.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    termios options{};
    tcgetattr(slave, &options);
    cfmakeraw(&options);
    tcsetattr(slave, TCSANOW, &options);
}

TERMINAL::~TERMINAL() {
    close(slave);
    close(master);
}

SIMULATOR::SIMULATOR(const std::string& program, const std::string& options) : process(fork()) {
    if (process == 0) {
        const std::string command = "exec " + program + " --link " + PORT + " " + options;
        execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
        _exit(127);
    }
    for (int i = 0; i < 500 && access(PORT, F_OK) != 0; ++i) {
        usleep(10'000);
    }
    if (access(PORT, F_OK) != 0) {
        throw std::runtime_error("the simulator does not start");
    }
}

SIMULATOR::~SIMULATOR() {
    kill(process, SIGTERM);
    waitpid(process, nullptr, 0);
}

void writeFile(const std::string& path, const std::string& text) {
    std::ofstream(path) << text;
}

std::string inventoryOf(const std::string& kind) {
    std::string lines;
    for (const modules::ROW& module : modules::VISITED) {
        lines += std::string(module.name) + " kind=" + kind + "\n";
    }
    writeFile("/tmp/inventory", lines);
    return "/tmp/inventory";
}

void shell(const std::string& command) {
    if (std::system(command.c_str()) != 0) {
        throw std::runtime_error(command);
    }
}

void configure(const std::string& port, unsigned baud) {
    writeFile("/keldra/config/vx3.cfg", "up_mbus = " + port + "\nub_mbus = " + std::to_string(baud) +
                                            "\ndir = /keldra\nlog_max_size = 1000000\nEndConfigFile\n");
    chmod("/run/user", 0700); // or Qt warns of it
}

} // namespace bench
