#include "system/actions/fileUpdate.h"

#include "support/panel.h"

#include <cerrno>
#include <dirent.h>
#include <dlfcn.h>
#include <filesystem>
#include <limits>
#include <sys/mount.h>
#include <sys/stat.h>
#include <thread>

namespace fs = std::filesystem;

namespace {

int readableNames = std::numeric_limits<int>::max(); // of any directory; then the card fails

} // namespace

/** The C library's, as it is on a card that fails. */
dirent* readdir(DIR* directory) {
    static const auto real = reinterpret_cast<dirent* (*)(DIR*)>(dlsym(RTLD_NEXT, "readdir64"));
    if (readableNames-- > 0) {
        return real(directory);
    }
    errno = EIO;
    return nullptr;
}

namespace {

const std::string SOURCE = "/keldra/tmp/keldra_update/";
const std::string TARGET = "/tmp/target";

class fileUpdateTest : public Panel {
protected:
    fileUpdateTest() {
        fs::remove_all(TARGET);
        fs::create_directory(TARGET);
        start();
        errors();
    }
    bool install(const std::string& name, const std::string& where = TARGET) {
        core->core.gui.update.items = {{name, "2.0"}};
        core->core.gui.swVersion = std::string("1.0");
        fileUpdate files(core.get());
        files.setInstallPath(where);
        files.setBase(&core->core.gui);
        return files.run();
    }
    bool recorded() const { return core->core.gui.swVersion.get() == "2.0"; }
    /** The errors logged since the last call. */
    Texts errors() {
        Texts log = logged();
        std::erase_if(log, [](const std::string& line) { return line.rfind("[Error]", 0) != 0; });
        put("/tmp/update.log", "");
        return log;
    }
    static unsigned mode(const std::string& path) {
        return static_cast<unsigned>(fs::status(path).permissions());
    }
};

TEST_F(fileUpdateTest, InstallsOneFile) {
    unpacked("sub/K+Main", "new", 0755);
    put(TARGET + "/sub/K+Main", "the old one", 0600);
    fs::create_hard_link(TARGET + "/sub/K+Main", TARGET + "/hold");
    testing::internal::CaptureStdout();
    EXPECT_TRUE(install("sub/K+Main"));
    EXPECT_TRUE(holds({testing::internal::GetCapturedStdout()},
                      "COPY SOURCE " + SOURCE + "sub/K+Main TO DEST " + TARGET + "/sub/K+Main\n"));
    EXPECT_TRUE(recorded());
    EXPECT_EQ(contents(TARGET + "/sub/K+Main"), "new");
    EXPECT_EQ(contents(TARGET + "/hold"),
              "the old one"); // removed first, not written over: it may be running
}

TEST_F(fileUpdateTest, InstallsTheVisiblePartOfATree) {
    unpacked("gui/one/two/file", "1", 0711);
    unpacked("gui/.hidden/file", "2");
    unpacked("gui/one/.hidden", "3");
    put(TARGET + "/one/kept", "4");
    EXPECT_TRUE(install("gui"));
    EXPECT_TRUE(recorded());
    std::map<std::string, unsigned> files;
    for (const auto& entry : fs::recursive_directory_iterator(TARGET)) {
        files[entry.path().lexically_relative(TARGET)] = mode(entry.path());
    }
    EXPECT_EQ(files, (std::map<std::string, unsigned>{
                         {"one", 0755}, {"one/kept", 0644}, {"one/two", 0755}, {"one/two/file", 0755}}));
}

TEST_F(fileUpdateTest, CarriesTheExecutableBitsAndNoOthers) {
    for (const auto& [original, installed] :
         {std::pair{0755U, 0755U}, {0700, 0744}, {0444, 0644}, {04777, 0755}, {0645, 0645}}) {
        unpacked("program", "x", original);
        EXPECT_TRUE(install("program"));
        EXPECT_EQ(mode(TARGET + "/program"), installed) << std::oct << original;
    }
}

TEST_F(fileUpdateTest, SomeNamesAreNotTaken) {
    put("/keldra/tmp/outside", "x");
    for (const std::string name : {"../outside", "a/../../outside", "a/..", "../../tmp"}) {
        EXPECT_FALSE(install(name, TARGET + "/a")) << name;
        EXPECT_EQ(errors(), Texts{"[Error]: Could not copy new file " + TARGET + "/a/" + name});
    }
    EXPECT_TRUE(fs::is_empty(TARGET));
    unpacked("a..b", "x");
    EXPECT_TRUE(install("a..b"));
    unpacked("ab", "x"); // stands for no file
    EXPECT_TRUE(install("ab"));
    EXPECT_FALSE(recorded() || fs::exists(TARGET + "/ab"));
}

TEST_F(fileUpdateTest, FailuresOfASingleFile) {
    EXPECT_FALSE(install("missing"));
    EXPECT_EQ(errors(), Texts{"[Error]: Could not copy new file " + TARGET + "/missing"});
    unpacked("file", "new");
    EXPECT_FALSE(install("file", "/tmp/none"));
    EXPECT_EQ(errors(), Texts{"[Error]: Could not copy new file /tmp/none/file"});
    put(TARGET + "/file", "old");
    fs::permissions(TARGET, fs::perms::owner_read | fs::perms::owner_exec);
    EXPECT_FALSE(install("file"));
    EXPECT_EQ(errors(), Texts{"[Error]: Could not remove old file: " + TARGET + "/file"});
    EXPECT_EQ(contents(TARGET + "/file"), "old");
    EXPECT_FALSE(recorded());
    fs::permissions(TARGET, fs::perms::owner_all);

    unpacked("file", std::string(100'000, 'x'));
    ASSERT_EQ(mount("full", TARGET.c_str(), "tmpfs", 0, "size=16k"), 0);
    EXPECT_FALSE(install("file"));
    EXPECT_EQ(errors(), Texts{"[Error]: Could not copy new file " + TARGET + "/file"});
    EXPECT_FALSE(recorded());
    EXPECT_EQ(umount(TARGET.c_str()), 0);
}

TEST_F(fileUpdateTest, LooksBeforeItRemoves) {
    shell("mkdir -p " + SOURCE + " && cd " + SOURCE +
          " && mkfifo pipe && ln -s /etc/passwd outside && echo x >changed && truncate -s 4T large");
    core->fileDigests["changed"] = core->fileDigests["large"] = std::string(64, '0');
    ASSERT_EQ(mount("full", TARGET.c_str(), "tmpfs", 0, "size=32k"), 0);
    for (const std::string name : {"missing", "pipe", "outside", "changed", "large"}) {
        put(TARGET + "/" + name, "old");
        EXPECT_FALSE(install(name)) << name;
        EXPECT_EQ(errors(), Texts{"[Error]: Could not copy new file " + TARGET + "/" + name});
        EXPECT_EQ(contents(TARGET + "/" + name), "old");
        fs::remove(TARGET + "/" + name);
    }
    unpacked("gui/large", std::string(100'000, 'x'));
    EXPECT_FALSE(install("gui") || recorded()); // nothing of it is there
    unpacked("gui/small", "x");
    EXPECT_TRUE(install("gui") && recorded());
    EXPECT_EQ(core->notInstalled, 1U);
    EXPECT_FALSE(fs::exists(TARGET + "/large"));
    EXPECT_EQ(umount(TARGET.c_str()), 0);
}

TEST_F(fileUpdateTest, ATreeGoesOnBehindAFailure) {
    unpacked("gui/a/file", "1");
    unpacked("gui/b/file", "2");
    unpacked("gui/c/file", "3");
    put(TARGET + "/a", "a file where a directory should be");
    fs::permissions(SOURCE + "gui/b", fs::perms::none);
    EXPECT_TRUE(install("gui"));
    EXPECT_TRUE(recorded());
    Texts log = errors();
    std::sort(log.begin(), log.end());
    EXPECT_EQ(log, (Texts{"[Error]: Could not copy new file " + TARGET + "/a/file",
                          "[Error]: Could not open directory: " + SOURCE + "gui/b"}));
    EXPECT_EQ(contents(TARGET + "/c/file"), "3");
    EXPECT_EQ(core->notInstalled, 3U);            // the folder that could not be made among them
    for (readableNames = 0; readableNames < 3;) { // "." and ".." among them
        const int names = readableNames;
        EXPECT_FALSE(install("gui/c") || recorded()) << names;
        EXPECT_EQ(errors(), Texts{"[Error]: Could not open directory: " + SOURCE + "gui/c"});
        readableNames = names + 1;
    }
    readableNames = std::numeric_limits<int>::max();
    fs::permissions(SOURCE + "gui", fs::perms::none);
    EXPECT_FALSE(install("gui/c") || recorded()); // to stat() it is no directory
    fs::permissions(SOURCE + "gui", fs::perms::owner_exec);
    EXPECT_FALSE(install("gui") || recorded());
    EXPECT_EQ(errors().back(), "[Error]: Could not open directory: " + SOURCE + "gui");
    shell("chmod -R 755 " + SOURCE);
}

TEST_F(fileUpdateTest, OddPackagesDoNotHang) {
    unpacked("gui/file", "1");
    ASSERT_EQ(mkfifo((SOURCE + "gui/pipe").c_str(), 0644), 0);
    fs::create_symlink("/dev/zero", SOURCE + "gui/endless");
    fs::create_symlink(".", SOURCE + "gui/loop");
    fs::create_symlink("..", SOURCE + "gui/up"); // two ways back: walked naively they branch for ever
    fs::create_symlink("/etc", SOURCE + "gui/outside");
    EXPECT_TRUE(install("gui"));
    EXPECT_FALSE(fs::exists(TARGET + "/outside"));
    EXPECT_EQ(contents(TARGET + "/file"), "1");
    EXPECT_FALSE(install("gui/outside") || install("gui/pipe") || install("gui/endless"));
}

TEST_F(fileUpdateTest, StopsWhenCancelled) {
    unpacked("gui/file", "1");
    core->cancel = true;
    EXPECT_FALSE(install("gui") || install("gui/file") || recorded());
    EXPECT_FALSE(fs::exists(TARGET + "/file"));

    core->cancel = false; // and in the middle of a large file
    unpacked("gui/large", "");
    fs::resize_file(SOURCE + "gui/large", 300'000'000);
    std::thread operatorsFinger([this] {
        for (int n = 0; n < 5000 && !fs::exists(TARGET + "/large"); ++n) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        core->cancel = true;
    });
    EXPECT_FALSE(install("gui") || recorded());
    operatorsFinger.join();
    EXPECT_FALSE(fs::exists(TARGET + "/large"));
}

} // namespace
