#include "system/updateCoreLoader.h"

#include "support/panel.h"
#include "support/table.h"

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

const std::string MANIFEST = R"({"kernel":{"f":"kernel.img","v":"2.0"}})";
const Texts LOADED = {"Loading Update File....", "Updater file loaded."};

class updateCoreLoaderTest : public Panel {
protected:
    /** An unpacked package, as an earlier start has left it. */
    void leaveUnpacked(const std::string& manifest) {
        unpacked("update.manifest", manifest);
        shell("cd /keldra/tmp/keldra_update && sha1sum update.manifest > update.manifest.sha");
    }
    std::string kernelVersion() const {
        const auto& items = core->core.kernel.update.items;
        return items.empty() ? "" : items[0].version;
    }
};

TEST_F(updateCoreLoaderTest, LoadsAPackage) {
    pack("kernel.img", "image", 0755);
    packOntoStick(MANIFEST);
    put("/keldra/tmp/keldra_update/left.over", "");
    put("/keldra/tmp/keldra_update.old", "");
    start();
    testing::internal::CaptureStdout();
    EXPECT_EQ(load(), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Loading new file\n");
    EXPECT_EQ(shown, LOADED);
    EXPECT_EQ(logged().back(), "[Notice]: Updater file loaded.");
    EXPECT_EQ(logged()[logged().size() - 2], "[Error]: Updater is ready to update");
    EXPECT_TRUE(core->loaded);
    EXPECT_EQ(kernelVersion(), "2.0");
    EXPECT_EQ(bus.sent(), std::vector<Frame>{ENTER_UPDATE_MODE});
    EXPECT_EQ(contents("/keldra/tmp/keldra_update/kernel.img"), "image");
    EXPECT_EQ(fs::status("/keldra/tmp/keldra_update/kernel.img").permissions(), static_cast<fs::perms>(0755));
    EXPECT_FALSE(fs::exists("/keldra/tmp/keldra_update/left.over") ||
                 fs::exists("/keldra/tmp/keldra_update.old"));
    EXPECT_FALSE(fs::exists("/mnt/usb/keldra_update.tgz")); // the stick may be pulled
    bus.feed(reply(0, 77, 7));
    EXPECT_TRUE(awaitThat([this] { return core->bootloader.page == 77U; })); // the port is open again
}

TEST_F(updateCoreLoaderTest, EveryFailureIsShownLoggedAndReported) {
    // Log | window | done to stick or panel | program that fails | done to the tree, before it is packed |
    // manifest
    auto rows = rowsOf(R"(
    [Warning]: No update file found             | No updater file or USB not connected | rm /mnt/usb/*
    [Error]: Update file corrupted              | Updater file corrupted! | echo >> keldra_update.tgz
    [Error]: Update file corrupted              | Updater file corrupted! | rm *.sha
    [Error]: Update file corrupted              | Updater file corrupted! | rm *.sha; mkfifo keldra_update.tgz.sha
    [Error]: Update file corrupted              | Updater file corrupted! | truncate -s 500M *.sha
    [Error]: Updater manifest is corrupt        | Updater file corrupted! | | | rm update.manifest.sha; mkfifo update.manifest.sha
    [Error]: Updater manifest is corrupt        | Updater file corrupted! | | | truncate -s 17M update.manifest; sha1sum update.manifest >update.manifest.sha
    [Error]: Updater manifest is corrupt        | Updater file corrupted! | | | echo >> update.manifest
    [Error]: Updater manifest is corrupt        | Updater file corrupted! | | | rm update.manifest
    [Error]: Could not flush temp directory     | Internal Error | mkdir /keldra/tmp/keldra_update | rm
    [Error]: Could not create temp directory    | Internal Error | touch /keldra/tmp/keldra_update | rm
    [Error]: Could not untar archieve           | Internal Error | echo x > keldra_update.tgz; sha1sum keldra_update.tgz > keldra_update.tgz.sha
    [Error]: Config file is blank               | Internal Error | | | | {"a":12}
    [Error]: Config file is invalid             | Internal Error | | | | {"kernel":
    [Error]: Config file is invalid             | Internal Error | | | | {"kernel":{"f":"kernel.img","v":"2.0"}}}
    [Error]: Config file is invalid             | Internal Error | | | | of a long version
    [Error]: Could not remount system           | Internal Error | | mount |
    )");
    start();
    for (auto& row : rows) {
        row.resize(6);
        const std::string& failing = row[3];
        std::string manifest = row[5].empty() ? MANIFEST : row[5];
        if (manifest == "of a long version") {
            manifest = R"({"kernel":{"f":"kernel.img","v":")" + std::string(5000, '1') + R"("}})";
        }
        shell("rm -rf /keldra/tmp/* /mnt/usb/* /tmp/package");
        packOntoStick(manifest, row[4].empty() ? ":" : row[4]);
        shell("cd /mnt/usb; " + row[2]);
        if (!failing.empty()) {
            standIn(failing, "exit 1");
        }
        shown.clear();
        EXPECT_EQ(load(), 1) << row[0];
        EXPECT_EQ(shown, (Texts{"Loading Update File....", row[1]})) << row[0];
        const Texts log = logged();
        EXPECT_EQ(std::count(log.begin(), log.end(), row[0]), 1) << row[0];
        EXPECT_FALSE(core->loaded) << row[0];
        endStandIns();
        put("/tmp/update.log", "");
    }
    EXPECT_EQ(kernelVersion(), "2.0"); // the last failure came after the manifest
}

TEST_F(updateCoreLoaderTest, ResumesFromWhatIsUnpackedUnlessThatWasInterrupted) {
    leaveUnpacked(MANIFEST);
    start();
    core->resumeUpdate = true;
    testing::internal::CaptureStdout();
    EXPECT_EQ(load(), 2); // no stick is needed
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(shown, LOADED);
    EXPECT_EQ(kernelVersion(), "2.0");
    shell("rm -r /keldra/tmp/keldra_update"); // then there is the package
    pack("kernel.img", "image");
    packOntoStick(MANIFEST);
    standIn("tar", "/opt/host-bin/tar \"$@\"; exit 1"); // as when it was cut short
    EXPECT_EQ(load(), 1);
    EXPECT_TRUE(fs::exists("/keldra/tmp/keldra_update/update.manifest"));
    endStandIns();
    shell("rm /keldra/tmp/keldra_update/kernel.img");
    EXPECT_EQ(load(), 2);
    EXPECT_EQ(contents("/keldra/tmp/keldra_update/kernel.img"), "image"); // unpacked anew
}

volatile std::sig_atomic_t stalling = 0;

/** A stick on which opening the package waits, for longer than anybody does. */
int stallStick() {
    std::signal(SIGIO, [](int) { stalling = 1; }); // somebody waits
    const int fd = open("/mnt/usb/keldra_update.tgz", O_RDWR | O_CLOEXEC);
    EXPECT_EQ(fcntl(fd, F_SETLEASE, F_WRLCK), 0);
    return fd;
}

TEST_F(updateCoreLoaderTest, LeavingEndsACopyAndAnUnpackAndKeepsNothing) {
    for (const bool unpacking : {false, true}) {
        pack("kernel.img", "image");
        packOntoStick(MANIFEST);
        bus.autoAnswer(Bus::noModules);
        start();
        int stalled = -1;
        if (unpacking) {
            standIn("tar", "/opt/host-bin/tar \"$@\"; : > /tmp/unpacked; sleep 100");
        } else {
            stalled = stallStick();
        }
        core->loadConfiguration(false);
        ASSERT_TRUE(awaitThat([&] { return unpacking ? fs::exists("/tmp/unpacked") : stalling != 0; }));
        const auto asked = std::chrono::steady_clock::now();
        core->stop();
        EXPECT_LT(std::chrono::steady_clock::now() - asked, std::chrono::seconds(2));
        EXPECT_FALSE(fs::exists("/keldra/tmp/keldra_update") || fs::exists("/keldra/tmp/keldra_update.tgz"));
        EXPECT_FALSE(holds(logged(), "archieve") || holds(logged(), "corrupt"));
        close(stalled);
        core.reset();
        endStandIns();
    }
}

TEST_F(updateCoreLoaderTest, WaitsForTheStartMode) {
    leaveUnpacked(MANIFEST);
    bus.autoAnswer(Bus::noModules);
    start();
    core->startModePending = true;
    core->loadConfiguration(false);
    ASSERT_TRUE(awaitThat([this] { return core->bootloader.hasResponse.operator bool(); }));
    core->resumeUpdate = true; // as the program entry does when the window is there
    core->startModePending = false;
    settle();
    EXPECT_EQ(events.back(), "loaded 2");
}

TEST_F(updateCoreLoaderTest, TwoPackagesNeverMix) {
    packOntoStick(R"({"kernel":{"f":"kernel.img","v":"1.0"},"gui":{"f":"gui","v":"1.0"},"mf":{"f":"a"}})");
    start();
    EXPECT_EQ(load(), 0);
    packOntoStick(MANIFEST);
    EXPECT_EQ(load(), 0);
    EXPECT_EQ(kernelVersion(), "2.0");
    EXPECT_EQ(core->core.kernel.update.items.size(), 1U);
    EXPECT_TRUE(core->core.gui.update.items.empty() && core->mf3.base.update.items.empty());
    packOntoStick(R"({"a":123})"); // ten characters are not blank
    EXPECT_EQ(load(), 0);
    EXPECT_EQ(kernelVersion(), "");
}

TEST_F(updateCoreLoaderTest, ChecksumFiles) {
    const std::string digest = "a9993e364706816aba3e25717850c26c9cd0d89d"; // of "abc"
    std::string upper = digest;
    functs().strCase(upper, true);
    updateCoreLoad loader;
    put("/tmp/file", "abc");
    for (const std::string& text :
         {digest, digest + "\n", digest + "\r\n", digest + "  file\n", upper + "  FILE\n", "\n\t" + digest}) {
        put("/tmp/file.sha", text);
        EXPECT_TRUE(loader.validateFile("/tmp/file")) << text;
    }
    for (const std::string& text : {" " + digest, digest + "x", digest + "\tfile", digest.substr(0, 39),
                                    "b" + digest.substr(1), std::string(), std::string(" \n")}) {
        put("/tmp/file.sha", text); // of a blank in front the first word is empty
        EXPECT_FALSE(loader.validateFile("/tmp/file")) << text;
    }
    put("/tmp/none.sha", digest);
    EXPECT_FALSE(loader.validateFile("/tmp/none") || loader.validateFile("/tmp"));
    put("/tmp/file.sha", digest);
    fs::permissions("/tmp/file", fs::perms::none);
    EXPECT_FALSE(loader.validateFile("/tmp/file"));
    fs::remove("/tmp/file.sha");
    EXPECT_FALSE(loader.validateFile("/tmp/file"));
}

} // namespace
