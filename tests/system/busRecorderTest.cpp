#include "system/busRecorder.h"

#include "support/panel.h"

#include <atomic>
#include <functional>
#include <regex>
#include <thread>

namespace {

const std::string TRACE = "/keldra/logs/bus.trace";
const Bytes ROW = encode({2, {5, 1, 2, 3, 4, 5, 6, 7}});
const Bytes ANSWER = encode(reply(0, 5, 9));

std::string digits(const Bytes& bytes) {
    std::string text;
    for (const unsigned byte : bytes) {
        text += {"0123456789ABCDEF"[byte / 16], "0123456789ABCDEF"[byte % 16]};
    }
    return text;
}

/** The lines of a trace without their times; the first one tells when, and why. */
Texts entries(const std::string& file = TRACE) {
    Texts lines;
    std::istringstream in(contents(file));
    for (std::string line; std::getline(in, line);) {
        EXPECT_EQ(line.find_first_not_of("0123456789"), line.find(' ') - 7) << line;
        lines.push_back(line.substr(line.find(' ') + 1));
    }
    return lines;
}

class busRecorderTest : public testing::Test {
protected:
    void begin(std::uint32_t bytes = busRecorder::USUAL_SIZE) { recorder.begin(bytes, TRACE, "baud=115200"); }
    void send(const Bytes& frame = ROW) { recorder.sent(frame.data(), frame.size()); }
    /** As the link reads: few bytes at a time. */
    void receive(const Bytes& bytes) {
        for (std::size_t n = 0; n < bytes.size(); n += 3) {
            recorder.received(bytes.data() + n, std::min<std::size_t>(3, bytes.size() - n));
        }
    }
    busRecorder recorder;
};

TEST_F(busRecorderTest, TellsFramesFromWhatIsNone) {
    const Bytes cut(ANSWER.begin(), ANSWER.begin() + 6);
    const Bytes unclosed(ANSWER.begin(), ANSWER.end() - 2);
    Bytes wrongEnd = ANSWER;
    wrongEnd.back() = 0x55;
    const Bytes longest = encode({22, Bytes(60, 0x4B)});
    const struct {
        const char* name;
        std::vector<Bytes> read;
        std::vector<Bytes> listed;
    } rows[] = {
        {"a reply", {ANSWER}, {ANSWER}},
        {"noise before it", {hex("FF 4B 2B 4D"), ANSWER}, {hex("FF 4B 2B 4D"), ANSWER}},
        {"part of another one before it", {cut, ANSWER}, {cut, ANSWER}},
        {"no closing bytes", {unclosed, ANSWER}, {unclosed, ANSWER}},
        {"wrong closing bytes", {wrongEnd, ANSWER}, {wrongEnd, ANSWER}},
        {"the longest one", {longest, ANSWER}, {longest, ANSWER}},
        {"no payload", {encode({3, {}}), ANSWER}, {encode({3, {}}), ANSWER}},
        {"at the very end, a part", {ANSWER, cut}, {cut, ANSWER}}, // told first, with the reason
        {"more noise than is held", {Bytes(90, 0x2B), ANSWER}, {Bytes(76, 0x2B), Bytes(14, 0x2B), ANSWER}},
    };
    for (const auto& row : rows) {
        busRecorder fresh;
        fresh.begin(busRecorder::USUAL_SIZE, TRACE, "baud=115200");
        fresh.sent(ROW.data(), ROW.size());
        for (const Bytes& bytes : row.read) {
            for (const std::uint8_t byte : bytes) {
                fresh.received(&byte, 1);
            }
        }
        ASSERT_EQ(fresh.save("failed"), busRecorder::SAVED::DONE) << row.name;
        Texts expected;
        for (const Bytes& bytes : row.listed) {
            expected.push_back("< " + digits(bytes));
        }
        Texts found = entries();
        EXPECT_TRUE(
            std::regex_match(found[0], std::regex(R"(! recording saved=\d+ reason=failed baud=115200)")));
        std::erase_if(found, [](const std::string& line) { return line[0] != '<'; });
        EXPECT_EQ(found, expected) << row.name;
    }
}

TEST_F(busRecorderTest, KeepsTheNewestAndThreeRecordings) {
    recorder.mark("nothing is recorded yet");
    begin(1 << 17); // 4096 slots, two blocks
    EXPECT_EQ(recorder.save("failed"), busRecorder::SAVED::NOTHING);
    for (int n = 0; n < 5000; ++n) {
        recorder.mark(std::to_string(n));
    }
    send();
    receive(ANSWER);
    recorder.mark(std::string(300, 'x') + "\n");
    EXPECT_EQ(recorder.save("canceled"), busRecorder::SAVED::DONE);
    Texts found = entries();
    ASSERT_EQ(found.size(), 1 + 4096 - 9U); // the last mark takes ten slots
    EXPECT_EQ(found[1], "! 2964");          // the second block, which is the newer one
    EXPECT_EQ(found[2037], "> " + digits(ROW));
    EXPECT_EQ(found[2039], "! " + std::string(200, 'x'));
    EXPECT_EQ(found.back(), "! 2963");
    EXPECT_EQ(recorder.save("stopped"), busRecorder::SAVED::NOTHING); // all of it is there
    for (int n = 0; n < 3; ++n) {
        send();
        EXPECT_EQ(recorder.save("again"), busRecorder::SAVED::DONE);
    }
    EXPECT_TRUE(succeeds("[ $(ls /keldra/logs | tr '\\n' ' ' | tee /dev/stderr | wc -w) = 3 ]"));
    EXPECT_TRUE(holds({entries(TRACE + ".1")[0]}, "reason=again"));
}

TEST_F(busRecorderTest, ACardWithoutRoomKeepsWhatItHas) {
    begin();
    send();
    ASSERT_EQ(recorder.save("first"), busRecorder::SAVED::DONE);
    shell("mount -t tmpfs -o size=64k none /keldra/logs && echo old > /keldra/logs/bus.trace");
    for (int n = 0; n < 5000; ++n) {
        send();
    }
    EXPECT_EQ(recorder.save("failed"),
              busRecorder::SAVED::FAILED); // a part of it is more than half of the card
    EXPECT_EQ(contents(TRACE), "old\n");
    EXPECT_TRUE(succeeds("[ $(ls /keldra/logs | wc -l) = 1 ]"));
    shell("umount /keldra/logs");
    EXPECT_EQ(recorder.save("failed"), busRecorder::SAVED::DONE); // it was not saved before
}

TEST_F(busRecorderTest, ThreadsRecordWhileItIsSaved) {
    begin(1 << 14);
    std::atomic<bool> ends{false};
    std::vector<std::thread> threads;
    const std::function<void()> work[] = {[&] { send(); }, [&] { receive(ANSWER); },
                                          [&] { recorder.mark(std::string(90, 'm')); }};
    for (const auto& each : work) {
        threads.emplace_back([&] {
            while (!ends) {
                each();
            }
        });
    }
    for (int n = 0; n < 20; ++n) {
        recorder.save("failed");
        for (const std::string& line : entries()) {
            EXPECT_TRUE(line[0] != '>' || line == "> " + digits(ROW)) << line;
            EXPECT_TRUE(line[0] != 'm' || line.size() == 92) << line;
        }
    }
    ends = true;
    for (std::thread& each : threads) {
        each.join();
    }
}

} // namespace
