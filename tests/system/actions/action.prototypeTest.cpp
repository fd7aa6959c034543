#include "support/panel.h"
#include "system/actions/rootfsUpdate.h"

namespace {

using actionTest = Panel;

TEST_F(actionTest, VersionsAreComparedWholeAndByHardwareRevision) {
    const struct {
        const char* name;
        const char* installed;
        std::uint8_t hwRev;
        bool force;
        action::STATUS status;
    } rows[] = {
        {"equal", "2.0", 1, false, action::NOUPDATE},
        {"equal, forced", "2.0", 1, true, action::GOUPDATE},
        {"older in the package", "3.0", 1, false, action::GOUPDATE},
        {"another spelling", "2.0.0", 1, false, action::GOUPDATE},
        {"not known", "", 1, false, action::GOUPDATE},
        {"equal to another revision's", "2.0", 0, false, action::GOUPDATE},
        {"no image for this revision", "1.0", 2, true, action::NOUPDATE},
    };
    start();
    updateCore::BASE_ITEM item;
    item.update.items = {{"a", "1.0"}, {"b", "2.0"}};
    rootfsUpdate rootfs(core.get());
    rootfs.setBase(&item);
    for (const auto& row : rows) {
        item.swVersion = std::string(row.installed);
        item.hwRev = row.hwRev;
        EXPECT_EQ(rootfs.needsUpdate(row.force), row.status) << row.name;
    }
    item.hwRev = std::uint8_t{1};
    rootfs.needsUpdate(true);
    EXPECT_TRUE(rootfs.run()); // which is recorded, and no more
    EXPECT_EQ(item.swVersion.get(), "2.0");
    item.update.items.clear();
    item.hwRev = std::uint8_t{0};
    EXPECT_EQ(rootfs.needsUpdate(true), action::NOUPDATE);
}

} // namespace
