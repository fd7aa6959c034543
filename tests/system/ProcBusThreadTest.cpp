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

TEST_F(ProcBusThreadTest, FramesAsSent) {
    const struct {
        const char* name;
        Frame frame;
        const char* bytes;
    } rows[] = {
        {"update mode", {16, {2, 0x37}}, "4B 2B 4D 42 10 02 02 37 D9 3D 0D 0A"},
        {"restart of the system", {16, {2, 0x21}}, "4B 2B 4D 42 10 02 02 21 2E 4F 0D 0A"},
        {"enter bootloader", {16, {13, ','}}, "4B 2B 4D 42 10 02 0D 2C BD 8E 0D 0A"},
        {"request status", {1, {13, 3}}, "4B 2B 4D 42 01 02 0D 03 30 5B 0D 0A"},
        {"start of page, 16 bits",
         {1, {7, 1, 18, 52, 6, 0}},
         "4B 2B 4D 42 01 06 07 01 12 34 06 00 0C 29 0D 0A"},
        {"start of page, 32 bits",
         {1, {16, 1, 16, 0, 8, 0, 0, 8}},
         "4B 2B 4D 42 01 08 10 01 10 00 08 00 00 08 A4 AA 0D 0A"},
        {"write page", {1, {9, 4}}, "4B 2B 4D 42 01 02 09 04 13 E7 0D 0A"},
        {"erase blocks",
         {1, {8, 5, 128, 0, 3, 0, 1, 8}},
         "4B 2B 4D 42 01 08 08 05 80 00 03 00 01 08 86 AB 0D 0A"},
        {"erase all", {1, {2, 6, 0, 0, 0, 0, 0, 0}}, "4B 2B 4D 42 01 08 02 06 00 00 00 00 00 00 BD 1F 0D 0A"},
        {"reset", {1, {2}}, "4B 2B 4D 42 01 01 02 B2 C1 0D 0A"},
        {"row 250", {2, {250, 1, 2, 3, 4, 5, 6, 7}}, "4B 2B 4D 42 02 08 FA 01 02 03 04 05 06 07 7C CB 0D 0A"},
        {"row 251", {4, {251, 0, 1, 2, 3, 4, 5, 6}}, "4B 2B 4D 42 04 08 FB 00 01 02 03 04 05 06 10 73 0D 0A"},
    };
    Bytes expected;
    std::size_t count = 0;
    for (const auto& row : rows) {
        core->comBus->send(message(row.frame));
        const Bytes bytes = hex(row.bytes);
        expected.insert(expected.end(), bytes.begin(), bytes.end());
        ASSERT_TRUE(bus.awaitSent(++count)) << row.name;
        EXPECT_EQ(bus.sentBytes(), expected) << row.name;
        EXPECT_EQ(encode(row.frame), bytes) << row.name;
    }
}

TEST_F(ProcBusThreadTest, RefusesMessagesLongerThanTheRecord) {
    ProcBusThread::PROCBUS_MSG msg;
    msg.length = 121;
    core->comBus->send(msg);
    msg.length = 120;
    core->comBus->send(msg);
    ASSERT_TRUE(bus.awaitSent(1));
    EXPECT_EQ(bus.sentBytes(), encode({0, Bytes(120)}));
}

TEST_F(ProcBusThreadTest, FindsFramesInTheStream) {
    const Bytes whole = encode(reply(0, 42, 7));
    const auto times = [](std::size_t n, const Bytes& bytes) {
        Bytes all;
        for (std::size_t i = 0; i < n; ++i) {
            all.insert(all.end(), bytes.begin(), bytes.end());
        }
        return all;
    };
    const auto joined = [](Bytes one, const Bytes& other) {
        one.insert(one.end(), other.begin(), other.end());
        return one;
    };
    Bytes padded = {0, 42, 0, 7};
    padded.resize(60);
    Bytes tooLong = padded;
    tooLong.resize(61);
    Bytes badCrc = whole;
    badCrc[10] = static_cast<std::uint8_t>(badCrc[10] ^ 1);
    Bytes badEnd = whole;
    badEnd[12] = badEnd[13] = 'x';
    const struct {
        const char* name;
        Bytes bytes;
        std::uint32_t page; ///< 0: nothing was taken for a reply
    } rows[] = {
        {"plain", whole, 42},
        {"behind noise", joined({'K', '+', 'M', 0, 'K', '+'}, whole), 42},
        {"two, the last one counts", joined(encode(reply(0, 41, 7)), whole), 42},
        {"fifty in one go", times(50, whole), 42},
        {"closing bytes are not looked at", badEnd, 42},
        {"60 bytes", encode({3, padded}), 42},
        {"61 bytes", encode({3, tooLong}), 0},
        {"wrong CRC", badCrc, 0},
        {"behind more noise than the buffer holds", joined(Bytes(297, 1), whole), 42},
        {"cut off by the next one", joined(Bytes(whole.begin(), whole.begin() + 6), whole), 42},
        {"sync within a payload", encode({3, {0, 42, 'K', '+', 'M', 'B', 99, 99}}), 0},
        {"no payload", encode({3, {}}), 0},
        {"id not known", encode({9, {0, 42, 0, 7}}), 0},
    };
    for (const auto& row : rows) {
        core->bootloader.status = 0xFF;
        bus.feed(row.bytes);
        bus.feed(Bytes(70, 0)); // ends whatever was begun
        ASSERT_TRUE(takenIn()) << row.name;
        EXPECT_EQ(core->bootloader.status == 0 ? core->bootloader.page.operator std::uint32_t() : 0, row.page)
            << row.name;
    }
}

TEST_F(ProcBusThreadTest, AFrameMayComeByteByByte) {
    for (const std::uint8_t byte : encode(reply(0, 42, 7))) {
        bus.feed(Bytes{byte});
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    EXPECT_TRUE(awaitThat([this] { return core->bootloader.page == 42U; }));
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
        int status;
        std::uint32_t page;
        int module;
    } rows[] = {
        {"CAN", {3, {6, 0xFA, 0x01, 16}}, 6, 0x1FA, 16},
        {"serial", {5, {1, 2, 0, 2}}, 1, 2, 2},
        {"module above 127", {3, {0, 0, 0, 0xFE}}, 0, 0, -2},
        {"short", {3, {4, 253}}, 4, 253, -1},
        {"short, page out of range", {3, {4, 254}}, 4, 0, -1},
        {"three bytes", {3, {4, 1, 2}}, 4, 0x201, 0}, // missing bytes count as 0
        {"one byte", {5, {3}}, 3, 0, 0},
    };
    for (const auto& row : rows) {
        core->busResetResponse();
        receive(row.frame);
        const auto& record = core->bootloader;
        EXPECT_TRUE(record.hasResponse) << row.name;
        EXPECT_EQ(record.status, row.status) << row.name;
        EXPECT_EQ(record.page, row.page) << row.name;
        EXPECT_EQ(record.moduleReported, row.module) << row.name;
    }
    EXPECT_FALSE(core->bootloader.oldProtocol);
}

TEST_F(ProcBusThreadTest, AnObsoleteBootloaderIsNotedAndGivesNoResponse) {
    for (const Frame& frame : {Frame{3, Bytes(6, 1)}, Frame{5, Bytes(6, 1)}, Frame{6, Bytes(11, 1)}}) {
        core->bootloader.oldProtocol = false;
        core->busResetResponse();
        receive(frame);
        EXPECT_TRUE(core->bootloader.oldProtocol);
        EXPECT_FALSE(core->bootloader.hasResponse || core->bootloader.blInitData);
        EXPECT_EQ(core->bootloader.page, 0xFFFFU);
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
    receive({6, {251, 3, 2, 1, 0x01}}); // too short: the module is 0
    EXPECT_FALSE(record.serialBootload);
    EXPECT_EQ(record.hwRev, 0);
    EXPECT_EQ(record.moduleReported, 0);
    EXPECT_EQ(record.reportedType, updateCore::PIC24);
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
    const struct {
        std::uint8_t number;
        updateCore::MODULE& module;
        bool showsPresence;
    } rows[] = {
        {3, core->cy1, false},    {4, core->cy2, false},   {5, core->cy3, false}, {6, core->cy4, false},
        {7, core->master, false}, {8, core->motor, false}, {9, core->s1, false},  {10, core->s2, false},
        {11, core->s3, false},    {12, core->s4, false},   {13, core->mf1, true}, {14, core->mf2, true},
        {15, core->mf3, true},    {50, core->arts, true},
    };
    for (const auto& row : rows) {
        const std::string number = std::to_string(row.number);
        receive({22, {row.number, 0x0A, 0xB0, 3, 4, 5, 0xFF, row.number, 2, 1, 77, 4}});
        EXPECT_EQ(row.module.serial.get(), "0ab0030405ff") << number;
        EXPECT_EQ(row.module.base.swVersion.get(), "1.2." + number);
        EXPECT_EQ(row.module.base.hwRev, 4) << number;
        EXPECT_TRUE(row.module.base.isAccurate) << number;
        EXPECT_EQ(row.module.available, row.showsPresence) << number;
        receive({22, {row.number, 0, 0, 0, 0, 0, 0, 1, 1, 1, 77}});
        EXPECT_EQ(row.module.base.hwRev, 0) << number;
    }
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
        bus.answer(0, round, 7);
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
