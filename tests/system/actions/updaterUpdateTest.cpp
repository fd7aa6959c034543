#include "system/actions/updaterUpdate.h"

#include "support/panel.h"

#include <filesystem>
#include <sys/mount.h>

namespace {

const std::string MACHINE = contents("/proc/self/exe").substr(0, 20);

/** This build's updater, which needs a library that nobody has. */
std::string withoutLibrary() {
    std::string program = contents(UPDATER);
    return program.replace(program.find("libstdc++.so"), 12, "libstdc--.so");
}

class updaterUpdateTest : public Panel {
protected:
    updaterUpdateTest() {
        start();
        shell("mkdir /keldra/start");
        put(startRecord::INSTALLED, "the old one", 0755);
        core->core.updater.swVersion = std::string("1.0");
    }
    bool install(const std::string& content, unsigned mode = 0755) {
        unpacked("K+Updater", content, mode);
        return installUnpacked();
    }
    bool installUnpacked(const char* item = "K+Updater") {
        core->core.updater.update.items = {{item, "2.0"}};
        updaterUpdate files(core.get());
        files.setInstallPath("/usr/bin/");
        files.setBase(&core->core.updater);
        return files.needsUpdate(false) == action::GOUPDATE && files.run();
    }
    bool hasOldOne() const { return contents(startRecord::INSTALLED) == "the old one"; }
};

TEST_F(updaterUpdateTest, TriesTheNewOneBeforeTheOldOneIsRemoved) {
    const std::string asked = "#!/bin/sh\n[ \"$1\" = --version ] || exit 0\n";
    const struct {
        const char* why;
        std::string content;
        unsigned mode = 0755;
    } rows[] = {{"it may not be executed", "#!/bin/sh\n", 0644},
                {"it is no program", "text"},
                {"it is no program", ""},
                {"it is for another machine", MACHINE.substr(0, 18) + "\xb7\x01"},
                {"it is cut short", contents(UPDATER).substr(0, 100'000)},
                {"libstdc--.so.6 => not found", withoutLibrary()},
                {"it does not tell its version", asked + "exit 3\n"},
                {"it does not tell its version", asked + "exec sleep 1000\n"}};
    for (const auto& row : rows) {
        EXPECT_FALSE(install(row.content, row.mode)) << row.why;
        EXPECT_TRUE(holds({logged().back()}, std::string("would not run here: ") + row.why))
            << logged().back();
        EXPECT_TRUE(hasOldOne() && !startRecord::load().coming.isKnown()) << row.why;
    }
    shell("mkdir /keldra/tmp/keldra_update/all");
    unpacked("all/K+Updater", "text", 0755);
    EXPECT_FALSE(installUnpacked("all"));
    EXPECT_TRUE(hasOldOne() && holds({logged().back()}, "it is no program"));
    for (const char* spoil : {"mkfifo", "ln -s /bin/true", "true"}) {
        const std::string program = "/keldra/tmp/keldra_update/K+Updater";
        shell("rm -f " + program + "; " + spoil + " " + program);
        EXPECT_FALSE(installUnpacked()) << spoil;
        EXPECT_TRUE(holds({logged().back()}, "Could not copy new file")) << spoil;
        EXPECT_TRUE(hasOldOne()) << spoil;
    }
    const std::string starts = "#!/bin/sh\ntouch /tmp/trial\n";
    core->fileDigests["K+Updater"] = std::string(64, '0');
    EXPECT_FALSE(install(starts + "# --version\n"));
    EXPECT_EQ(logged().back(), "[Error]: Could not copy new file /usr/bin/K+Updater");
    shell("truncate -s 4T /keldra/tmp/keldra_update/K+Updater");
    EXPECT_FALSE(installUnpacked());
    EXPECT_EQ(logged().back(), "[Error]: No room for the new updater");
    core->fileDigests.clear();
    EXPECT_TRUE(hasOldOne() && install(starts)); // it knows no such question, and is not started
    EXPECT_FALSE(std::filesystem::exists("/tmp/trial"));

    shell("rm -r /keldra/start");
    put(startRecord::INSTALLED, "the old one");
    core->core.updater.swVersion = std::string("1.0");
    EXPECT_FALSE(install(withoutLibrary()));
    EXPECT_TRUE(hasOldOne());
    EXPECT_TRUE(install("text")); // as any file: what it is for, its package may know
}

TEST_F(updaterUpdateTest, KeepsTheLastGoodOneAndSettlesTheNewOne) {
    ASSERT_TRUE(install("#!/bin/sh\n"));
    startRecord record = startRecord::load();
    EXPECT_EQ(contents(startRecord::FORMER), "the old one");
    EXPECT_TRUE(record.former.is(startRecord::programAt(startRecord::FORMER)));
    EXPECT_TRUE(record.updater.is(startRecord::programAt(startRecord::INSTALLED)) &&
                !record.coming.isKnown());
    EXPECT_EQ(record.updater.version + " after " + record.former.version, "2.0 after 1.0");
    EXPECT_EQ(record.trial, 0);
    core->core.updater.swVersion = std::string("1.5"); // not proven yet: no good one
    ASSERT_TRUE(install("#!/bin/sh\n# third\n"));
    EXPECT_EQ(contents(startRecord::FORMER), "the old one");

    record = startRecord::load();
    record.refused = startRecord::contentOf("/keldra/tmp/keldra_update/K+Updater");
    record.save();
    core->core.updater.swVersion = std::string("1.0");
    EXPECT_FALSE(install("#!/bin/sh\n# third\n")); // the same again
    EXPECT_TRUE(holds({logged().back()}, "it is left out"));
    EXPECT_TRUE(install("#!/bin/sh\n# fourth\n"));
}

TEST_F(updaterUpdateTest, WithoutRoomTheOldOneStays) {
    const struct {
        const char* folder;
        const char* why;
    } rows[] = {{"/usr/bin", "No room for the new updater"},
                {"/keldra/start", "Could not keep the former updater"}};
    for (const auto& row : rows) {
        ASSERT_EQ(mount("full", row.folder, "tmpfs", 0, "size=16k"), 0);
        put(startRecord::INSTALLED, "the old one", 0755);
        EXPECT_FALSE(install("#!/bin/sh\n")) << row.why;
        EXPECT_TRUE(holds({logged().back()}, row.why)) << logged().back();
        EXPECT_TRUE(hasOldOne());
        EXPECT_EQ(umount(row.folder), 0);
    }
}

} // namespace
