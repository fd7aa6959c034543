// The manifest is read twice in this system: by the panel, and by keldra-package, which tells places in it.
// What the one pairs, the other must pair, in whatever order things stand.
#include "manifest.h"
#include "support/panel.h"
#include "system/parsers/jsonText.h"
#include "system/parsers/updateParser.h"

#include <random>

namespace {

class manifestAgreementTest : public Panel {
protected:
    manifestAgreementTest() { start(); }

    /** "kernel: file=version ...; " as the panel has it. */
    std::string byPanel(const std::string& text) {
        core->clearUpdateItems();
        updateParser parser(core.get());
        EXPECT_TRUE(jsonText::parse(text, parser)) << text;
        const std::pair<const char*, const updateCore::BASE_ITEM*> items[] = {{"kernel", &core->core.kernel},
                                                                              {"gui", &core->core.gui},
                                                                              {"slave", &core->s4.base},
                                                                              {"mf", &core->mf1.base}};
        std::string lists;
        for (const auto& [name, item] : items) {
            lists += std::string(name) + ":";
            for (const updateCore::UPDATE_ITEM& entry : item->update.items) {
                lists += " " + entry.item + "=" + entry.version;
            }
            lists += "; ";
        }
        return lists;
    }

    static std::string byTool(const std::string& text) {
        package::Findings findings;
        const package::Items items = package::readManifest(text, "update.manifest", findings);
        std::string lists;
        for (const char* name : {"kernel", "gui", "slave", "mf"}) {
            lists += std::string(name) + ":";
            if (const package::Item* item = package::findItem(items, name)) {
                for (const package::Entry& entry : item->entries) {
                    lists += " " + entry.file + "=" + entry.version;
                }
            }
            lists += "; ";
        }
        return lists;
    }

    unsigned below(unsigned end) { return static_cast<unsigned>(random() % end); }
    std::string drawValue() {
        constexpr const char* others[] = {"1", "null", "true", "-2.5e3", "\"q\\\"x\""};
        return below(6) == 0 ? others[below(5)] : "\"" + std::to_string(below(1000)) + "\"";
    }
    std::string drawValues() {
        std::string list;
        const unsigned count = below(4);
        for (unsigned i = 0; i < count; ++i) {
            list += (i > 0 ? ", " : "") + drawValue();
        }
        return below(3) == 0 ? drawValue() : "[" + list + "]";
    }
    std::string drawItem() {
        constexpr const char* keys[] = {"f", "v", "f", "v", "x", "name"};
        std::string members;
        const unsigned count = below(5);
        for (unsigned i = 0; i < count; ++i) {
            members += std::string(i > 0 ? ", " : "") + "\"" + keys[below(6)] + "\": " + drawValues();
        }
        return below(8) == 0 ? drawValues() : "{" + members + "}";
    }
    std::string drawManifest() {
        constexpr const char* names[] = {"kernel", "gui", "slave", "mf", "Kernel", "cy1"};
        std::string text = "{";
        const unsigned count = below(6) + 1;
        for (unsigned i = 0; i < count; ++i) {
            text += std::string(i > 0 ? ",\n" : "") + "\"" + names[below(6)] + "\": " + drawItem();
        }
        return text + "}          ";
    }
    std::minstd_rand random;
};

TEST_F(manifestAgreementTest, PanelAndToolPairAlike) {
    for (unsigned round = 0; round < 2000; ++round) {
        const std::string text = drawManifest();
        ASSERT_EQ(byTool(text), byPanel(text)) << text;
    }
}

} // namespace
