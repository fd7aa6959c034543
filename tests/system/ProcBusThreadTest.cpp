#include "system/ProcBusThread.h"

#include "support/panel.h"

#include <algorithm>
#include <sstream>

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
        EXPECT_EQ(core->bootloader.status == 0 ? core->bootloader.page : 0U, row.page) << row.name;
    }
    for (const std::uint8_t byte : encode(reply(0, 43, 7))) { // one by one
        bus.feed(Bytes{byte});
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    EXPECT_TRUE(awaitThat([this] { return core->bootloader.page == 43U; }));
}

TEST_F(ProcBusThreadTest, ReportsFramesWhoseChecksumIsWrong) {
    const std::pair<Bytes, const char*> rows[] = {
        {hex("4B 2B 4D 42 03 04 00 01 00 07 18 C3 0D 0A"),
         "CRC ERR: 3 4 (c318 vs c317) 24 195 11 - 0 1 0 7 \n"},
        {hex("4B 2B 4D 42 09 00 FF FF 0D 0A 00"), "CRC ERR: 9 0 (dff vs ffff) 255 13 8 - \n"}, // no payload
    };
    for (const auto& [bytes, line] : rows) {
        core.reset();
        start(); // an empty buffer: the line tells the position in it
        testing::internal::CaptureStdout();
        bus.feed(bytes);
        EXPECT_TRUE(takenIn());
        EXPECT_EQ(testing::internal::GetCapturedStdout(), line);
    }
}

TEST_F(ProcBusThreadTest, FilesAnswersAndSeesThatTheControlModuleLives) {
    const struct {
        const char* name;
        Frame frame;
        const char* filed;
    } rows[] = {
        {"CAN", {3, {6, 0xFA, 0x01, 16}}, "response 6 506 16"},
        {"serial", {5, {1, 2, 0, 2}}, "response 1 2 2"},
        {"one byte", {5, {3}}, "response 3 0 -1"}, // busMessagesTest has all lengths
        {"identification", {6, {250, 3, 2, 1, 0x86, 13}}, "response 0 65535 13 is 6s 250 1.2.3"},
        {"CAN, obsolete", {3, Bytes(6, 1)}, "obsolete 0 65535 -1"},
        {"identification, obsolete", {6, Bytes(11, 1)}, "obsolete 0 65535 -1"},
        {"another message", {23, {1}}, " 0 65535 -1"},
    };
    for (const auto& row : rows) {
        core->bootloader.oldProtocol = false;
        core->bootloader.blInitData = false;
        core->busResetResponse();
        core->ctrl.available = false;
        core->ctrl.lostCom = true;
        receive(row.frame);
        const auto& record = core->bootloader;
        std::ostringstream filed;
        filed << (record.hasResponse ? "response" : "") << (record.oldProtocol ? "obsolete" : "") << ' '
              << int{record.status} << ' ' << record.page << ' ' << int{record.moduleReported};
        if (record.blInitData) {
            filed << " is " << int{record.reportedType} << (record.serialBootload ? "s " : " ")
                  << int{record.hwRev} << ' ' << record.swVersion;
        }
        EXPECT_EQ(filed.str(), row.filed) << row.name;
        EXPECT_TRUE(core->ctrl.available && !core->ctrl.lostCom) << row.name;
    }
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
    std::vector<updateCore::MODULE*> modules = {
        &core->cy1, &core->cy2, &core->cy3, &core->cy4, &core->master, &core->motor, &core->s1,
        &core->s2,  &core->s3,  &core->s4,  &core->mf1, &core->mf2,    &core->mf3};
    modules.resize(50 - 3); // by number, from 3 on
    modules.push_back(&core->arts);
    for (std::size_t n = 0; n < modules.size(); ++n) {
        if (modules[n] == nullptr) {
            continue;
        }
        const updateCore::MODULE& module = *modules[n];
        const auto number = static_cast<std::uint8_t>(n + 3);
        receive({22, {number, 0x0A, 0xB0, 3, 4, 5, 0xFF, number, 2, 1, 77, 4}});
        EXPECT_EQ(module.serial + " " + module.base.swVersion, "0ab0030405ff 1.2." + std::to_string(number));
        EXPECT_EQ(module.base.hwRev, 4) << n;
        EXPECT_TRUE(module.base.isAccurate) << n;
        EXPECT_EQ(module.available, number >= 13) << n;
        receive({22, {number, 0, 0, 0, 0, 0, 0, 1, 1, 1, 77}});
        EXPECT_EQ(module.base.hwRev, 0) << n;
    }
    receive({22, {2, 3, 2, 1}});
    EXPECT_EQ(core->ctrl.base.swVersion.get(), "1.2.3");
    EXPECT_TRUE(core->ctrl.base.isAccurate);
    receive({22, {16, 1, 1, 1, 1, 1, 1, 9, 9, 9, 0, 9}}); // a bus address, not a module number
    EXPECT_EQ(core->arts.base.hwRev, 0);
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
    const std::pair<const char*, const char*> rows[] = {
        {"up_mbus = /dev/none\n", "[Error]: Could not Start MicroBus: Could not open UART"},
        {"ub_mbus = 500000\n", "[Error]: Could not Start MicroBus: Could not init UART"},
    };
    const std::string good = configuration;
    for (const auto& [keys, line] : rows) {
        core.reset();
        configuration = good + keys;
        start();
        EXPECT_FALSE(core->comBus->isInit());
        EXPECT_TRUE(holds(logged(), line));
        core->comBus->send(message(ENTER_UPDATE_MODE)); // does nothing
        core->comBus->reload_uart();
        core->stop(); // ends, though there is nothing to read from
    }
    EXPECT_EQ(bus.sentBytes(), Bytes{});
}

} // namespace
