// The core, its link, its loader and both bootloaders in one process against the simulated bus.

#include "support/hexImage.h"
#include "support/panel.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

namespace {

/** A core, and what it said last. */
class Updater {
public:
    /**
     * Signals are handled where they are emitted, so that nothing passes through an event queue: the thread
     * sanitizer does not see that a queue hands over.
     */
    Updater() {
        QObject::disconnect(core.load.get(), nullptr, &core, nullptr);
        listen(core.load.get(), &updateCoreLoad::sendStatusMessage,
               [this](const QString& text) { core.gotStatusMessage(text); });
        listen(core.load.get(), &updateCoreLoad::sendUpdatePackageLoaded,
               [this](unsigned char mode) { loaded = mode; });
        listen(&core, &updateCore::sendStatusMessage,
               [this](const QString& text) { said = text.toStdString(); });
        listen(&core, &updateCore::sendUpdateDone, [this](bool success) { done = success ? 1 : 0; });
        listen(&core, &updateCore::sendReboot, [this] { restart = true; });
    }

    void load(bool resume) {
        loaded = -1;
        core.loadConfiguration(resume);
        EXPECT_TRUE(awaitThat([this] { return loaded >= 0 && core.load->wait(0); }));
        EXPECT_NE(loaded, 1) << said.get();
    }
    void start() {
        done = -1;
        core.startUpdate();
    }
    void cancel() {
        core.cancelUpdate();
        EXPECT_FALSE(core.isRunning());
        core.running = false;
    }

    updateCore core;
    sharedText said;
    shared<int> done{-1};
    shared<int> loaded{-1};
    shared<bool> restart{false};

private:
    template <class Sender, class Signal, class Handler>
    void listen(Sender* sender, Signal signal, Handler handler) {
        QObject::connect(sender, signal, sender, handler, Qt::DirectConnection);
    }
};

/** A package for everything on the stick, and a bus whose modules are up to date but for four. */
class soakTest : public Panel {
protected:
    void offer(const std::string& controlKind) {
        const struct {
            std::string name;
            std::string item;
            std::string kind;
            std::uint32_t address;
        } programmed[] = {{"mf1", "mf", "stm32f3", 0x08000000},
                          {"s1", "slave", "pic24", 0},
                          {"motor", "motor", "stm32f4", 0x08000000},
                          {"ctrl", "ctrl", controlKind, 0x1D000000}};
        std::string inventory;
        std::string manifest = R"({"updater":{"f":"K+Updater","v":"2"},"kernel":{"f":"uImage","v":"2"},)"
                               R"("gui":{"f":"gui","v":"2"})";
        for (const auto& module : programmed) {
            pack(module.name + ".hex", hexImage({{module.address, 3000}}));
            inventory += module.name + " kind=" + module.kind + " version=1.0.0 next=2.0.0\n";
            manifest += ",\"" + module.item + R"(":{"f":")" + module.name + R"(.hex","v":"2.0.0"})";
        }
        for (const char* name : {"mf2", "mf3", "s2", "s3", "s4", "arts", "master"}) {
            inventory += std::string(name) + " version=2.0.0\n";
        }
        pack("K+Updater", "new");
        pack("uImage", std::string(2000, 'k'));
        pack("gui/keldra/gui/K+Main", "new");
        packOntoStick(manifest + "}");
        panel::configure(panel::SimulatedBus::PORT, 115200, configuration);
        simulated.reset(); // it holds the port
        simulated = std::make_unique<panel::SimulatedBus>(BUS_SIM, inventory);
    }

    std::unique_ptr<panel::SimulatedBus> simulated;
};

TEST_F(soakTest, UpdatesWithARestartACancelAndReloadsOfThePort) {
    for (const char* controlKind : {"pic32-pages", "pic32-records"}) {
        shell("rm -rf /keldra/config/system.manifest /tmp/update.log");
        offer(controlKind);
        {
            Updater first;
            first.load(false);
            first.start();
            EXPECT_TRUE(awaitThat([&first] { return first.restart; }));
            first.core.stop();
        }
        Updater second;
        second.load(true);
        second.start();
        EXPECT_TRUE(awaitThat([&second] { return second.said.get().starts_with("Updating Secondary #1"); }));
        second.cancel();
        second.core.comBus->reload_uart();
        second.start();
        EXPECT_TRUE(awaitThat([&second] { return second.done >= 0; }));
        EXPECT_EQ(second.done, 1) << second.said.get();
        second.core.stop();
        EXPECT_FALSE(holds(logged(), "Could not erase") || holds(logged(), "Retrying"));
    }
}

/** Resident memory in KiB, threads, and descriptors. */
std::vector<long> usage() {
    std::vector<long> now;
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        if (word == "VmRSS:" || word == "Threads:") {
            status >> now.emplace_back();
        }
    }
    now.push_back(std::distance(fs::directory_iterator("/proc/self/fd"), {}));
    return now;
}

/** Every round loads the package anew and cancels a run a little later than the one before. */
TEST_F(soakTest, CancelledRunsLeaveNothing) {
    constexpr int LATEST_CANCEL_MS = 60;
    constexpr long GROWTH_KIB = 1024; // of the allocator's doing
    const char* const wanted = std::getenv("SOAK_ROUNDS");
    if (wanted == nullptr) {
        GTEST_SKIP() << "for campaigns/all";
    }
    const int rounds = std::atoi(wanted);
    succeeds("umount /mnt/usb"); // a folder that is not mounted stays when the loader takes off the stick
    offer("pic32-pages");
    put("/keldra/config/system.manifest", R"({"updater":"2"})");
    Updater updater;
    std::vector<long> before;
    for (int n = 0; n < rounds; ++n) {
        updater.load(false);
        updater.start();
        usleep(static_cast<useconds_t>(1000 * (n % LATEST_CANCEL_MS)));
        updater.cancel();
        if (n == rounds / 10) {
            before = usage();
        }
        if (n % 100 == 0) {
            put("/tmp/update.log", ""); // it grows as long as the program runs
        }
    }
    std::vector<long> after;
    EXPECT_TRUE(awaitThat([&] { // threads that have ended go a little later
        after = usage();
        return after[1] <= before[1] && after[2] <= before[2];
    })) << testing::PrintToString(before)
        << testing::PrintToString(after);
    std::printf("memory %ld -> %ld KiB\n", before[0], after[0]);
    EXPECT_LE(after[0], before[0] + GROWTH_KIB);
}

} // namespace
