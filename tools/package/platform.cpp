#include "platform.h"

#include "failure.h"
#include "lib/childProcess.h"
#include "lib/durable.h"
#include "lib/plainFile.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace package::platform {

namespace fs = std::filesystem;

namespace {

constexpr int REQUESTS[] = {SIGINT, SIGTERM, SIGHUP};

volatile std::sig_atomic_t interrupted = 0;

[[noreturn]] void fail(const fs::path& path) {
    throw Failure(path.string() + ": " + std::strerror(errno));
}

} // namespace

bool isTerminal(Stream stream) {
    return isatty(stream == Stream::Output ? STDOUT_FILENO : STDERR_FILENO) != 0;
}

bool isReadable(const fs::path& path) {
    return access(path.c_str(), fs::is_directory(path) ? R_OK | X_OK : R_OK) == 0;
}

Descriptor::Descriptor(const fs::path& path) : Descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC)) {}

Descriptor::~Descriptor() {
    if (number_ >= 0)
        close(number_);
}

Output::Output(const fs::path& path)
    : Descriptor(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666)), path_(path) {
    if (number() < 0)
        fail(path_);
}

void Output::write(const void* data, std::size_t size) {
    const char* rest = static_cast<const char*>(data);
    while (size > 0) {
        const ssize_t written = ::write(number(), rest, size);
        if (written < 0 && errno != EINTR)
            fail(path_);
        rest += std::max<ssize_t>(written, 0);
        size -= static_cast<std::size_t>(std::max<ssize_t>(written, 0));
    }
}

void Output::force() {
    if (fsync(number()) != 0)
        fail(path_);
    posix_fadvise(number(), 0, 0, POSIX_FADV_DONTNEED);
}

void forceDirectory(const fs::path& path) {
    if (!durable::flush(path))
        fail(path);
}

std::optional<std::string> readWithin(const fs::path& tree, const fs::path& path, std::uint64_t most) {
    return plainFile::contents(path, tree, most);
}

fs::path makeTemporaryDirectory() {
    std::string pattern = (fs::temp_directory_path() / "keldra-package.XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr)
        fail(pattern);
    return pattern;
}

void watchInterrupts() {
    struct sigaction action {};
    action.sa_handler = [](int) { interrupted = 1; };
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    for (const int each : REQUESTS) {
        struct sigaction before {};
        sigaction(each, nullptr, &before);
        if (before.sa_handler != SIG_IGN)
            sigaction(each, &action, nullptr);
    }
}

bool isInterrupted() {
    return interrupted != 0;
}

Uninterrupted::Uninterrupted() {
    block(SIG_BLOCK);
}

Uninterrupted::~Uninterrupted() {
    block(SIG_UNBLOCK);
}

void Uninterrupted::block(int how) {
    sigset_t requests;
    sigemptyset(&requests);
    for (const int each : REQUESTS)
        sigaddset(&requests, each);
    sigprocmask(how, &requests, nullptr);
}

int run(const std::vector<std::string>& words) {
    std::vector<char*> arguments;
    for (const std::string& each : words)
        arguments.push_back(const_cast<char*>(each.c_str())); // execvp() leaves them as they are
    arguments.push_back(nullptr);
    const int status = childProcess::run([&] {
        execvp(arguments[0], arguments.data());
        return NOT_INSTALLED;
    });
    if (status == childProcess::NOT_DONE)
        throw Failure(words.front() + ": it could not be started, or a signal has ended it");
    return status;
}

Silence::Silence() : kept_(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3)) {
    std::fflush(stdout);
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nowhere, STDOUT_FILENO);
    close(nowhere);
}

Silence::~Silence() {
    std::fflush(stdout);
    dup2(kept_, STDOUT_FILENO);
    close(kept_);
}

} // namespace package::platform
