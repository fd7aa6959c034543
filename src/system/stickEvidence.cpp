#include "stickEvidence.h"

#include "../lib/childProcess.h"
#include "../lib/durable.h"
#include "../lib/format.h"
#include "../lib/functs.h"
#include "coreState.h"
#include "usbStick.h"
#include "version.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <iterator>
#include <sstream>
#include <sys/klog.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>
#include <vector>

namespace {

const char* const FOLDER = "keldra_logs";
const char* const ENDING = ".new";
constexpr int TIME_LIMIT_MS = 5000;
constexpr std::chrono::milliseconds FILLING_LIMIT{3000}; // what is not whole by then, is left out
constexpr std::size_t FLUSHED_AT_ONCE = 512 * 1024;
constexpr off_t LATEST_LIMIT = 1'000'000;
constexpr int NOTE_LIMIT_MS = 1000; // the card may have stalled
constexpr std::size_t SIZE_LIMIT = 20'000'000;
constexpr std::size_t LONGEST_NAME = 32;
constexpr int READ_ALL_MESSAGES = 3; // of klogctl()
/** The last one counts on: under its plain name, its second name... */
enum RESULT { FAILED = 0, NOT_WANTED = 1, COPIED = 2 };
constexpr int MOST_NAMES = 100;
constexpr int MOST_ENTRIES = 1000; ///< of the stick's folder that are looked at

// What a copy consists of; in each group, what is worth most comes first.
constexpr const char* MADE[] = {"state.txt", "vx3.cfg", "kernel.txt"};
constexpr const char* LATEST = "update.log.latest"; ///< the log of this run, which is not saved yet
constexpr const char* SEEN = "modules.txt";
const std::string SERIAL = ", serial ";
const std::string UNKNOWN = "unknown";
constexpr const char* RECORDS[] = {"system.manifest", "unfinished.modules"};
constexpr const char* LOGS[] = {SEEN,           "crash.dump",   "update.log",   "update.log.0",
                                "bus.trace",    "update.log.1", "update.log.2", "update.log.3",
                                "update.log.4", "bus.trace.0",  "bus.trace.1"};

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

/** The name of a copy, or the next when that is taken: a panel without a clock starts at one time always. */
std::string numbered(const std::string& name, int number) {
    return number == 0 ? name : name + "-" + std::to_string(number + 1);
}

/** A copy that was not finished. A folder that holds anything else stays. */
void removeCopy(int parent, const std::string& name) {
    const opened copy(openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    const auto remove = [&copy](const char* file) { unlinkat(copy, file, 0); };
    std::ranges::for_each(MADE, remove);
    std::ranges::for_each(RECORDS, remove);
    std::ranges::for_each(LOGS, remove);
    remove(LATEST);
    unlinkat(parent, name.c_str(), AT_REMOVEDIR);
}

/** Copies that were cut short by a loss of power, or by the time that they took. */
void removeLeftOvers(int parent) {
    DIR* const listed = fdopendir(openat(parent, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    std::vector<std::string> leftOvers;
    for (int count = 0; listed != nullptr && count < MOST_ENTRIES; ++count) {
        const dirent* const entry = readdir(listed);
        if (entry == nullptr) {
            break;
        }
        const std::string name = entry->d_name;
        if (name.starts_with('.') && name.ends_with(ENDING)) {
            leftOvers.push_back(name);
        }
    }
    if (listed != nullptr) {
        closedir(listed);
    }
    for (const std::string& name : leftOvers) {
        removeCopy(parent, name);
    }
}

/** The folder of one copy, filled under a temporary name. */
class folder {
public:
    folder(int above, const std::string& name)
        : parent(above),
          finalName(name),
          temporary("." + name + ENDING),
          made(mkdirat(parent, temporary.c_str(), 0755) == 0),
          fd(made ? openat(parent, temporary.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC) : -1),
          ok(fd >= 0) {}
    ~folder() {
        if (made) {
            removeCopy(parent, temporary);
        }
    }

    void add(const std::string& name, const std::string& text) {
        const opened out(create(name));
        ok = ok && write(out, text.data(), text.size()) == static_cast<ssize_t>(text.size());
        room -= std::min(room, text.size());
    }
    /** A regular file of the panel, or its end; left out when there is none or no room for it. */
    void addFile(const std::string& name, const std::string& path, off_t atMost = SIZE_LIMIT) {
        const opened in(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
        struct stat info {};
        if (in < 0 || fstat(in, &info) != 0 || !S_ISREG(info.st_mode) ||
            static_cast<std::uint64_t>(std::min(info.st_size, atMost)) > room) {
            return;
        }
        lseek(in, std::max<off_t>(0, info.st_size - atMost), SEEK_SET);
        const opened out(create(name));
        static std::array<char, FLUSHED_AT_ONCE> piece;
        ssize_t count = 0;
        while (ok && !isLate() && (count = read(in, piece.data(), std::min(piece.size(), room))) > 0) {
            ok = write(out, piece.data(), static_cast<std::size_t>(count)) == count && fdatasync(out) == 0;
            room -= static_cast<std::size_t>(count);
        }
        if (count != 0) { // what is not whole, is not taken for whole
            unlinkat(fd, name.c_str(), 0);
        }
    }
    /** Gives it the first of its names that is free when all of it has reached the stick. */
    int keep() {
        int number = 0;
        while (number < MOST_NAMES && isTaken(numbered(finalName, number))) {
            ++number;
        }
        const std::string name = numbered(finalName, number);
        ok = ok && syncfs(fd) == 0 && renameat(parent, temporary.c_str(), parent, name.c_str()) == 0;
        made = made && !ok;
        return ok && fsync(parent) == 0 ? COPIED + number : FAILED;
    }

private:
    bool isLate() const { return std::chrono::steady_clock::now() - began > FILLING_LIMIT; }
    bool isTaken(const std::string& name) const {
        struct stat info {};
        return fstatat(parent, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0;
    }
    int create(const std::string& name) {
        const int out =
            ok ? openat(fd, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644) : -1;
        ok = ok && out >= 0;
        return out;
    }

    int parent;
    std::string finalName;
    std::string temporary;
    bool made;
    opened fd;
    bool ok;
    std::size_t room = SIZE_LIMIT;
    const std::chrono::steady_clock::time_point began = std::chrono::steady_clock::now();
};

std::string kernelMessages() {
    std::string text(64 * 1024, '\0');
    const int size = klogctl(READ_ALL_MESSAGES, text.data(), static_cast<int>(text.size()));
    text.resize(static_cast<std::size_t>(std::max(size, 0)));
    return text;
}

bool isSecret(std::string name) {
    functs().strCase(name, false);
    const auto names = [&name](const char* part) { return name.find(part) != std::string::npos; };
    return (names("key") && !names("trusted_keys")) || names("secret") || names("pass");
}

/** The settings without what might be a secret: none is asked for today. A value may go on in a next line. */
std::string withoutSecrets(const std::string& configuration) {
    std::istringstream lines(configuration);
    std::string kept;
    bool leavesOut = false;
    for (std::string line; std::getline(lines, line) && line.find("EndConfigFile") == line.npos;) {
        const std::string setting = line.substr(0, line.find('#'));
        const std::size_t equals = setting.find('=');
        if (equals != setting.npos) {
            leavesOut = isSecret(setting.substr(0, equals));
            kept += leavesOut ? setting.substr(0, equals) + "= (left out)\n" : setting + "\n";
        } else if (!leavesOut && setting.find_first_not_of(" \t\r") != setting.npos) {
            kept += setting + "\n";
        }
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

/** Of what a module or a file says: letters and digits alone, for a folder's name. */
std::string asName(std::string text) {
    std::erase_if(text, [](unsigned char c) { return std::isalnum(c) == 0; });
    return text.substr(0, LONGEST_NAME);
}

/** What is worth most comes first: where there is no room for all of it, the rest is left out. */
void fill(folder& copy, const std::string& state, const std::string& root) {
    const std::string texts[] = {state, withoutSecrets(functs().getFileContents("/keldra/config/vx3.cfg")),
                                 kernelMessages()};
    copy.addFile(LATEST, "/tmp/update.log", LATEST_LIMIT);
    for (std::size_t n = 0; n < std::size(MADE); ++n) {
        copy.add(MADE[n], texts[n]);
    }
    for (const char* name : RECORDS) {
        copy.addFile(name, root + "/config/" + name);
    }
    for (const char* name : LOGS) {
        copy.addFile(name, root + "/logs/" + name);
    }
}

int copyTo(const std::string& name, const std::string& state, const std::string& root) {
    const opened stick(open(usbStick::PLACE.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const opened logs(openat(stick, FOLDER, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if ((logs < 0 && (stick < 0 || errno == ENOENT)) || !usbStick::isMounted(stick)) {
        return NOT_WANTED;
    }
    struct stat whole {};
    struct stat part {};
    if (logs < 0 || fstat(stick, &whole) != 0 || fstat(logs, &part) != 0 || whole.st_dev != part.st_dev) {
        return FAILED; // a link, a file, or another file system
    }
    removeLeftOvers(logs);
    folder copy(logs, name);
    fill(copy, state, root);
    return copy.keep();
}

} // namespace

/** The master's serial number (the control module tells none); else the system's own. */
std::string stickEvidence::panelName() const {
    std::string name = serialOf(*modules::find("master"));
    if (name.empty()) {
        name = functs().getFileContents("/etc/machine-id");
    }
    name = asName(name);
    return name.empty() ? "panel" : name;
}

/**
 * As the module has told it, else as an earlier run has noted it: a program that was just started has not
 * heard a module yet, and one whose bus is dead never will. Empty for unknown.
 */
std::string stickEvidence::serialOf(const modules::ROW& row) const {
    const std::string told = asName(core->module(row).serial);
    if (!told.empty()) {
        return told;
    }
    std::istringstream noted(functs().getFileContents(core->rootPath + "/logs/" + SEEN));
    for (std::string line; std::getline(noted, line);) {
        const std::size_t at = line.rfind(SERIAL);
        if (at != line.npos && line.starts_with(std::string(row.shown) + ": ")) {
            const std::string serial = asName(line.substr(at + SERIAL.size()));
            return serial == UNKNOWN ? "" : serial;
        }
    }
    return "";
}

std::string stickEvidence::stateOfPanel() const {
    const std::string version = "updater " KELDRA_VERSION "\n";
    return version + freeSpaceOf("/") + freeSpaceOf("/keldra") + stateOfModules();
}

std::string stickEvidence::stateOfModules() const {
    const auto known = [](const std::string& text) { return text.empty() ? UNKNOWN : text; };
    std::string text;
    for (const modules::ROW& row : modules::VISITED) {
        const coreState::MODULE& module = core->module(row);
        text += std::string(row.shown) + ": " + (module.available ? "reported there" : "not reported") +
                (module.lostCom ? ", lost" : "") + ", version " + known(module.base.swVersion) + SERIAL +
                known(serialOf(row)) + "\n";
    }
    return text;
}

void stickEvidence::noteModules() const {
    const std::string path = core->rootPath + "/logs/" + SEEN;
    const std::string text = timeText() + "\n" + stateOfModules();
    static const shared<bool> never; // a canceled run has seen modules, too
    childProcess::run([&] { return durable::replaceFile(path, text) ? 0 : 1; }, &never, NOTE_LIMIT_MS);
}

void stickEvidence::copy() const {
    const std::string name = panelName() + "-" + timeText();
    const std::string state = stateOfPanel();
    const auto task = [&] { return copyTo(name, state, core->rootPath); };
    const int result = childProcess::run(task, &core->cancel, TIME_LIMIT_MS);
    if (result >= COPIED) {
        core->log->log_item("Logs copied to the stick: " + numbered(name, result - COPIED),
                            logger::LOG_NOTICE);
    } else if (result != NOT_WANTED && !core->cancel) {
        core->log->log_item("Could not copy the logs to the stick", logger::LOG_WARNING);
    }
}
