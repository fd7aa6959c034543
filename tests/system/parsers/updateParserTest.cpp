#include "system/parsers/updateParser.h"

#include "manifest.h"
#include "support/panel.h"
#include "support/table.h"
#include "system/parsers/jsonText.h"

namespace {

class updateParserTest : public Panel {
protected:
    updateParserTest() { start(); }

    /** The lists that the text fills, as "kernel: file=version ...; ". */
    std::string parse(const std::string& text) {
        core->clearUpdateItems();
        updateParser parser(core.get());
        accepted = jsonText::parse(text, parser);
        std::string lists;
        for (const auto& row : table()) {
            for (const updateCore::UPDATE_ITEM& entry : row.base.update.items) {
                const bool first = &entry == &row.base.update.items.front();
                lists += (first ? std::string(row.name) + ": " : "") + entry.item + "=" + entry.version + " ";
            }
        }
        return functs().trim(lists);
    }
    /** The same as keldra-package reads it, which tells places in a manifest. */
    std::string byTool(const std::string& text) const {
        package::Findings findings;
        const package::Items items = package::readManifest(text, "update.manifest", findings);
        std::string lists;
        for (const auto& row : table()) {
            const package::Item* item = package::findItem(items, row.item);
            if (item != nullptr && !item->entries.empty()) {
                lists += std::string(row.name) + ": ";
                for (const package::Entry& entry : item->entries) {
                    lists += entry.file + "=" + entry.version + " ";
                }
            }
        }
        return functs().trim(lists);
    }
    bool accepted = false;

private:
    struct List {
        const char* name;
        const char* item; ///< in the manifest
        const updateCore::BASE_ITEM& base;
    };
    std::vector<List> table() const {
        std::vector<List> lists = {{"cy1", "cy1", core->cy1.base}};
        for (const updateCore::HOST_ITEM& each : core->hostItems()) {
            lists.push_back({each.name, each.name, *each.item});
        }
        for (const modules::ROW& each : modules::VISITED) {
            lists.push_back({each.name, each.item, core->module(each).base});
        }
        return lists;
    }
};

TEST_F(updateParserTest, FillsTheListsAsTheToolReadsThem) {
    // What it is about | the manifest | the lists
    for (const auto& row : rowsOf(R"(
        single | {"kernel":{"f":"a","v":"1"}} | kernel: a=1
        by position | {"gui":{"f":["a","b"],"v":["1","2"]}} | gui: a=1 b=2
        host items | {"rootfs":{"f":"r"},"updater":{"f":"u"},"drivers":{"f":"d"}} | rootfs: r= updater: u= drivers: d=
        single modules | {"ctrl":{"f":"c","v":"1"},"master":{"f":"p"},"motor":{"f":"m"},"arts":{"f":"a"}} | arts: a= motor: m= master: p= ctrl: c=1
        slave is four | {"slave":{"f":["a","b"],"v":["1","2"]}} | s1: a=1 b=2 s2: a=1 b=2 s3: a=1 b=2 s4: a=1 b=2
        mf is three | {"mf":{"f":"a","v":"1"}} | mf1: a=1 mf2: a=1 mf3: a=1
        more versions than files | {"gui":{"f":"a","v":["1","2"]}} | gui: a=1
        more versions than files, kernel | {"kernel":{"f":"a","v":["1","2","3"]}} | kernel: a=1
        versions before files | {"gui":{"v":"1","f":"a"}} | gui: a=
        numbers are no versions | {"gui":{"f":["a","b"],"v":[1.5,"2"]}} | gui: a=2 b=
        twice | {"gui":{"f":"a","v":"1"},"x":{},"gui":{"f":"b","v":"2"}} | gui: a=2 b=
        each key starts anew | {"gui":{"f":["a","b"],"v":"1","v":"2"}} | gui: a=2 b=
        unknown items | {"cy1":{"f":"a"},"mf1":{"f":"a"},"Kernel":{"f":"a"},"kernel ":{"f":"a"}} | 
        unknown keys | {"gui":{"f":"a","x":"b","ff":"c","v":"1"}} | gui: a=1
        no objects | {"gui":["a"],"mf":"b","f":{},"kernel":{"f":[],"v":["1"]}} | 
        digests are no item | {"gui":{"f":"a"},"sha256":{"f":"b","v":"1"},"mf":{}} | gui: a=
        no item yet | {"f":"a","v":"1"} | 
        every other value | {"gui":{"f":[null,true,-1,99999999999,"a"],"v":null}} | gui: a=)")) {
        EXPECT_EQ(parse(row[1]), row[2]) << row[0];
        EXPECT_TRUE(accepted) << row[0];
        EXPECT_EQ(byTool(row[1]), row[2]) << row[0];
    }
    parse(R"({"sha256":{"f":"b","a/b":"c"}})");
    EXPECT_EQ(core->fileDigests, (std::map<std::string, std::string>{{"f", "b"}, {"a/b", "c"}}));
    // Objects within items are reported by the tool, and not followed.
    EXPECT_EQ(parse(R"({"gui":{"f":{"f":"a"},"v":{"v":"1"}}})"), "gui: a=1") << "one letter opens no item";
    EXPECT_EQ(parse(R"({"x":{"yy":[{"gui":{"f":"a"}}]},"f":"b"})"), "gui: a= b=") << "at any depth";
}

TEST_F(updateParserTest, WhatStandsBeforeAnErrorStays) {
    EXPECT_EQ(parse(R"({"gui":{"f":"a","v":)"), "gui: a=");
    EXPECT_FALSE(accepted);
}

TEST_F(updateParserTest, PositionsWrapAt256) {
    std::string files;
    std::string versions;
    for (int n = 0; n < 257; ++n) {
        files += (n == 0 ? "\"" : ",\"") + std::to_string(n) + "\"";
        versions += (n == 0 ? "\"v" : ",\"v") + std::to_string(n) + "\"";
    }
    parse("{\"gui\":{\"f\":[" + files + "],\"v\":[" + versions + "]}}");
    ASSERT_EQ(core->core.gui.update.items.size(), 257U);
    EXPECT_EQ(core->core.gui.update.items[0].version, "v256");
    EXPECT_EQ(core->core.gui.update.items[255].version, "v255");
    EXPECT_EQ(core->core.gui.update.items[256].version, "");
}

} // namespace
