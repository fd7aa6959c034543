// The core, its link, its loader and both bootloaders in one process against the simulated bus, in a sandbox.

#include "firmware.h"
#include "sim/panel/bed.h"
#include "system/ProcBusThread.h"
#include "system/updateCore.h"
#include "system/updateCoreLoader.h"

#include <CLI/CLI.hpp>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <random>
#include <stdexcept>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

constexpr int PATIENCE_MS = 120'000;
const std::string CONTENT = "/tmp/content/";

// Modules that are programmed, by their name in the inventory and in a manifest. The first is visited first.
const struct {
    const char* name;
    const char* item;
    const char* kind;
} MODULES[] = {{"mf1", "mf", "stm32f3"},
               {"s1", "slave", "pic24"},
               {"motor", "motor", "stm32f4"},
               {"ctrl", "ctrl", nullptr}};

void require(bool holds, const std::string& what) {
    if (!holds) {
        throw std::runtime_error(what);
    }
}

void await(const std::function<bool()>& condition, const std::string& what) {
    QElapsedTimer timer;
    for (timer.start(); !condition();) {
        require(timer.elapsed() < PATIENCE_MS, "no " + what);
        usleep(200);
    }
}

/** A package for everything on the stick, and a bus whose modules are all older. */
class Surroundings {
public:
    Surroundings(const std::string& simulator, const std::string& controlKind) {
        std::mt19937_64 random(1);
        std::string inventory;
        std::string manifest =
            R"({"updater": {"f": "K+Updater", "v": "2"}, "kernel": {"f": "uImage", "v": "2"},)"
            R"( "gui": {"f": "gui", "v": "2"})";
        for (const auto& module : MODULES) {
            const std::string kindName = module.kind != nullptr ? module.kind : controlKind;
            const Kind& kind = kindNamed(kindName);
            const std::string name = module.name;
            panel::put(CONTENT + name + ".hex", hexFile(kind, makeImage(kind, random), random));
            inventory += name + " kind=" + kindName + " version=1.0.0 next=2.0.0\n";
            manifest +=
                ", \"" + std::string(module.item) + R"(": {"f": ")" + name + R"(.hex", "v": "2.0.0"})";
        }
        panel::put(CONTENT + "K+Updater", "new");
        panel::put(CONTENT + "uImage", std::string(2000, 'k'));
        panel::put(CONTENT + "gui/keldra/gui/K+Main", "new");
        panel::put(CONTENT + "update.manifest", manifest + "}");
        panel::configure(panel::SimulatedBus::PORT, 115200, "log_max_size = 100000\n");
        panel::shell(
            "cd " + CONTENT +
            " && sha1sum update.manifest >update.manifest.sha && tar -czf /mnt/usb/keldra_update.tgz ."
            " && cd /mnt/usb && sha1sum keldra_update.tgz >keldra_update.tgz.sha");
        bus_ = std::make_unique<panel::SimulatedBus>(simulator, inventory);
    }
    Surroundings(const Surroundings&) = delete;
    Surroundings& operator=(const Surroundings&) = delete;
    ~Surroundings() {
        bus_.reset();
        panel::succeeds("rm -rf /tmp/content /keldra/tmp/* /keldra/config/* /usr/bin/K+Updater");
    }

private:
    std::unique_ptr<panel::SimulatedBus> bus_;
};

/**
 * A core, and what it said last. Its signals are handled where they are emitted, so that nothing passes
 * through an event queue: the thread sanitizer does not see that a queue hands over.
 */
class Panel {
public:
    Panel() {
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
        await([this] { return loaded >= 0 && core.load->wait(0); }, "package");
        require(loaded != 1, "the package was refused: " + said.get());
    }
    void start() {
        done = -1;
        core.startUpdate();
    }
    void awaitText(const std::string& text) {
        await([&] { return said.get().rfind(text, 0) == 0; }, text);
    }
    void cancel() {
        core.cancelUpdate();
        require(!core.isRunning(), "the run goes on");
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

void updateCompletely(const std::string& simulator, const std::string& controlKind) {
    const Surroundings surroundings(simulator, controlKind);
    {
        Panel first;
        first.load(false);
        first.start();
        await([&first] { return first.restart; }, "restart");
        first.core.stop();
    }
    Panel second;
    second.load(true);
    second.start();
    second.awaitText("Updating Secondary #1");
    second.cancel();
    second.core.comBus->reload_uart();
    second.start();
    await([&second] { return second.done >= 0; }, "end");
    require(second.done == 1, "the update failed: " + second.said.get());
    second.core.stop();
    std::ifstream log("/tmp/update.log");
    const std::string text{std::istreambuf_iterator<char>(log), {}};
    require(text.find("Could not erase") == text.npos && text.find("Retrying") == text.npos,
            "a fault in the log");
}

struct Usage {
    long memory = 0; ///< KiB that are resident
    long descriptors = 0;
    long threads = 0;
};

Usage usage() {
    Usage now;
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        if (word == "VmRSS:") {
            status >> now.memory;
        } else if (word == "Threads:") {
            status >> now.threads;
        }
    }
    now.descriptors = std::distance(fs::directory_iterator("/proc/self/fd"), {});
    return now;
}

/** Every round loads the package anew and cancels a run a little later than the one before. */
void cancelOften(const std::string& simulator, int rounds) {
    constexpr int LATEST_CANCEL_MS = 60;
    constexpr long GROWTH_KIB = 1024; // of the allocator's doing
    panel::shell("umount /mnt/usb"); // a folder that is not mounted stays when the loader takes off the stick
    const Surroundings surroundings(simulator, "pic32-pages");
    panel::put("/keldra/config/system.manifest", R"({"updater":"2"})");
    Panel panel;
    const int settled = rounds / 10;
    Usage before;
    for (int n = 0; n < rounds; ++n) {
        panel.load(false);
        panel.start();
        usleep(static_cast<useconds_t>(1000 * (n % LATEST_CANCEL_MS)));
        panel.cancel();
        if (n == settled) {
            before = usage();
        }
        if (n % 100 == 0) {
            std::ofstream("/tmp/update.log"); // it grows as long as the program runs
        }
    }
    const Usage after = usage();
    std::fprintf(stderr, "%d rounds: memory %ld -> %ld KiB, descriptors %ld -> %ld, threads %ld -> %ld\n",
                 rounds, before.memory, after.memory, before.descriptors, after.descriptors, before.threads,
                 after.threads);
    require(after.memory <= before.memory + GROWTH_KIB, "memory grows");
    require(after.descriptors == before.descriptors, "descriptors are lost");
    require(after.threads == before.threads, "threads are left");
}

} // namespace

int main(int argc, char** argv) {
    std::string simulator;
    int rounds = 0;
    CLI::App app("The core against the simulated bus, in a sandbox.", "core-soak");
    app.require_subcommand(1);
    app.add_option("SIMULATOR", simulator, "the program bus-sim")->required();
    const auto* update = app.add_subcommand(
        "update", "a complete update with a restart of the updater, a cancel and reloads of the port");
    app.add_subcommand("soak",
                       "rounds of a reload and a cancelled run: memory, descriptors and threads stay flat")
        ->add_option("N", rounds, "how many")
        ->required();
    const QCoreApplication application(argc, argv);
    try {
        app.parse(argc, argv);
        if (update->parsed()) {
            updateCompletely(simulator, "pic32-pages");
            updateCompletely(simulator, "pic32-records");
        } else {
            cancelOften(simulator, rounds);
        }
        return 0;
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "core-soak: %s\n", failure.what());
        return 1;
    }
}
