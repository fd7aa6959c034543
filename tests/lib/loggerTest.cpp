#include "lib/logger.h"

#include "support/panel.h"

#include <filesystem>
#include <memory>
#include <regex>

namespace fs = std::filesystem;

namespace {

const std::string LOGS = "/tmp/logs/";
const std::string STAGING = "/tmp/test.log";
const std::string LOG = LOGS + "test.log";

class loggerTest : public testing::Test {
protected:
    loggerTest() {
        fs::remove_all(LOGS);
        fs::remove(STAGING);
        fs::create_directory(LOGS);
    }
    static std::unique_ptr<logger> make(int maxSize, bool compact = false, bool rotate = true) {
        return std::make_unique<logger>(LOGS, "test.log", maxSize, compact, rotate);
    }
    static void expectMatch(const std::string& path, const std::string& pattern) {
        EXPECT_TRUE(std::regex_match(contents(path), std::regex(pattern))) << contents(path);
    }
    static Texts files() {
        Texts names;
        for (const auto& entry : fs::directory_iterator(LOGS)) {
            names.push_back(entry.path().filename());
        }
        std::sort(names.begin(), names.end());
        return names;
    }
};

TEST_F(loggerTest, LineFormat) {
    setenv("TZ", "XXX-1", 1);
    tzset();
    const auto log = make(1000);
    const std::string labels[] = {"Error", "Warning", "Notice", "Notice"};
    for (int type = 0; type < 4; ++type) {
        fs::remove(STAGING);
        EXPECT_TRUE(log->log_item("hello", static_cast<logger::LOG_TYPE>(type)));
        expectMatch(STAGING,
                    R"(\d\d-\d\d-20\d\d \d\d:\d\d:\d\d \+0100 \[)" + labels[type] + "\\]: hello\r\n");
    }
    unsetenv("TZ");
    tzset();
    fs::remove(STAGING);
    make(1000, true)->log_item("hello", logger::LOG_ERROR);
    expectMatch(LOG, "\\d{14}: hello\r\n"); // compact: no level, and nothing is said at the end
}

TEST_F(loggerTest, StagesUntilTheEndAndCarriesAnEarlierRunOver) {
    put(STAGING, "from a run that died\r\n");
    put(LOG, "old\r\n");
    {
        const auto log = make(1000);
        EXPECT_EQ(contents(LOG), "old\r\n");
        log->log_item("mine", logger::LOG_NOTICE);
        EXPECT_EQ(contents(LOG), "old\r\n");
        EXPECT_TRUE(log->logFileExists("test.log"));
    }
    expectMatch(LOG, "old\r\nfrom a run that died\r\n.*: mine\r\n.*: Saving Log: test.log\r\n");
    EXPECT_FALSE(fs::exists(STAGING));
}

TEST_F(loggerTest, DebugModeEchoesAndALostLineIsReported) {
    const auto log = make(1000);
    log->debugMode();
    testing::internal::CaptureStdout();
    log->log_item("hello", logger::LOG_NOTICE);
    EXPECT_EQ(testing::internal::GetCapturedStdout() + "\r\n",
              contents(STAGING).substr(0, contents(STAGING).size() - 2) + "\n\r\n");
    fs::remove(STAGING);
    fs::create_directory(STAGING);
    testing::internal::CaptureStdout();
    EXPECT_FALSE(log->log_item("hello", logger::LOG_NOTICE));
    EXPECT_TRUE(holds({testing::internal::GetCapturedStdout()}, "Could not open Log File!\n"));
}

TEST_F(loggerTest, MakesTheDirectoryOfItsStagingFile) {
    ASSERT_TRUE(succeeds("umount -l /tmp && rmdir /tmp"));
    EXPECT_TRUE(make(1000)->log_item("hello", logger::LOG_NOTICE));
}

/** The log directory on a card of its own, so small that a rotation's copies do not fit. */
TEST_F(loggerTest, AFullCardCostsNoneOfTheNewest) {
    ASSERT_TRUE(succeeds("mount -t tmpfs -o size=64k none " + LOGS));
    const std::string older(20'000, 'o');
    const std::string newest(30'000, 'n');
    put(LOG + ".0", older);
    put(LOG, newest);
    make(100, true);
    EXPECT_EQ(files(), (Texts{"test.log.0", "test.log.1"}));
    EXPECT_TRUE(contents(LOG + ".0") == newest && contents(LOG + ".1") == older);
    succeeds("umount " + LOGS);
}

TEST_F(loggerTest, OnlyALogOverItsLimitIsRotated) {
    put(LOG, std::string(100, 'x'));
    EXPECT_FALSE(make(100)->checkSize("test.log"));
    put(LOG, std::string(100, 'x'));
    EXPECT_TRUE(make(99)->checkSize("test.log"));
    for (const auto& [limit, rotate, left] : {std::tuple{8, true, Texts{"test.log"}},
                                              {7, true, {"test.log.0"}},
                                              {7, false, {}}}) { // lost in the end
        fs::remove_all(LOGS);
        fs::create_directory(LOGS);
        put(STAGING, "12345678");
        make(limit, true, rotate); // compact: the save adds nothing
        EXPECT_EQ(files(), left);
    }
}

TEST_F(loggerTest, KeepsFiveGenerations) {
    for (int n = 0; n <= 4; ++n) {
        put(LOG + "." + std::to_string(n), "generation " + std::to_string(n));
    }
    put(STAGING, "the newest");
    make(5, true);
    EXPECT_EQ(files(), (Texts{"test.log.0", "test.log.1", "test.log.2", "test.log.3", "test.log.4"}));
    EXPECT_EQ(contents(LOG + ".0"), "the newest");
    for (int n = 1; n <= 4; ++n) {
        EXPECT_EQ(contents(LOG + "." + std::to_string(n)), "generation " + std::to_string(n - 1));
    }
}

} // namespace
