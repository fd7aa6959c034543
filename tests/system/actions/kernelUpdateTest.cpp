#include "system/actions/kernelUpdate.h"

#include "support/panel.h"

#include <filesystem>

namespace fs = std::filesystem;

namespace {

const std::string CARD = "/dev/mmcblk0p1";

class kernelUpdateTest : public Panel {
protected:
    kernelUpdateTest() { start(); }

    bool write(const std::string& name) {
        core->core.kernel.update.items = {{"unused", "9"}, {name, "2.0"}};
        core->core.kernel.hwRev = std::uint8_t{1};
        core->core.kernel.swVersion = std::string("1.0");
        kernelUpdate kernel(core.get());
        kernel.setBase(&core->core.kernel);
        return kernel.run();
    }
    std::string version() const { return core->core.kernel.swVersion; }
};

TEST_F(kernelUpdateTest, WritesTheImageOfTheRevisionUnlessItsNameIsShort) {
    unpacked("ab", "image");
    for (const char* name : {"ab", "a", ""}) {
        EXPECT_TRUE(write(name));
        EXPECT_EQ(version() + contents(CARD), "1.0") << name;
    }
    const std::string image(100'000, 'k');
    unpacked("boot/kernel_3+v-1.img", image);
    EXPECT_TRUE(write("boot/kernel_3+v-1.img"));
    EXPECT_EQ(contents(CARD), image);
    EXPECT_EQ(version(), "2.0");
}

TEST_F(kernelUpdateTest, RecordsNothingButAPackagesImageOnThePartition) {
    const std::string notPlain = "Not a plain file";
    const struct {
        std::string why;    ///< in the log
        std::string name;   ///< of the image
        std::string make;   ///< a shell command, in the unpacked package
        std::string card{}; ///< a shell command that puts something else in its place
        std::string dd{};
    } rows[] = {
        {notPlain, "missing.img", ":"},
        {notPlain, "pipe.img", "mkfifo pipe.img"},
        {notPlain, "terminal.img", "ln -s /dev/ptmx terminal.img"},
        {notPlain, "outside.img", "ln -s /etc/passwd outside.img"},
        {notPlain, "folder.img", "mkdir folder.img"},
        {"Not as it was packed", "rotten.img", "echo rotten >rotten.img"},
        {"No boot partition", "kernel.img", ":", "ln -sf /dev/full /dev/mmcblk0p1"},
        {"No boot partition", "kernel.img", ":", "printf 'old kernel' >/dev/mmcblk0p1"},
        {"Read back otherwise", "kernel.img", ":", "", "exit 0"},
        {"Exit status 3 of dd: no room", "kernel.img", ":", "", "echo one; echo no room >&2; exit 3"},
    };
    unpacked("kernel.img", "new kernel"); // as long as the old one
    core->fileDigests["rotten.img"] = std::string(64, '0');
    core->fileDigests["kernel.img"] = "6b03a93e583c7748c65b03481b1afe1ca0b0f38bafea5852c49a5abdf239d99d";
    for (const auto& row : rows) {
        put(CARD, "old kernel");
        put("/tmp/update.log", "");
        shell("cd /keldra/tmp/keldra_update && " + row.make);
        if (!row.dd.empty()) {
            standIn("dd", row.dd);
        }
        shell(row.card.empty() ? ":" : "umount /dev/mmcblk0p1; " + row.card);
        EXPECT_FALSE(write(row.name)) << row.name;
        EXPECT_EQ(version(), "1.0") << row.name;
        if (!row.card.empty()) {
            shell("cd /tmp; printf 'old kernel' >card; rm /dev/mmcblk0p1; : >/dev/mmcblk0p1; "
                  "mount --bind card /dev/mmcblk0p1");
        }
        EXPECT_TRUE(holds(logged(), row.why)) << row.name;
        EXPECT_EQ(logged().back(), "[Error]: DD command failed: " + row.name);
        EXPECT_EQ(contents(CARD), "old kernel") << row.name;
        endStandIns();
    }
    EXPECT_TRUE(write("kernel.img"));
}

TEST_F(kernelUpdateTest, NoShellSeesAHostileName) {
    standIn("dd", "echo dd >> /tmp/canary; exec /opt/host-bin/dd \"$@\"");
    const std::string hostile = "; &|$`'\"\\*?[]{}()<>~#!=%^,:@\n\t\x01\x7F\xC3";
    Texts tails = {"$(touch /tmp/canary)", ";touch /tmp/canary;", " of=/tmp/canary"};
    for (const char character : hostile) {
        tails.push_back(std::string(1, character) + "x");
    }
    unpacked("kernel.img", "image");
    for (const std::string& tail : tails) {
        const std::string name = "kernel.img" + tail;
        unpacked(name, "image");
        EXPECT_FALSE(write(name)) << tail;
        EXPECT_TRUE(holds({contents("/tmp/update.log")}, "[Error]: DD command failed: " + name)) << tail;
        EXPECT_EQ(version(), "1.0") << tail;
        EXPECT_FALSE(fs::exists("/tmp/canary")) << tail;
    }
    EXPECT_FALSE(write("../keldra_update/kernel.img") || write("gui/../kernel.img") || write("a/.."));
    EXPECT_FALSE(fs::exists("/tmp/canary"));
    unpacked("..kernel..img", "image");
    EXPECT_TRUE(write("..kernel..img"));
    EXPECT_EQ(contents("/tmp/canary"), "dd\n");
    fs::remove("/tmp/canary");
}

} // namespace
