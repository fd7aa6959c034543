#include "stickEvidence.h"

#include "../lib/childProcess.h"
#include "../lib/format.h"
#include "../lib/functs.h"
#include "coreState.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <ctime>
#include <fcntl.h>
#include <sstream>
#include <sys/klog.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>
#include <vector>

namespace {

const char* const STICK = "/mnt/usb";
const char* const FOLDER = "keldra_logs";
constexpr int TIME_LIMIT_MS = 5000;
constexpr std::size_t SIZE_LIMIT = 20'000'000;
constexpr std::size_t LONGEST_NAME = 32;
constexpr int READ_ALL_MESSAGES = 3; // of klogctl()
enum RESULT { COPIED = 0, FAILED = 1, NOT_WANTED = 2 };

/** A descriptor that is closed with the block it stands in. */
class opened {
public:
    explicit opened(int descriptor) : fd(descriptor) {}
    opened(const opened&) = delete;
    opened& operator=(const opened&) = delete;
    ~opened() {
        if (fd >= 0) {
            close(fd);
        }
    }
    operator int() const { return fd; } // NOLINT(google-explicit-constructor): it is one

private:
    int fd;
};

/** The folder of one copy, filled under a temporary name. */
class folder {
public:
    folder(int above, const std::string& name)
        : parent(above),
          finalName(name),
          temporary("." + name + ".new"),
          made(mkdirat(parent, temporary.c_str(), 0755) == 0),
          fd(made ? openat(parent, temporary.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC) : -1),
          ok(fd >= 0) {}
    ~folder() {
        if (made) {
            for (const std::string& name : names) {
                unlinkat(fd, name.c_str(), 0);
            }
            unlinkat(parent, temporary.c_str(), AT_REMOVEDIR);
        }
    }

    void add(const std::string& name, const std::string& text) {
        const opened out(create(name));
        ok = ok && write(out, text.data(), text.size()) == static_cast<ssize_t>(text.size());
        room -= std::min(room, text.size());
    }
    /** A regular file of the panel; left out when there is none or no room for it. */
    void addFile(const std::string& name, const std::string& path) {
        const opened in(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        struct stat info {};
        if (in < 0 || fstat(in, &info) != 0 || !S_ISREG(info.st_mode) ||
            static_cast<std::size_t>(info.st_size) > room) {
            return;
        }
        const opened out(create(name));
        static std::array<char, 64 * 1024> piece;
        ssize_t count = 0;
        while (ok && (count = read(in, piece.data(), std::min(piece.size(), room))) > 0) {
            ok = write(out, piece.data(), static_cast<std::size_t>(count)) == count;
            room -= static_cast<std::size_t>(count);
        }
    }
    /** Gives it its name when all of it has reached the stick. */
    bool keep() {
        ok = ok && syncfs(fd) == 0 && renameat(parent, temporary.c_str(), parent, finalName.c_str()) == 0;
        made = made && !ok;
        return ok && fsync(parent) == 0;
    }

private:
    int create(const std::string& name) {
        const int out =
            ok ? openat(fd, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644) : -1;
        ok = ok && out >= 0;
        names.push_back(name);
        return out;
    }

    int parent;
    std::string finalName;
    std::string temporary;
    bool made;
    opened fd;
    bool ok;
    std::size_t room = SIZE_LIMIT;
    std::vector<std::string> names;
};

std::string kernelMessages() {
    std::string text(64 * 1024, '\0');
    const int size = klogctl(READ_ALL_MESSAGES, text.data(), static_cast<int>(text.size()));
    text.resize(static_cast<std::size_t>(std::max(size, 0)));
    return text;
}

/** Without what might be a secret: none is asked for today, but a key that is called so stays here. */
std::string withoutSecrets(const std::string& configuration) {
    std::istringstream lines(configuration);
    std::string kept;
    for (std::string line; std::getline(lines, line);) {
        std::string name = line.substr(0, line.find('='));
        functs().strCase(name, false);
        const auto names = [&name](const char* part) { return name.find(part) != std::string::npos; };
        kept += names("key") || names("secret") || names("pass") ? "# left out\n" : line + "\n";
    }
    return kept;
}

std::string freeSpaceOf(const char* path) {
    struct statvfs info {};
    const bool known = statvfs(path, &info) == 0;
    return format("free on %s: %llu of %llu bytes\n", path,
                  known ? static_cast<unsigned long long>(info.f_bavail) * info.f_frsize : 0ULL,
                  known ? static_cast<unsigned long long>(info.f_blocks) * info.f_frsize : 0ULL);
}

std::string timeText() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%Y%m%d-%H%M%S", &local);
    return text.data();
}

/** What is worth most comes first: where there is no room for all of it, the rest is left out. */
void fill(folder& copy, const std::string& root) {
    copy.addFile("update.log.latest", "/tmp/update.log");
    copy.add("vx3.cfg", withoutSecrets(functs().getFileContents("/keldra/config/vx3.cfg")));
    copy.add("kernel.txt", kernelMessages());
    for (const char* name : {"system.manifest", "unfinished.modules"}) {
        copy.addFile(name, root + "/config/" + name);
    }
    for (const char* name : {"crash.dump", "update.log", "update.log.0", "bus.trace", "update.log.1",
                             "update.log.2", "update.log.3", "update.log.4", "bus.trace.0", "bus.trace.1"}) {
        copy.addFile(name, root + "/logs/" + name);
    }
}

int copyTo(const std::string& name, const std::string& state, const std::string& root) {
    const opened stick(open(STICK, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const opened logs(openat(stick, FOLDER, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat whole {};
    struct stat part {};
    if (logs < 0 || fstat(stick, &whole) != 0 || fstat(logs, &part) != 0 || whole.st_dev != part.st_dev) {
        return NOT_WANTED; // also a link, or another file system
    }
    folder copy(logs, name);
    copy.add("state.txt", state);
    fill(copy, root);
    return copy.keep() ? COPIED : FAILED;
}

} // namespace

/** The master's serial number, as far as it has told it; else the system's own. */
std::string stickEvidence::panelName() const {
    std::string name = core->master.serial;
    if (name.empty()) {
        name = functs().getFileContents("/etc/machine-id");
    }
    std::erase_if(name, [](unsigned char c) { return std::isalnum(c) == 0; });
    return name.empty() ? "panel" : name.substr(0, LONGEST_NAME);
}

std::string stickEvidence::stateOfPanel() const {
    std::string text = freeSpaceOf("/") + freeSpaceOf("/keldra");
    for (const modules::ROW& row : modules::VISITED) {
        const coreState::MODULE& module = core->module(row);
        text += std::string(row.shown) + ": " + (module.available ? "there" : "not there") +
                (module.lostCom ? ", lost" : "") + ", version " + module.base.swVersion + ", serial " +
                module.serial + "\n";
    }
    return text;
}

void stickEvidence::copy() const {
    const std::string name = panelName() + "-" + timeText();
    const std::string state = stateOfPanel();
    const auto task = [&] { return copyTo(name, state, core->rootPath); };
    switch (childProcess::run(task, &core->cancel, TIME_LIMIT_MS)) {
    case NOT_WANTED:
        break;
    case COPIED:
        core->log->log_item("Logs copied to the stick: " + name, logger::LOG_NOTICE);
        break;
    default:
        core->log->log_item("Could not copy the logs to the stick", logger::LOG_WARNING);
        break;
    }
}
