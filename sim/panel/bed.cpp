#include "bed.h"

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <pty.h>
#include <spawn.h>
#include <sstream>
#include <stdexcept>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace panel {

namespace {

constexpr const char* INVENTORY = "/tmp/modules";

pid_t start(std::vector<std::string> words) {
    std::vector<char*> arguments;
    for (std::string& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t quiet;
    posix_spawn_file_actions_init(&quiet);
    posix_spawn_file_actions_addopen(&quiet, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t process = 0;
    const int failed = posix_spawn(&process, arguments[0], &quiet, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&quiet);
    if (failed != 0)
        throw std::runtime_error("cannot start " + words[0]);
    return process;
}

} // namespace

void put(const std::string& path, const std::string& text, unsigned mode) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << text;
    fs::permissions(path, static_cast<fs::perms>(mode));
}

std::string contents(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

bool succeeds(const std::string& command) {
    return std::system(command.c_str()) == 0;
}

void shell(const std::string& command) {
    if (!succeeds(command))
        throw std::runtime_error(command);
}

void configure(const std::string& port, unsigned baud, const std::string& more) {
    put("/keldra/config/vx3.cfg", "up_mbus = " + port + "\nub_mbus = " + std::to_string(baud) +
                                      "\ndir = /keldra\n" + more + "EndConfigFile\n");
}

Terminal::Terminal() {
    char name[64];
    if (openpty(&master_, &slave_, name, nullptr, nullptr) != 0)
        throw std::runtime_error("no pseudo terminal");
    name_ = name;
    for (const int fd : {master_, slave_})
        fcntl(fd, F_SETFD, FD_CLOEXEC);
    termios raw{};
    tcgetattr(slave_, &raw);
    cfmakeraw(&raw);
    tcsetattr(slave_, TCSANOW, &raw);
}

Terminal::~Terminal() {
    close(slave_);
    close(master_);
}

SimulatedBus::SimulatedBus(const std::string& program, const std::string& inventory,
                           const std::vector<std::string>& options) {
    put(INVENTORY, inventory);
    std::vector<std::string> words = {program, "--link", PORT, "--inventory", INVENTORY};
    words.insert(words.end(), options.begin(), options.end());
    process_ = start(std::move(words));
    for (int n = 0; !fs::exists(PORT); ++n) {
        if (n > 2000) {
            stop();
            throw std::runtime_error("the simulated bus made no port");
        }
        usleep(5000);
    }
}

SimulatedBus::~SimulatedBus() {
    stop();
}

void SimulatedBus::stop() {
    if (process_ != 0) {
        kill(process_, SIGTERM);
        waitpid(process_, nullptr, 0);
        process_ = 0;
    }
}

} // namespace panel
