#include "system/updateCore.h"

#include "lib/ConfigFile.h"
#include "support/panel.h"

namespace {

using updateCoreTest = Panel;

TEST_F(updateCoreTest, ReadsItsConfiguration) {
    configuration = "ub_mbus = 9600 # baud\ndir = /keldra\n";
    start();
    EXPECT_EQ(core->uartPort, bus.port());
    EXPECT_EQ(core->uartBaud, 9600U);
    EXPECT_EQ(core->rootPath, "/keldra");
    EXPECT_FALSE(core->debug || core->resumeUpdate || core->forceUpdate || core->reboot || core->loaded);
    core.reset();
    configuration = "";
    start();
    EXPECT_EQ(core->uartBaud, 0U);
    EXPECT_EQ(core->rootPath, "");
}

TEST_F(updateCoreTest, DebugAndLogSizeShareOneNumber) {
    const struct {
        const char* keys;
        bool debug;
        std::size_t limit; ///< of the log, in bytes
    } rows[] = {
        {"", false, 0},
        {"debug = 1\n", true, 1},
        {"debug = 2\n", false, 2},
        {"debug = 1\nlog_max_size = 9\n", true, 9},
        {"log_max_size = 9\n", false, 9},
        {"debug = 0\n", false, 0},
    };
    for (const auto& row : rows) {
        configuration = "ub_mbus = 9600\ndir = /keldra\n" + std::string(row.keys);
        start();
        EXPECT_EQ(core->debug, row.debug) << row.keys;
        put("/keldra/logs/limit", std::string(row.limit, 'x'));
        EXPECT_FALSE(core->log->checkSize("limit")) << row.keys;
        put("/keldra/logs/limit", std::string(row.limit + 1, 'x'));
        EXPECT_TRUE(core->log->checkSize("limit")) << row.keys;
    }
}

TEST_F(updateCoreTest, AMissingConfigurationIsNamed) {
    try {
        const updateCore none;
        FAIL() << "no exception";
    } catch (const std::exception& missing) {
        EXPECT_NE(std::string(missing.what()).find("/keldra/config/vx3.cfg"), std::string::npos);
    }
}

TEST_F(updateCoreTest, ModuleTable) {
    start();
    const struct {
        updateCore::MODULE& module;
        int address;
        bool reset;
    } rows[] = {
        {core->cy1, 0, true},     {core->cy2, 0, true},   {core->cy3, 0, true},   {core->cy4, 0, true},
        {core->master, 7, false}, {core->motor, 8, true}, {core->ctrl, 2, true},  {core->s1, 9, true},
        {core->s2, 10, true},     {core->s3, 11, true},   {core->s4, 12, true},   {core->mf1, 13, true},
        {core->mf2, 14, true},    {core->mf3, 15, true},  {core->arts, 16, true},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.module.base.id, row.address);
        EXPECT_EQ(row.module.base.update.resetAfterUpdate, row.reset) << row.address;
        EXPECT_FALSE(row.module.available) << row.address;
    }
}

TEST_F(updateCoreTest, ARequestStartsWithAnEmptyReply) {
    start();
    core->bootloader.hasResponse = true;
    core->bootloader.status = 5;
    core->bootloader.moduleReported = std::int8_t{7};
    core->busResetResponse();
    EXPECT_FALSE(core->bootloader.hasResponse);
    EXPECT_EQ(core->bootloader.page, 0xFFFFU);
    EXPECT_EQ(core->bootloader.status, 0);
    EXPECT_EQ(core->bootloader.moduleReported, -1);
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
        std::vector<Frame> expected;
        for (int tries = 0; tries < 4; ++tries) {
            expected.push_back(request);
            expected.insert(expected.end(), 3, Frame{1, {2, 3}}); // a status request after each silent wait
        }
        ASSERT_TRUE(bus.awaitSent(before + expected.size()));
        const std::vector<Frame> sent = bus.sent();
        EXPECT_EQ(std::vector<Frame>(sent.begin() + static_cast<std::ptrdiff_t>(before), sent.end()),
                  expected);
        core.reset();
    }
}

TEST_F(updateCoreTest, LeavingWhileTheLoaderRunsEndsIt) {
    for (const bool orderly : {true, false}) {
        start();
        core->loadConfiguration(false); // the bus is silent: it waits
        ASSERT_TRUE(bus.awaitSent(1));
        if (orderly) {
            core->stop();
            EXPECT_FALSE(core->load->isRunning() || core->comBus->isRunning());
        }
        core.reset();
    }
}

TEST_F(updateCoreTest, LeavingWhileTheUpdateRunsEndsIt) {
    start();
    core->startUpdate();
    ASSERT_TRUE(bus.awaitSent(1));
    core.reset();
    EXPECT_TRUE(holds({contents("/keldra/logs/update.log")}, "[Notice]: Saving Log: update.log"));
}

} // namespace
