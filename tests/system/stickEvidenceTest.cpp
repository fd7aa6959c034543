#include "system/stickEvidence.h"

#include "support/panel.h"

#include <cerrno>
#include <filesystem>
#include <sys/syscall.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

enum class Stick { Fine, Pulled, Stalls };
Stick stick = Stick::Fine; ///< what it does when it is to be flushed

} // namespace

extern "C" int syncfs(int fd) noexcept {
    if (stick == Stick::Pulled) {
        errno = EIO;
        return -1;
    }
    if (stick == Stick::Stalls) {
        sleep(60);
    }
    return static_cast<int>(syscall(SYS_syncfs, fd));
}

namespace {

const fs::path HOME = "/mnt/usb/keldra_logs";

class stickEvidenceTest : public Panel {
protected:
    /** Plugs the stick in; what the log says of it. */
    std::string copy(Stick behaviour = Stick::Fine) {
        stick = behaviour;
        const std::size_t before = logged().size();
        stickEvidence(core.get()).copy();
        stick = Stick::Fine;
        return logged().size() == before ? "" : logged().back().substr(0, 26);
    }
};

TEST_F(stickEvidenceTest, OnlyAStickWithAPlainFolderIsWrittenTo) {
    const std::string copied = "[Notice]: Logs copied to t";
    const std::string failed = "[Warning]: Could not copy ";
    const std::string wide(250, 'x');
    const struct {
        const char* name;
        std::string prepare; ///< on the stick
        std::string said;
        std::string remains = "! ls -A /mnt/usb/keldra_logs/ | grep -q ."; ///< a command that succeeds then
        Stick behaviour = Stick::Fine;
    } rows[] = {
        {"no folder", "touch other", "", "test \"$(ls -A /mnt/usb)\" = other"},
        {"a link", "mkdir /tmp/aim; ln -s /tmp/aim keldra_logs", failed},
        {"a file", "touch keldra_logs", failed, "! test -s /mnt/usb/keldra_logs"},
        {"another file system", "mkdir keldra_logs; mount -t tmpfs none keldra_logs", failed},
        {"full", "mount -t tmpfs -o size=16k none /mnt/usb; mkdir /mnt/usb/keldra_logs", failed},
        {"read-only", "mkdir keldra_logs; mount --bind . .; mount -o remount,bind,ro .", failed},
        {"pulled", "mkdir keldra_logs", failed, "! ls -A /mnt/usb/keldra_logs | grep -q .", Stick::Pulled},
        {"stalls", "mkdir keldra_logs", failed, "ls -d /mnt/usb/keldra_logs/.*.new", Stick::Stalls},
        {"was left unfinished", "mkdir -p keldra_logs/.a.new; touch keldra_logs/.a.new/update.log", copied,
         "! ls -d /mnt/usb/keldra_logs/.*.new"},
        {"what others left", "mkdir -p keldra_logs/." + wide + ".new/letter", copied,
         "ls -d /mnt/usb/keldra_logs/.*.new/letter"},
        {"a link inside", "mkdir keldra_logs; ln -s /keldra/logs keldra_logs/.a.new", copied,
         "test -s /keldra/logs/update.log"},
    };
    start();
    put("/keldra/logs/update.log", std::string(40'000, '.'));
    for (const auto& row : rows) {
        shell("cd /mnt/usb && " + row.prepare);
        EXPECT_EQ(copy(row.behaviour), row.said) << row.name;
        EXPECT_TRUE(succeeds(row.remains + " > /tmp/ls 2>&1")) << row.name;
        shell("cd /; umount -q /mnt/usb/keldra_logs 2> /tmp/ls; test $(grep -c ' /mnt/usb ' /proc/mounts) = "
              "1 || "
              "umount /mnt/usb; find /mnt/usb -mindepth 1 -delete");
    }
}

TEST_F(stickEvidenceTest, ACopyHasWhatIsWorthMostAndNothingElse) {
    configuration += "admin_password =\n  hunter2\n# hunter2\n";
    start();
    fs::create_directories(HOME);
    for (const char* name : {"update.log", "update.log.0", "bus.trace", "update.log.1"}) {
        put(std::string("/keldra/logs/") + name, "");
        fs::resize_file(std::string("/keldra/logs/") + name, 10'000'000);
    }
    shell("cd /keldra/logs; echo 1 > update.log.2; ln -s /etc/passwd update.log.3; mkfifo crash.dump");
    put("/keldra/logs/modules.txt", "Motor: lost, serial 5\nPrimary: not reported, serial ../0A1\n");
    put("/tmp/update.log", "time [Notice]: " + std::string(30'000'000, '.') + "\r\n");
    core->cancel = true;
    stickEvidence(core.get()).noteModules(); // of a canceled run that has not heard the module
    core->cancel = false;
    EXPECT_TRUE(holds({contents("/keldra/logs/modules.txt")}, "Motor: not reported"));
    for (int n = 0; n < 3; ++n) { // within a second, or not
        EXPECT_EQ(copy(), "[Notice]: Logs copied to t");
    }
    Texts names;
    std::size_t copies = 0;
    for (const fs::directory_entry& each : fs::directory_iterator(HOME)) {
        ++copies;
        names.clear();
        for (const fs::directory_entry& file : fs::directory_iterator(each)) {
            names.push_back(file.path().filename());
        }
        EXPECT_TRUE(each.path().filename().string().starts_with("0A1-"));
        EXPECT_EQ(fs::file_size(each.path() / "update.log.latest"), 1'000'000U);
        EXPECT_FALSE(holds({contents(each.path() / "vx3.cfg")}, "hunter2"));
        EXPECT_TRUE(holds({contents(each.path() / "vx3.cfg")}, "up_mbus"));
    }
    EXPECT_EQ(copies, 3U);
    std::ranges::sort(names);
    EXPECT_EQ(names, (Texts{"kernel.txt", "modules.txt", "state.txt", "update.log", "update.log.2",
                            "update.log.latest", "vx3.cfg"}));
}

} // namespace
