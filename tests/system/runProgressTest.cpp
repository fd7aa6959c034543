#include "system/runProgress.h"

#include "lib/childProcess.h"
#include "support/panel.h"
#include "system/updateCoreLoader.h"

#include <fstream>
#include <thread>

namespace {

using KIND = runProgress::KIND;

class runProgressTest : public testing::Test {
protected:
    runProgress::clock::time_point at(double seconds) const {
        return zero + std::chrono::duration_cast<runProgress::clock::duration>(
                          std::chrono::duration<double>(seconds));
    }
    std::string textAt(double seconds) { return progress.state(at(seconds)).text; }

    const runProgress::clock::time_point zero;
    runProgress progress;
};

TEST_F(runProgressTest, TellsItemUnitsAndTimesLeft) {
    EXPECT_EQ(textAt(0), "");
    progress.start({{"Kernel", KIND::BYTES, 1}, {"Motor", KIND::PAGES, 60}, {"CTRL", KIND::RECORDS, 120}});
    EXPECT_EQ(textAt(0), "");
    progress.check("Motor", at(0)); // the kernel was passed over
    EXPECT_EQ(textAt(0), "Motor · is asked · about 3:00 min left in all");
    EXPECT_FALSE(progress.state(at(0)).isWriting);
    progress.write(KIND::PAGES, 100, 50, at(0)); // its image is known now
    EXPECT_EQ(textAt(0), "Motor · page 0 of 100 · 0:50 · about 2:50 min left in all");
    progress.reached(40, 100, at(20));
    EXPECT_EQ(textAt(20), "Motor · page 40 of 100 · 0:30 · about 2:30 min left in all");
    EXPECT_EQ(textAt(20.4), "Motor · page 40 of 100 · 0:30 · about 2:30 min left in all");
    EXPECT_EQ(textAt(60), "Motor · page 40 of 100 · 0:30 · about 2:30 min left in all"); // it is stuck
    EXPECT_TRUE(progress.state(at(60)).isWriting);
    progress.check("CTRL", at(60));
    progress.write(KIND::RECORDS, 2000, 30, at(60));
    EXPECT_EQ(textAt(60).substr(0, 28), "CTRL · record 0 of 2000 · ");
    progress.end();
    EXPECT_EQ(textAt(61), "");
    EXPECT_EQ(progress.stepName(), "CTRL");
}

/** Modules that take half as long again, one of which has three times the image that was expected. */
TEST_F(runProgressTest, LearnsFromWhatWasMeasuredAndNeverRaisesTheTimeMuch) {
    constexpr double SLOWNESS = 1.5;
    const double real[] = {40, 20, 60, 40};
    progress.start(
        {{"0", KIND::PAGES, 40}, {"1", KIND::PAGES, 40}, {"2", KIND::PAGES, 40}, {"3", KIND::PAGES, 40}});
    double total = 0;
    for (const double seconds : real) {
        total += seconds * SLOWNESS;
    }
    double now = 0;
    double last = 1e9;
    for (int step = 0; step < 4; ++step) {
        progress.check(std::to_string(step), at(now));
        progress.write(KIND::PAGES, 50, real[step], at(now));
        for (unsigned page = 1; page <= 50; ++page) {
            now += real[step] * SLOWNESS / 50;
            progress.reached(page, 50, at(now));
            const std::string text = textAt(now);
            const std::size_t about = text.find("about ");
            int minutes = 0;
            int seconds = 0;
            if (std::sscanf(text.c_str() + about, "about %d:%d min", &minutes, &seconds) != 2) {
                continue; // less than a minute
            }
            const double shown = 60 * minutes + seconds;
            EXPECT_LE(shown, last * 1.1 + 5) << text;
            last = shown;
            if (step > 1) {
                EXPECT_NEAR(shown, total - now, 0.2 * total) << text;
            }
        }
    }
}

TEST_F(runProgressTest, CountsTheBytesThatWereReadOfTheFileAtHand) {
    put("/tmp/half.read", std::string(2'000'000, 'x'));
    progress.start({{"GUI", KIND::BYTES, 1}});
    progress.check("GUI", at(0));
    progress.write(KIND::BYTES, 3'000'000, 1, at(0));
    progress.reached(1'000'000, 3'000'000, at(0));
    progress.reading("/tmp/half.read");
    EXPECT_TRUE(textAt(0).rfind("GUI · 1.0 of 3.0 MB · ", 0) == 0) << textAt(0);
    std::ifstream reader("/tmp/half.read", std::ios::binary);
    reader.rdbuf()->pubsetbuf(nullptr, 0);
    std::string half(1'000'000, ' ');
    reader.read(half.data(), 1'000'000);
    EXPECT_TRUE(textAt(0).rfind("GUI · 2.0 of 3.0 MB · ", 0) == 0) << textAt(0);
}

TEST_F(runProgressTest, TheLoaderTellsHowFarACommandHasReadThePackage) {
    const std::string package = "/keldra/tmp/keldra_update.tgz";
    EXPECT_EQ(updateCoreLoad::progressText(), "Loading the package");
    put(package, std::string(2'000'000, 'x'));
    shared<bool> isOver;
    std::thread command(
        [&] { childProcess::shell("(head -c 1000000 > /dev/null; sleep 60) < " + package, &isOver); });
    EXPECT_TRUE(
        awaitThat([] { return updateCoreLoad::progressText() == "Checking the package · 1.0 of 2.0 MB"; }));
    put("/keldra/tmp/keldra_update.unpacking", "");
    EXPECT_EQ(updateCoreLoad::progressText(), "Unpacking the package · 1.0 of 2.0 MB");
    isOver = true;
    command.join();
}

} // namespace
