// A package's update manifest, read into the lists of the core.

#include "input.h"
#include "panelCore.h"
#include "system/parsers/jsonText.h"
#include "system/parsers/updateParser.h"
#include "system/updateCore.h"

namespace {

bool sameList(const updateCore::BASE_ITEM& one, const updateCore::BASE_ITEM& other) {
    const auto& a = one.update.items;
    const auto& b = other.update.items;
    bool same = a.size() == b.size();
    for (std::size_t i = 0; same && i < a.size(); ++i) {
        same = a[i].item == b[i].item && a[i].version == b[i].version;
    }
    return same;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    updateCore& core = panelCore();
    core.clearUpdateItems();
    updateParser parser(&core);
    jsonText::parse(input::text(data, size), parser);
    for (const auto* module : {&core.s2, &core.s3, &core.s4}) {
        input::require(sameList(module->base, core.s1.base));
    }
    for (const auto* module : {&core.mf2, &core.mf3}) {
        input::require(sameList(module->base, core.mf1.base));
    }
    for (const auto* module : {&core.cy1, &core.cy2, &core.cy3, &core.cy4}) {
        input::require(module->base.update.items.empty());
    }
    return 0;
}
