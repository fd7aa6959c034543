#include "support/panel.h"

#include <filesystem>
#include <sys/mount.h>

namespace fs = std::filesystem;

namespace {

const std::string MANIFEST = "/keldra/config/system.manifest";

class systemManifestTest : public Panel {
protected:
    std::vector<updateCore::BASE_ITEM*> items() const {
        auto& all = core->core;
        return {&all.kernel, &all.rootfs, &all.updater, &all.gui, &all.drivers};
    }
    std::string versions() const {
        std::string text;
        for (const updateCore::BASE_ITEM* item : items()) {
            text += item->swVersion.get() + ",";
        }
        text.pop_back();
        return text;
    }
};

TEST_F(systemManifestTest, Loads) {
    start();
    const struct {
        const char* name;
        std::string text;
        const char* versions;
        const char* logged; ///< null: it was loaded
    } rows[] = {
        {"all", R"({"kernel":"1","rootfs":"2","updater":"3","gui":"4","drivers":"5"})", "1,2,3,4,5", nullptr},
        {"some, at any depth", R"({"gui":"4", "x":{"kernel":["1", "2"]}})", "2,0,0,4,0", nullptr},
        {"numbers and unknown names", R"({"kernel":1,"gui":true,"Kernel":"1","kernels":"1"})", "0,0,0,0,0",
         nullptr},
        {"every kind of value", R"({"x":[null,-1,1.5,-5000000000,5000000000],"gui":"4"})", "0,0,0,4,0",
         nullptr},
        {"escapes", R"({"kernel":"a\"\u00e4"})", "a\"\xC3\xA4,0,0,0,0", nullptr},
        {"empty file", "", "0,0,0,0,0", "[Error]: No system manifest"},
        {"8 characters and the line end", R"({"gu":1})", "0,0,0,0,0", "[Error]: No system manifest"},
        {"9 characters and the line end", R"({"gui":1})", "0,0,0,0,0", nullptr},
        {"cut off", R"({"kernel":"1","gui":)", "1,0,0,0,0", "[Error]: Could not load system manifest"},
        {"text behind it", R"({"kernel":"1"} x)", "1,0,0,0,0", "[Error]: Could not load system manifest"},
        {"a zero byte", std::string("{\"kernel\":\"1\"}\0\"x\"", 18), "0,0,0,0,0",
         "[Error]: Could not load system manifest"},
        {"nested very deeply", std::string(200'000, '['), "0,0,0,0,0",
         "[Error]: Could not load system manifest"},
    };
    for (const auto& row : rows) {
        put(MANIFEST, row.text);
        for (updateCore::BASE_ITEM* item : items()) {
            item->swVersion = std::string("0");
        }
        put("/tmp/update.log", "");
        EXPECT_EQ(core->loadSystemManifest(), row.logged == nullptr) << row.name;
        EXPECT_EQ(versions(), row.versions) << row.name;
        EXPECT_EQ(logged(), row.logged == nullptr ? Texts{} : Texts{row.logged}) << row.name;
    }
    fs::remove(MANIFEST);
    EXPECT_FALSE(core->loadSystemManifest());
}

TEST_F(systemManifestTest, TheStartWarnsWithoutOneAndTheEndWritesIt) {
    start();
    EXPECT_TRUE(holds(logged(), "[Warning]: Could not load system manifest...Full update will run"));
    core->core.gui.swVersion = std::string("2.0\"");
    core->stop();
    EXPECT_EQ(contents(MANIFEST), R"({"kernel":"","rootfs":"","updater":"","gui":"2.0\"","drivers":""})");
    core.reset();
    start();
    EXPECT_EQ(versions(), ",,,2.0\",");
    EXPECT_FALSE(holds(logged(), "Full update will run"));
}

TEST_F(systemManifestTest, TheOldFileStaysWholeUntilTheNewOneIs) {
    configuration = "ub_mbus = 9600\ndir = /tmp/full\n";
    start();
    core->stop(); // no such directory
    EXPECT_TRUE(holds(logged(), "[Error]: Could not save system manifest"));
    fs::create_directories("/tmp/full/config");
    ASSERT_EQ(mount("full", "/tmp/full/config", "tmpfs", 0, "size=16k"), 0);
    put("/tmp/full/config/system.manifest", "the old one");
    fs::create_hard_link("/tmp/full/config/system.manifest", "/tmp/full/config/hold");
    put("/tmp/full/config/rest", std::string(20'000, 'x'));
    EXPECT_FALSE(core->saveSystemManifest()); // the card is full
    EXPECT_EQ(contents("/tmp/full/config/system.manifest"), "the old one");
    fs::remove("/tmp/full/config/rest");
    EXPECT_TRUE(core->saveSystemManifest());
    EXPECT_NE(contents("/tmp/full/config/system.manifest"), "the old one");
    EXPECT_EQ(contents("/tmp/full/config/hold"), "the old one"); // never written in place
    EXPECT_FALSE(fs::exists("/tmp/full/config/system.manifest.new"));
    EXPECT_EQ(umount("/tmp/full/config"), 0);
}

TEST_F(systemManifestTest, AModuleIsUnfinishedUntilItIsComplete) {
    for (const bool unfinished : {true, false}) {
        start();
        core->setUnfinished(core->s2.base, unfinished);
        core.reset(); // a loss of power
        start();
        EXPECT_EQ(core->s2.base.unfinished, unfinished);
        EXPECT_FALSE(core->s1.base.unfinished);
        core.reset();
    }
    start();
    fs::create_directory("/keldra/config/unfinished.modules.new"); // in the way
    core->setUnfinished(core->s2.base, true);
    EXPECT_TRUE(holds(logged(), "[Error]: Could not note which modules are unfinished"));
}

} // namespace
