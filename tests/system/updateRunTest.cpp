#include "support/panel.h"
#include "system/actions/action.prototype.h"

#include <algorithm>
#include <filesystem>

namespace fs = std::filesystem;

namespace {

constexpr std::uint8_t STM32F3 = 3;

/** The events of a run, which begins as all do. */
Texts eventsOf(std::initializer_list<Texts> parts) {
    Texts all = {"Starting Update...", "Switching System to Bootload Mode..."};
    for (const Texts& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}
Texts checked(const std::string& name, const std::string& result) {
    return {"Checking " + name + " for update", name + " " + result, "tick 6"};
}

class updateRunTest : public Panel {
protected:
    updateRunTest() {
        start();
        bus.autoAnswer(Bus::noModules);
    }
    void offer(updateCore::BASE_ITEM& item, const std::string& name, const std::string& text,
               unsigned mode = 0644) {
        unpacked(name, text, mode);
        item.swVersion = std::string("1.0");
        item.update.items = {{name, "2.0"}};
    }
    /** What the run tells about the modules when none is there, and its end. */
    static Texts noModulesAndDone() {
        Texts expected;
        for (const char* name :
             {"MultiFunction #1", "MultiFunction #2", "MultiFunction #3", "ARTS Sensor", "Secondary #1",
              "Secondary #2", "Secondary #3", "Secondary #4", "Motor", "Primary", "CTRL"}) {
            const Texts visit = checked(name, "not found");
            expected.insert(expected.end(), visit.begin(), visit.end());
        }
        expected.emplace_back("done 1");
        return expected;
    }
};

TEST_F(updateRunTest, VisitsEverythingInOrder) {
    offer(core->core.kernel, "kernel.img", "image");
    offer(core->core.gui, "gui/tmp/gui.file", "gui");
    core->core.gui.update.items[0] = {"gui", std::string(4000, 'y')}; // shown in part
    core->core.gui.swVersion = std::string(1'000'000, 'x');
    offer(core->core.rootfs, "rootfs", "never visited");
    testing::internal::CaptureStdout();
    update();
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(events,
              eventsOf({checked("Updater", "up-to-date"),
                        {"Checking Kernel for update", "Updating Kernel: 1.0 -> 2.0", "tick 6"},
                        checked("Drivers", "up-to-date"),
                        {"Checking GUI for update",
                         "Updating GUI: " + std::string(80, 'x') + " -> " + std::string(80, 'y'), "tick 6"},
                        noModulesAndDone()}));
    for (const std::string& text : shown) {
        EXPECT_TRUE(holds(logged(), "[Notice]: " + text)) << text;
    }
    EXPECT_TRUE(core->success);
    EXPECT_EQ(contents("/dev/mmcblk0p1"), "image");
    EXPECT_EQ(contents("/tmp/gui.file"), "gui");
    EXPECT_EQ(core->core.rootfs.swVersion.get(), "1.0");
    EXPECT_TRUE(holds({out}, "Length of Operation: 0.") && holds({out}, "Bootload Total Length: "));
    std::vector<int> asked; // into their bootloaders
    for (const Frame& frame : bus.sent()) {
        if (frame.id == 16 && frame.payload[1] == ENTER_BOOTLOADER &&
            (asked.empty() || asked.back() != frame.payload[0])) {
            asked.push_back(frame.payload[0]);
        }
    }
    EXPECT_EQ(asked, (std::vector<int>{13, 14, 15, 16, 9, 10, 11, 12, 8, 7, 2}));
}

TEST_F(updateRunTest, ANewUpdaterEndsTheFirstStage) {
    offer(core->core.updater, "K+Updater", "program", 0755);
    update();
    EXPECT_EQ(events, eventsOf({{"Checking Updater for update", "Updating Updater: 1.0 -> 2.0", "tick 6",
                                 "reboot"}}));
    EXPECT_EQ(contents("/usr/bin/K+Updater"), "program");
    EXPECT_EQ(contents("/keldra/logs/bus.trace"), ""); // for what did not fail, only when it is asked for
    core->recordsAll = true;
    EXPECT_EQ(access("/usr/bin/K+Updater", X_OK), 0);
    EXPECT_FALSE(core->success);

    events.clear(); // the second stage counts it and goes on
    core->resumeUpdate = true;
    core->core.updater.swVersion = std::string("1.0");
    update();
    EXPECT_EQ(events, eventsOf({{"tick 6"},
                                checked("Kernel", "up-to-date"),
                                checked("Drivers", "up-to-date"),
                                checked("GUI", "up-to-date"),
                                noModulesAndDone()}));
    EXPECT_FALSE(core->resumeUpdate);
    EXPECT_TRUE(holds({contents("/keldra/logs/bus.trace")}, "reason=succeeded updater="));
    EXPECT_TRUE(holds({contents("/keldra/logs/bus.trace")}, "! Checking Drivers for update\n"));
}

TEST_F(updateRunTest, AFailedItemEndsTheRun) {
    offer(core->core.kernel, "kernel.img", "image");
    offer(core->core.drivers, "drivers/file", "");
    standIn("dd", "exit 1");
    core->success = true; // of an earlier run
    update();
    EXPECT_EQ(events, eventsOf({checked("Updater", "up-to-date"),
                                {"Checking Kernel for update", "Updating Kernel: 1.0 -> 2.0", "done 0"}}));

    events.clear();
    offer(core->core.updater, "K+Updater", "");
    core->core.updater.update.items[0].item = "missing";
    testing::internal::CaptureStdout();
    update();
    EXPECT_TRUE(holds({testing::internal::GetCapturedStdout()}, "UPDATE ERROR\n"));
    EXPECT_EQ(events, eventsOf({{"Checking Updater for update", "Updating Updater: 1.0 -> 2.0", "done 0"}}));
}

TEST_F(updateRunTest, WithoutAnswerToTheUpdateModeItFails) {
    bus.autoAnswer({});
    update();
    EXPECT_EQ(events, eventsOf({{"Could not switch system to update mode", "done 0"}}));
    EXPECT_TRUE(holds(logged(), "[Error]: Could not switch system to update mode"));
    EXPECT_TRUE(holds({contents("/keldra/logs/bus.trace")}, "reason=failed updater="));
    EXPECT_TRUE(holds(logged(), "[Notice]: Bus traffic saved"));
    shell("rm -r /keldra/logs && touch /keldra/logs"); // no folder
    update();
    EXPECT_TRUE(holds(logged(), "[Warning]: Could not save the bus traffic"));
}

TEST_F(updateRunTest, AFailedCheckAndAnEmptyListUpdateNothing) {
    struct : action {
        using action::action;
        STATUS needsUpdate(bool) override { return answer; }
        bool run() override { return false; }
        STATUS answer = UPERROR;
    } item{core.get()};
    updateCore::BASE_ITEM nothing;
    EXPECT_EQ(core->runUpdate(&item, &nothing, "X", false, 6.0), action::UPERROR);
    item.answer = action::GOUPDATE;
    EXPECT_EQ(core->runUpdate(&item, &nothing, "Y", false, 6.0), action::NOMODULE);
    settle();
    EXPECT_EQ(events, (Texts{"Checking X for update", "tick 6", "Checking Y for update"}));
}

TEST_F(updateRunTest, AHalfProgrammedModuleWithoutAnImageIsSaidAndNotStarted) {
    for (const bool identifies : {true, false}) {
        bus.autoAnswer([&](const Frame& frame) -> std::vector<Frame> {
            const std::uint8_t asked = frame.payload[0];
            if (frame.id != 16 || asked != 9) {
                return Bus::noModules(frame);
            }
            return {identifies ? identification(9, STM32F3, "1.0.0") : reply(0, 0, 9)};
        });
        core->setUnfinished(core->s1.base, true);
        events.clear();
        update();
        const auto at = std::find(events.begin(), events.end(), "Checking Secondary #1 for update");
        ASSERT_GT(events.end() - at, 2);
        EXPECT_EQ(at[1], "Secondary #1 is half programmed, the package has nothing for it");
        EXPECT_EQ(at[2], "tick 6");
        EXPECT_EQ(events.back(), "done 0");
        EXPECT_TRUE(holds(events, "CTRL not found")) << "the others are updated all the same";
        EXPECT_FALSE(core->success);
        EXPECT_EQ(core->log->lastError(), "Unfinished module, and nothing in the package for it");
        for (const Frame& frame : bus.sent()) {
            EXPECT_NE(frame, (Frame{16, {9, '!'}})) << "a module with half a program was started";
        }
    }
}

TEST_F(updateRunTest, ACancelWaitsForTheShellsCommand) {
    offer(core->core.kernel, "kernel.img", "image");
    standIn("dd", "echo > /tmp/started; sleep 2.5; echo > /tmp/finished");
    core->startUpdate();
    ASSERT_TRUE(awaitThat([] { return fs::exists("/tmp/started"); }));
    core->cancelUpdate(); // by the operator's button; the thread is terminated after 2 s
    EXPECT_TRUE(fs::exists("/tmp/finished"));
    EXPECT_FALSE(succeeds("grep -qsxE 'dd|sleep' /proc/[0-9]*/comm")) << "a process is left";
    EXPECT_FALSE(core->isRunning());
    endStandIns();
    settle();
    core->core.kernel.swVersion = std::string("1.0");
    update();
    EXPECT_EQ(events.back(), "done 1");
    EXPECT_EQ(contents("/dev/mmcblk0p1"), "image");
}

} // namespace
