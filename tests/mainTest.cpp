// The program's entry. Most tests run it, renamed, in a process of its own that presses its buttons itself.

#include "support/panel.h"
#include "system/startRecord.h"

#include <QApplication>
#include <QPushButton>
#include <QTimer>
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <sys/wait.h>
#include <utility>

namespace {

/** Presses the buttons named in PRESS ("One,Other") whenever they can be pressed. */
void pressButtons() {
    const QStringList names = qEnvironmentVariable("PRESS").split(',');
    auto* timer = new QTimer(QCoreApplication::instance());
    QObject::connect(timer, &QTimer::timeout, [names] {
        for (QWidget* widget : QApplication::allWidgets()) {
            auto* button = qobject_cast<QPushButton*>(widget);
            if (button != nullptr && button->isEnabled() && names.contains(button->text())) {
                button->click();
            }
        }
    });
    if (qEnvironmentVariableIsSet("PRESS")) {
        timer->start(10);
    }
}
Q_COREAPP_STARTUP_FUNCTION(pressButtons)

class mainTest : public Panel {
protected:
    mainTest() {
        configuration += "debug = 1\n"; // the log on standard output, too
        bus.autoAnswer(Bus::noModules);
        put("/keldra/config/system.manifest", R"({"kernel":"2.0","updater":"1.0"})");
    }
    /** A package of a kernel that is up to date and an updater that is not and records how it is started. */
    void offerPackage() {
        pack("kernel.img", "image");
        pack("K+Updater",
             "#!/bin/sh\nsleep 1\necho $* $(flock -n /keldra/config true || echo locked) > /tmp/restarted\n",
             0755);
        packOntoStick(R"({"kernel":{"f":"kernel.img","v":"2.0"},"updater":{"f":"K+Updater","v":"2.0"}})");
    }
    void leaveUnpacked() {
        offerPackage();
        shell("mkdir /keldra/tmp/keldra_update; cp -r /tmp/package/. /keldra/tmp/keldra_update");
    }
    /** A package of a new kernel alone. */
    void offerKernel() {
        pack("kernel.img", "a new kernel");
        packOntoStick(R"({"kernel":{"f":"kernel.img","v":"3.0"}})");
    }
    /** Runs the program until it ends by itself; its exit status. */
    int run(const std::string& arguments, const std::string& press, const std::string& before = "",
            const std::string& behind = "> /tmp/out") {
        configure();
        const int status = std::system(
            ("PRESS='" + press + "' " + before + EMULATOR TESTS " --updater " + arguments + " " + behind)
                .c_str());
        out = contents("/tmp/out");
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    bool said(const std::string& text) const { return holds({out}, text); }
    /** The restart runs in the background. */
    static std::string restarted() {
        awaitThat([] { return !contents("/tmp/restarted").empty(); });
        shell("flock /keldra/config true"); // until it has ended
        return contents("/tmp/restarted");
    }
    std::string out;
};

TEST_F(mainTest, ResumesAndHalts) {
    leaveUnpacked();
    for (const char* program : {"mount", "halt"}) {
        standIn(program, "echo " + std::string(program) + " $* >> /tmp/commands");
    }
    EXPECT_EQ(run("auto", "Close"), 0);
    EXPECT_EQ(out.substr(0, 19), "Init Start ------\nI");
    EXPECT_FALSE(said("Loading new file") || said("Checking Updater"));
    EXPECT_TRUE(said("Kernel up-to-date") && said("stopping application\n"));
    ASSERT_TRUE(awaitThat([] { return holds({contents("/tmp/commands")}, "halt"); }));
    EXPECT_EQ(contents("/tmp/commands"),
              "mount -o remount rw /\nmount -o remount ro /\nmount -o remount ro /keldra\nhalt\n");
    const std::vector<Frame> sent = bus.sent();
    EXPECT_EQ(std::count(sent.begin(), sent.end(), RESTART_SYSTEM),
              4); // the link has stopped listening by then
    EXPECT_FALSE(succeeds("ls /keldra/tmp/keldra_update*"));
}

TEST_F(mainTest, AutoForceUpdatesWhatIsUpToDate) {
    for (const char* arguments : {"auto force", "-qws auto -display :9 force"}) {
        leaveUnpacked();
        EXPECT_EQ(run(arguments, "Close"), 0);
        EXPECT_FALSE(said("Loading new file") || said("Checking Updater")) << arguments;
        EXPECT_TRUE(said("Updating Kernel: 2.0 -> 2.0")) << arguments;
    }
}

TEST_F(mainTest, WithoutAutoANewUpdaterIsStartedInIt) {
    for (const char* arguments : {"", "force", "Auto force"}) {
        put("/keldra/config/system.manifest", R"({"updater":"1.0"})");
        shell("rm -f /tmp/restarted /usr/bin/K+Updater");
        leaveUnpacked(); // and not resumed
        EXPECT_EQ(run(arguments, "Run Update"), 0);
        EXPECT_TRUE(said("Loading new file") && said("Updating Updater: 1.0 -> 2.0")) << arguments;
        EXPECT_EQ(restarted(), "auto -qws locked\n") << arguments;
    }
    EXPECT_TRUE(holds({contents("/keldra/config/system.manifest")}, R"("updater":"2.0")"));
}

TEST_F(mainTest, AKernelWrittenInPartIsWrittenAgain) {
    shell("mkdir /keldra/start");
    startRecord record;
    record.tornKernel = true;
    ASSERT_TRUE(record.save());
    leaveUnpacked(); // with the kernel that is recorded as installed
    EXPECT_EQ(run("auto", "Close"), 0);
    const std::size_t warned =
        out.find("The kernel was written in part: update it again before the panel is switched off");
    EXPECT_LT(warned, out.find("Updating Kernel: 2.0 -> 2.0")) << out;
    EXPECT_EQ(contents("/dev/mmcblk0p1"), "image");
    EXPECT_FALSE(startRecord::load().tornKernel);
}

TEST_F(mainTest, ForceIsCarriedOverToTheRestart) {
    put("/keldra/config/system.manifest", R"({"updater":"2.0"})");
    offerPackage();
    EXPECT_EQ(run("", "ALL"), 0);
    EXPECT_TRUE(said("Updating Updater: 2.0 -> 2.0"));
    EXPECT_EQ(restarted(), "auto force -qws locked\n");
}

/** What a start script, an init or a console may leave behind for it. */
TEST_F(mainTest, UpdatesWhateverItIsStartedWith) {
    configuration += "output_times = 1\n";
    const struct {
        const char* name;
        const char* before;
        const char* behind;
        const char* prepare = ":";
    } rows[] = {
        {"nothing is open", "", "<&- >&- 2>&-"},
        {"into a file", "", "> /tmp/out 2>&1"},
        {"nobody reads", "", "> /tmp/pipe 2>&1", "sh -c 'exec sleep 1 < /tmp/pipe' &"},
        {"the reader stalls", "", "> /tmp/pipe 2>&1",
         "sleep 100 0<> /tmp/pipe & sleep 0.2; dd if=/dev/zero of=/tmp/pipe bs=4096 count=16 oflag=nonblock "
         "status=none"},
        {"signals are ignored and blocked, the reader is slow",
         "env --ignore-signal=CHLD --block-signal=CHLD ", "> /tmp/pipe",
         "sh -c 'sleep 1; exec cat > /tmp/read' < /tmp/pipe & echo $! > /tmp/reader"},
    };
    for (const auto& row : rows) {
        put("/keldra/config/system.manifest", R"({"kernel":"2.0"})");
        shell("rm -f /tmp/pipe; mkfifo /tmp/pipe; : > /dev/mmcblk0p1");
        offerKernel();
        shell(row.prepare);
        EXPECT_EQ(run("", "Run Update,Close", row.before, row.behind), 0) << row.name;
        EXPECT_EQ(contents("/dev/mmcblk0p1"), "a new kernel") << row.name;
        EXPECT_TRUE(holds({contents("/keldra/config/system.manifest")}, R"("kernel":"3.0")")) << row.name;
        const Bytes sent = bus.sentBytes();
        EXPECT_FALSE(holds({std::string(sent.begin(), sent.end())}, "MicroBus")) << row.name;
    }
    EXPECT_TRUE(awaitThat([] { return !succeeds("kill -0 $(cat /tmp/reader) 2> /dev/null"); }));
    const std::string read = contents("/tmp/read");
    EXPECT_EQ(read.substr(24, 17), "Init Start ------");
    EXPECT_FALSE(succeeds("grep -Ev '^[-0-9]{10} [:0-9]{8}[.][0-9]{3} ' /tmp/read /tmp/out"));
    EXPECT_TRUE(holds({read}, "stopping application\n") && holds({read}, "Saving Log: update.log\n")) << read;
}

TEST_F(mainTest, AskedToEndItStopsInOrder) {
    for (const char* signal : {"TERM", "INT"}) {
        offerKernel();
        shell("rm -f /keldra/config/system.manifest /tmp/ended /tmp/out");
        auto entered = std::make_shared<bool>(false); // the loader is answered, the run is not: it waits
        bus.autoAnswer([entered](const Frame& request) {
            return std::exchange(*entered, true) ? std::vector<Frame>{} : Bus::noModules(request);
        });
        configure();
        shell("(PRESS='Run Update' env --default-signal=INT " EMULATOR TESTS
              " --updater > /tmp/out & echo $! > /tmp/pid; wait $!; echo $? > /tmp/ended) &");
        const auto outputHolds = [](const char* text) { return holds({contents("/tmp/out")}, text); };
        ASSERT_TRUE(awaitThat([&] { return outputHolds("Switching System"); })) << contents("/tmp/out");
        shell(std::string("kill -") + signal + " $(cat /tmp/pid)");
        ASSERT_TRUE(awaitThat([] { return !contents("/tmp/ended").empty(); }));
        EXPECT_EQ(contents("/tmp/ended"), "0\n");
        EXPECT_TRUE(outputHolds("Canceled") && outputHolds("stopping application")) << contents("/tmp/out");
        EXPECT_TRUE(holds({contents("/keldra/config/system.manifest")}, "kernel"));
        EXPECT_TRUE(holds({contents("/keldra/logs/update.log")}, "Saving Log"));
        EXPECT_TRUE(holds({contents("/keldra/logs/bus.trace")}, "reason=canceled"));
        const std::vector<Frame> sent = bus.sent();
        EXPECT_NE(std::count(sent.begin(), sent.end(), RESTART_SYSTEM), 0);
    }
}

TEST_F(mainTest, ASecondUpdaterEndsAndTouchesNothing) {
    offerKernel();
    configure();
    shell(EMULATOR UPDATER " > /tmp/first & echo $! > /tmp/pid");
    ASSERT_TRUE(awaitThat([] { return holds({contents("/tmp/first")}, "Updater file loaded."); }));
    const std::size_t sent = bus.sentBytes().size();
    const std::string files = "ls -lR --full-time /keldra /tmp/update.log > ";
    shell(files + "/tmp/before");
    EXPECT_FALSE(succeeds("timeout 10 " EMULATOR UPDATER " auto > /tmp/out 2>&1"));
    EXPECT_EQ(contents("/tmp/out"), "Init Start ------\nAnother updater is running: this one ends\n");
    shell(files + "/tmp/after");
    EXPECT_EQ(contents("/tmp/before"), contents("/tmp/after"));
    EXPECT_EQ(bus.sentBytes().size(), sent);
    shell("kill -KILL $(cat /tmp/pid); flock /keldra/config true");
    offerKernel();
    EXPECT_EQ(run("", "Run Update,Close"), 0) << out; // the kernel has dropped the lock
}

/** Starts of the program itself, ten at a time, each on a panel and a bus of its own that answers at once. */
TEST_F(mainTest, AutoNeverLosesItsResumeFlag) {
    constexpr int AT_ONCE = 10;
    const std::string LINE = "9"; // descriptor of the serial line in each process
    leaveUnpacked();
    configuration += "up_mbus = /proc/self/fd/" + LINE + "\n";
    configure();
    const bool isSlow = std::strlen(EMULATOR) > 1;
    for (int starts = isSlow ? AT_ONCE : 100; starts > 0; starts -= AT_ONCE) {
        std::vector<std::unique_ptr<Bus>> lines;
        Texts outputs;
        for (int n = 0; n < AT_ONCE; ++n) {
            lines.push_back(std::make_unique<Bus>());
            lines.back()->autoAnswer(Bus::noModules);
            outputs.push_back("/tmp/out" + std::to_string(n));
            shell("cp -r /keldra/config /tmp/config" + std::to_string(n) +
                  "; unshare -m sh -c 'mount --bind /tmp/config" + std::to_string(n) +
                  " /keldra/config && exec " EMULATOR UPDATER " auto' " + LINE + "<>" + lines.back()->port() +
                  " > " + outputs.back() + " & echo $! >> /tmp/started");
        }
        for (const std::string& output : outputs) {
            EXPECT_TRUE(awaitThat([&] { return holds({contents(output)}, "Starting Update..."); }))
                << contents(output);
            EXPECT_FALSE(holds({contents(output)}, "Loading new file"));
        }
        shell("kill -KILL $(cat /tmp/started); rm /tmp/started");
    }
}

} // namespace
