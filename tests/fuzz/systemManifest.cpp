// The system manifest: whatever is read is written and read again as the same.

#include "input.h"
#include "panelCore.h"
#include "system/parsers/jsonText.h"
#include "system/parsers/manifestParser.h"
#include "system/updateCore.h"

#include <vector>

namespace {

std::vector<std::string> versionsOf(updateCore& core) {
    std::vector<std::string> versions;
    for (const updateCore::HOST_ITEM& entry : core.hostItems()) {
        versions.push_back(entry.item->swVersion);
    }
    return versions;
}

void forgetVersions(updateCore& core) {
    for (const updateCore::HOST_ITEM& entry : core.hostItems()) {
        entry.item->swVersion = std::string();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    updateCore& core = panelCore();
    forgetVersions(core);
    manifestParser parser(&core);
    if (jsonText::parse(input::text(data, size), parser)) {
        const std::vector<std::string> read = versionsOf(core);
        input::require(core.saveSystemManifest());
        forgetVersions(core);
        input::require(core.loadSystemManifest());
        input::require(versionsOf(core) == read);
    }
    return 0;
}
