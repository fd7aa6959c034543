#include "system/updateCore.h"

#include "support/panel.h"

#include <algorithm>
#include <chrono>
#include <thread>

namespace {

using updateCoreTest = Panel;

TEST_F(updateCoreTest, DebugAndLogSizeShareOneNumber) {
    const struct {
        const char* keys;
        bool debug;
        std::size_t limit; ///< of the log, in bytes
        bool strict = false;
        bool strictBootloaders = false;
    } rows[] = {
        {"", false, 0},
        {"debug = 1\n", true, 1},
        {"debug = 2\n", false, 2},
        {"debug = 1\nlog_max_size = 9\n", true, 9},
        {"log_max_size = 9\n", false, 9},
        {"debug = 0\n", false, 0},
        {"debug = 2\nstrict_images = 1\n", false, 2, true}, // that number is no part of it
        {"strict_images = 2\n", false, 0, false},
        {"strict_bootloaders = 1\n", false, 0, false, true},
    };
    for (const auto& row : rows) {
        configuration = "ub_mbus = 9600\ndir = /keldra # a comment\n" + std::string(row.keys);
        start();
        EXPECT_EQ(core->debug, row.debug) << row.keys;
        EXPECT_EQ(core->strictImages, row.strict) << row.keys;
        EXPECT_EQ(core->strictBootloaders, row.strictBootloaders) << row.keys;
        EXPECT_EQ(core->uartBaud, 9600U);
        put("/keldra/logs/limit", std::string(row.limit, 'x'));
        EXPECT_FALSE(core->log->checkSize("limit")) << row.keys;
        put("/keldra/logs/limit", std::string(row.limit + 1, 'x'));
        EXPECT_TRUE(core->log->checkSize("limit")) << row.keys;
    }
}

TEST_F(updateCoreTest, CancelWithoutARunAnswersAtOnce) {
    start();
    core->cancelUpdate();
    settle();
    EXPECT_EQ(events, (Texts{"Canceled", "done 0"}));
    EXPECT_TRUE(holds(logged(), "[Notice]: Canceled"));
}

TEST_F(updateCoreTest, TheHaltMessageSurvivesASilentBusAfterTheLinkHasStopped) {
    for (const bool secondGeneration : {false, true}) {
        start();
        core->resetG1 = secondGeneration;
        const std::size_t before = bus.sent().size();
        core->stop();
        core->sendHaltMsg();
        EXPECT_TRUE(holds(logged(), "[Notice]: Restarting full system"));
        const Frame request = secondGeneration ? Frame{1, {2}} : RESTART_SYSTEM;
        const Frame status{1, {2, 3}};
        // Four tries of three waits. The next frame discards one that the bus was too busy to take.
        ASSERT_TRUE(bus.awaitSent(before + 4 + 12 - 2));
        const std::vector<Frame> sent = bus.sent();
        const auto first = sent.begin() + static_cast<std::ptrdiff_t>(before);
        EXPECT_NEAR(static_cast<int>(std::count(first, sent.end(), request)), 4, 1);
        EXPECT_NEAR(static_cast<int>(std::count(first, sent.end(), status)), 12, 1);
        core.reset();
    }
}

/** A worker may take its time between its last signal and its end: 300 ms here. */
TEST_F(updateCoreTest, AStartWhileTheThreadStillEndsIsNotLost) {
    bus.autoAnswer(Bus::noModules);
    start();
    QObject here;
    const auto linger = [] { std::this_thread::sleep_for(std::chrono::milliseconds(300)); };
    QObject::connect(core.get(), &updateCore::sendUpdateDone, &here, [this] {
        if (std::count(events.begin(), events.end(), "done 1") == 1) {
            core->startUpdate();
        }
    });
    QObject::connect(core.get(), &updateCore::sendUpdateDone, core.get(), linger, Qt::DirectConnection);
    core->startUpdate();
    EXPECT_TRUE(awaitThat([this] { return std::count(events.begin(), events.end(), "done 1") == 2; }));
    QObject::connect(core.get(), &updateCore::sendUpdatePackageLoaded, &here, [this] {
        if (std::count(events.begin(), events.end(), "loaded 1") == 1) { // there is no stick
            core->loadConfiguration(false);
        }
    });
    QObject::connect(core->load.get(), &updateCoreLoad::sendUpdatePackageLoaded, core->load.get(), linger,
                     Qt::DirectConnection);
    core->loadConfiguration(false);
    EXPECT_TRUE(awaitThat([this] { return std::count(events.begin(), events.end(), "loaded 1") == 2; }));
}

TEST_F(updateCoreTest, LeavingWhileTheLoaderOrTheUpdateRunsEndsIt) {
    for (const bool updating : {false, true}) {
        start();
        const std::size_t before = bus.sent().size();
        updating ? core->startUpdate() : core->loadConfiguration(false); // the bus is silent: they wait
        ASSERT_TRUE(bus.awaitSent(before + 1));
        if (!updating) {
            core->stop();
            EXPECT_FALSE(core->load->isRunning() || core->comBus->isRunning());
        }
        core.reset();
    }
    EXPECT_TRUE(holds({contents("/keldra/logs/update.log")}, "[Notice]: Saving Log: update.log"));
}

} // namespace
