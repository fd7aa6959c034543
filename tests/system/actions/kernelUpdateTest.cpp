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

TEST_F(kernelUpdateTest, AFailingWriteKeepsTheVersion) {
    EXPECT_FALSE(write("missing.img"));
    EXPECT_EQ(logged().back(), "[Error]: DD command failed: missing.img");
    unpacked("kernel.img", "image");
    fs::remove(CARD);
    fs::create_symlink("/dev/full", CARD);
    EXPECT_FALSE(write("kernel.img"));
    EXPECT_EQ(logged().back(), "[Error]: DD command failed: kernel.img");
    EXPECT_EQ(version(), "1.0");
    fs::remove(CARD);
}

TEST_F(kernelUpdateTest, NoShellSeesAHostileName) {
    standIn("dd", "echo dd >> /tmp/canary");
    const std::string hostile = "; &|$`'\"\\*?[]{}()<>~#!=%^,:@\n\t\x01\x7F\xC3";
    Texts tails = {"$(touch /tmp/canary)", ";touch /tmp/canary;", " of=/tmp/canary", "/../kernel.img"};
    for (const char character : hostile) {
        tails.push_back(std::string(1, character) + "x");
    }
    unpacked("kernel.img", "image");
    for (const std::string& tail : tails) {
        const std::string name = "kernel.img" + tail;
        EXPECT_FALSE(write(name)) << tail;
        EXPECT_TRUE(holds({contents("/tmp/update.log")}, "[Error]: DD command failed: " + name)) << tail;
        EXPECT_EQ(version(), "1.0") << tail;
        EXPECT_FALSE(fs::exists("/tmp/canary")) << tail;
    }
    EXPECT_FALSE(write("../keldra_update/kernel.img") || write("a/.."));
    EXPECT_FALSE(fs::exists("/tmp/canary"));
    EXPECT_TRUE(write("..kernel..img"));
    EXPECT_EQ(contents("/tmp/canary"), "dd\n");
    fs::remove("/tmp/canary");
}

} // namespace
