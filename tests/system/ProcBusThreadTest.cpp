#include "system/ProcBusThread.h"

#include "support/panel.h"

#include <algorithm>

namespace {

ProcBusThread::PROCBUS_MSG message(const Frame& frame) {
    ProcBusThread::PROCBUS_MSG msg;
    msg.id = frame.id;
    msg.length = static_cast<std::uint8_t>(frame.payload.size());
    std::copy(frame.payload.begin(), frame.payload.end(), msg.data);
    return msg;
}

class ProcBusThreadTest : public Panel {
protected:
    ProcBusThreadTest() { start(); }

    /** As the link passes it on, with the rest of the record as an earlier frame may have left it. */
    void receive(const Frame& frame) {
        ProcBusThread::PROCBUS_MSG msg = message(frame);
        std::fill(msg.data + msg.length, std::end(msg.data), std::uint8_t{0xEE});
        core->comBus->receive(msg);
    }
    /** Waits until everything fed so far has been taken in, by a message that files nothing but a version. */
    bool takenIn() {
        ++marker;
        bus.feed({22, {3, 0, 0, 0, 0, 0, 0, marker, 0, 0, 0}});
        return awaitThat(
            [this] { return core->cy1.base.swVersion.get() == "0.0." + std::to_string(marker); });
    }
    std::uint8_t marker = 0;
};

TEST_F(ProcBusThreadTest, SendsWholeFrames) {
    core->comBus->send(message(ENTER_UPDATE_MODE)); // busMessagesTest has the bootloaders' requests
    ASSERT_TRUE(bus.awaitSent(1));
    core->comBus->send(message(RESTART_SYSTEM));
    ASSERT_TRUE(bus.awaitSent(2));
    EXPECT_EQ(bus.sentBytes(),
              hex("4B 2B 4D 42 10 02 02 37 D9 3D 0D 0A 4B 2B 4D 42 10 02 02 21 2E 4F 0D 0A"));
    ProcBusThread::PROCBUS_MSG msg;
    msg.length = 121; // longer than the record
    core->comBus->send(msg);
    msg.length = 120;
    core->comBus->send(msg);
    ASSERT_TRUE(bus.awaitSent(3));
    EXPECT_EQ(bus.sent()[2], (Frame{0, Bytes(120)}));
}

TEST_F(ProcBusThreadTest, FindsFramesInTheStream) {
    const auto text = [](const Frame& frame) {
        const Bytes bytes = encode(frame);
        return std::string(bytes.begin(), bytes.end());
    };
    const std::string whole = text(reply(0, 42, 7));
    std::string fifty;
    for (int n = 0; n < 50; ++n) {
        fifty += whole;
    }
    Frame long60{3, {0, 42, 0, 7}};
    long60.payload.resize(60);
    Frame long61 = long60;
    long61.payload.resize(61);
    std::string badCrc = whole;
    badCrc[10] = static_cast<char>(badCrc[10] ^ 1);
    const struct {
        const char* name;
        std::string bytes;
        std::uint32_t page; ///< 0: nothing was taken for a reply
    } rows[] = {
        {"plain", whole, 42},
        {"behind noise", "K+M.K+" + whole, 42},
        {"two, the last one counts", text(reply(0, 41, 7)) + whole, 42},
        {"fifty in one go", fifty, 42},
        {"closing bytes are not looked at", whole.substr(0, 12) + "xx", 42},
        {"60 bytes", text(long60), 42},
        {"61 bytes", text(long61), 0},
        {"wrong CRC", badCrc, 0},
        {"behind more noise than the buffer holds", std::string(297, '.') + whole, 42},
        {"cut off by the next one", whole.substr(0, 6) + whole, 42},
        {"sync within a payload", text({3, {0, 42, 'K', '+', 'M', 'B', 99, 99}}), 0},
        {"no payload", text({3, {}}), 0},
        {"id not known", text({9, {0, 42, 0, 7}}), 0},
    };
    for (const auto& row : rows) {
        core->bootloader.status = 0xFF;
        bus.feed(Bytes(row.bytes.begin(), row.bytes.end()));
        bus.feed(Bytes(70, 0)); // ends whatever was begun
        ASSERT_TRUE(takenIn()) << row.name;
        EXPECT_EQ(core->bootloader.status == 0 ? core->bootloader.page.operator std::uint32_t() : 0, row.page)
            << row.name;
    }
    for (const std::uint8_t byte : encode(reply(0, 43, 7))) { // one by one
        bus.feed(Bytes{byte});
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    EXPECT_TRUE(awaitThat([this] { return core->bootloader.page == 43U; }));
}

TEST_F(ProcBusThreadTest, ReportsFramesWhoseChecksumIsWrong) {
    const struct {
        Bytes bytes;
        const char* line;
    } rows[] = {
        {hex("4B 2B 4D 42 03 04 00 01 00 07 18 C3 0D 0A"),
         "CRC ERR: 3 4 (c318 vs c317) 24 195 11 - 0 1 0 7 \n"},
        {hex("4B 2B 4D 42 09 00 FF FF 0D 0A 00"), "CRC ERR: 9 0 (dff vs ffff) 255 13 8 - \n"}, // no payload
    };
    for (const auto& row : rows) {
        core.reset();
        start(); // an empty buffer: the line tells the position in it
        testing::internal::CaptureStdout();
        bus.feed(row.bytes);
        EXPECT_TRUE(takenIn());
        EXPECT_EQ(testing::internal::GetCapturedStdout(), row.line);
    }
}

TEST_F(ProcBusThreadTest, FilesReplies) {
    const struct {
        const char* name;
        Frame frame;
        bool obsolete; ///< noted, but no response
        int status;
        std::uint32_t page;
        int module;
    } rows[] = {
        {"CAN", {3, {6, 0xFA, 0x01, 16}}, false, 6, 0x1FA, 16},
        {"serial", {5, {1, 2, 0, 2}}, false, 1, 2, 2},
        {"one byte", {5, {3}}, false, 3, 0, -1}, // busMessagesTest has all lengths
        {"CAN, obsolete", {3, Bytes(6, 1)}, true, 0, 0xFFFF, -1},
        {"identification, obsolete", {6, Bytes(11, 1)}, true, 0, 0xFFFF, -1},
    };
    for (const auto& row : rows) {
        core->bootloader.oldProtocol = false;
        core->busResetResponse();
        receive(row.frame);
        const auto& record = core->bootloader;
        EXPECT_EQ(record.hasResponse, !row.obsolete) << row.name;
        EXPECT_EQ(record.oldProtocol, row.obsolete) << row.name;
        EXPECT_EQ(record.status, row.status) << row.name;
        EXPECT_EQ(record.page, row.page) << row.name;
        EXPECT_EQ(record.moduleReported, row.module) << row.name;
        EXPECT_FALSE(record.blInitData) << row.name;
    }
}

TEST_F(ProcBusThreadTest, FilesIdentifications) {
    testing::internal::CaptureStdout();
    receive({6, {250, 3, 2, 1, 0x86, 13}});
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "INIT BL: 86 HW: 250 SW: 1.2.3\n");
    const auto& record = core->bootloader;
    EXPECT_TRUE(record.hasResponse && record.blInitData && record.serialBootload);
    EXPECT_EQ(record.hwRev, 250);
    EXPECT_EQ(record.swVersion.get(), "1.2.3");
    EXPECT_EQ(record.moduleReported, 13);
    EXPECT_EQ(record.reportedType, updateCore::STM32F4);
}

TEST_F(ProcBusThreadTest, FilesTheStatusOfSixModules) {
    // Fields: master present in mode 5, motor absent, s1 lost, s2 present in mode 0, s3 mode 7, s4 absent.
    updateCore::MODULE* const modules[] = {&core->master, &core->motor, &core->s1,
                                           &core->s2,     &core->s3,    &core->s4};
    for (updateCore::MODULE* module : modules) {
        module->available = true;
        module->lostCom = false;
        module->mode = 3;
    }
    core->s2.lostCom = true;
    receive({21, {0xFF, 0xFF, 0x1A, 0x0F, 0x3E}});
    std::string states;
    for (updateCore::MODULE* module : modules) {
        states += std::string(module->available ? "+" : "-") + (module->lostCom ? "lost" : "") +
                  std::to_string(module->mode) + " ";
    }
    EXPECT_EQ(states, "+5 -3 +lost3 +0 +7 -3 ");
    receive({21, {0, 0}}); // the missing fields are 0: present, mode 0
    EXPECT_TRUE(core->s4.available);
}

TEST_F(ProcBusThreadTest, FilesIdentities) {
    updateCore::MODULE* const modules[] = {&core->cy1,   &core->cy2, &core->cy3, &core->cy4, &core->master,
                                           &core->motor, &core->s1,  &core->s2,  &core->s3,  &core->s4,
                                           &core->mf1,   &core->mf2, &core->mf3};
    const auto check = [this](std::uint8_t number, const updateCore::MODULE& module, bool showsPresence) {
        receive({22, {number, 0x0A, 0xB0, 3, 4, 5, 0xFF, number, 2, 1, 77, 4}});
        EXPECT_EQ(module.serial.get(), "0ab0030405ff") << int{number};
        EXPECT_EQ(module.base.swVersion.get(), "1.2." + std::to_string(number));
        EXPECT_EQ(module.base.hwRev, 4) << int{number};
        EXPECT_TRUE(module.base.isAccurate) << int{number};
        EXPECT_EQ(module.available, showsPresence) << int{number};
        receive({22, {number, 0, 0, 0, 0, 0, 0, 1, 1, 1, 77}});
        EXPECT_EQ(module.base.hwRev, 0) << int{number};
    };
    std::uint8_t number = 3;
    for (const updateCore::MODULE* module : modules) {
        check(number, *module, number >= 13);
        ++number;
    }
    check(50, core->arts, true);
    receive({22, {2, 3, 2, 1}});
    EXPECT_EQ(core->ctrl.base.swVersion.get(), "1.2.3");
    EXPECT_TRUE(core->ctrl.base.isAccurate);
    receive({22, {16, 1, 1, 1, 1, 1, 1, 9, 9, 9, 0, 9}}); // a bus address, not a module number
    EXPECT_EQ(core->arts.base.hwRev, 0);
}

TEST_F(ProcBusThreadTest, EveryValidMessageShowsThatTheControlModuleLives) {
    for (const std::uint8_t id : Bytes{0, 4, 23, 255}) {
        core->ctrl.available = false;
        core->ctrl.lostCom = true;
        receive({id, {1}});
        EXPECT_TRUE(core->ctrl.available && !core->ctrl.lostCom) << int{id};
        EXPECT_FALSE(core->bootloader.hasResponse) << int{id};
    }
}

TEST_F(ProcBusThreadTest, ReloadsOfThePortLoseNothingThatComesAfterwards) {
    for (std::uint16_t round = 1; round <= 300; ++round) {
        core->comBus->reload_uart();
        bus.feed(reply(0, round, 7));
        ASSERT_TRUE(awaitThat([&] { return core->bootloader.page == round; })) << round;
    }
    core->comBus->send(message(ENTER_UPDATE_MODE));
    EXPECT_TRUE(bus.awaitSent(1));
}

TEST_F(ProcBusThreadTest, LogsHowThePortWasOpened) {
    EXPECT_TRUE(core->comBus->isInit());
    EXPECT_TRUE(holds(logged(), "[Notice]: MicroBus Processor Running on " + bus.port() + " at Baud 115200"));
    const struct {
        const char* configuration;
        const char* line;
    } rows[] = {
        {"up_mbus = /dev/none\n", "[Error]: Could not Start MicroBus: Could not open UART"},
        {"ub_mbus = 500000\n", "[Error]: Could not Start MicroBus: Could not init UART"},
    };
    const std::string good = configuration;
    for (const auto& row : rows) {
        core.reset();
        configuration = good + row.configuration;
        start();
        EXPECT_FALSE(core->comBus->isInit());
        EXPECT_TRUE(holds(logged(), row.line));
        core->comBus->send(message(ENTER_UPDATE_MODE)); // does nothing
        core->comBus->reload_uart();
        core->stop(); // ends, though there is nothing to read from
    }
    EXPECT_EQ(bus.sentBytes(), Bytes{});
}

} // namespace
