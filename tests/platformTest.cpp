// What x86-64 and 32-bit ARM do differently: these tests are worth running on both.

#include "crashReport.h"
#include "lib/ConfigFile.h"
#include "lib/functs.h"
#include "lib/logger.h"
#include "support/panel.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr std::time_t YEAR_2040 = 2208988800; // 1 January, UTC; does not fit into 32 bits with a sign
std::time_t pretended = 0;                    // what time() says, unless 0

} // namespace

extern "C" std::time_t time(std::time_t* result) noexcept {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const std::time_t seconds = pretended != 0 ? pretended : now.tv_sec;
    if (result != nullptr) {
        *result = seconds;
    }
    return seconds;
}

namespace {

TEST(platform, BytesAbove127AreNoBlanks) {
    const std::string text = "\xA0\x85\xFFGr\xC3\xB6\xC3\x9F"
                             "e\xE4\xA0";
    std::string trimmed = " " + text + "\t";
    functs f;
    f.trim(trimmed);
    EXPECT_EQ(trimmed, text);
    put("/tmp/settings", "dir = " + text + "\nEndConfigFile\n");
    std::string value;
    EXPECT_TRUE(ConfigFile("/tmp/settings", "=", "#", "EndConfigFile").readInto(value, "dir"));
    EXPECT_EQ(value, text);
}

TEST(platform, FilesBeyond32BitsAreSeen) {
    put("/tmp/future", "text");
    const timespec times[2] = {{YEAR_2040, 0}, {YEAR_2040, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, "/tmp/future", times, 0), 0);
    functs f;
    EXPECT_TRUE(f.isFile("/tmp/future"));
    EXPECT_EQ(f.getFileSize("/tmp/future"), 4);
    EXPECT_EQ(f.getFileContents("/tmp/future"), "text\n");
    ASSERT_EQ(truncate("/tmp/future", off_t{3} << 30), 0);
    EXPECT_TRUE(f.isFile("/tmp/future"));
    EXPECT_EQ(f.getFileSize("/tmp/future"), INT32_MAX);
    EXPECT_TRUE(f.removeFile("/tmp/future"));
}

TEST(platform, TheLogGoesOnBeyond2038) {
    setenv("TZ", "UTC", 1);
    tzset();
    pretended = YEAR_2040;
    const std::string stamp = logger("/tmp/", "log", 1000, false, false).get_time();
    pretended = 0;
    EXPECT_EQ(stamp, "01-01-2040 00:00:00 +0000");
}

/** The instruction that faults. */
[[gnu::noinline]] void store(volatile char* address) {
    *address = 1;
}

TEST(platform, TheCrashReportNamesTheFaultingInstruction) {
    void* const page = mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    const pid_t child = fork();
    if (child == 0) {
        close(STDOUT_FILENO);
        installCrashReport();
        store(static_cast<volatile char*>(page));
        _exit(99);
    }
    waitpid(child, nullptr, 0);
    const std::string report = contents("/keldra/logs/crash.dump");
    unsigned long address = 0;
    unsigned long counter = 0;
    const std::size_t at = report.find("Address: ");
    ASSERT_NE(at, std::string::npos);
    ASSERT_EQ(std::sscanf(report.c_str() + at, "Address: 0x%lx from 0x%lx", &address, &counter), 2);
    EXPECT_EQ(address, reinterpret_cast<unsigned long>(page));
    const auto start = reinterpret_cast<unsigned long>(&store) & ~1UL; // an odd address tells the ARM mode
    EXPECT_GE(counter, start);
    EXPECT_LT(counter, start + 256); // with all that a sanitizer adds
    char frame[32];
    std::snprintf(frame, sizeof frame, "[0x%lx]", counter);
    EXPECT_NE(report.find(frame), std::string::npos) << report;
    munmap(page, 4096);
}

} // namespace
