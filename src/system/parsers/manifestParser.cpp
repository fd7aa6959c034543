#include "manifestParser.h"

#include "../updateCore.h"

bool manifestParser::value() {
    cur.hasKey = false;
    return true;
}

bool manifestParser::Key(const char* text, unsigned length, bool) {
    cur.key.assign(text, length);
    cur.hasKey = true;
    return true;
}

bool manifestParser::String(const char* text, unsigned length, bool) {
    const struct {
        const char* key;
        updateCore::BASE_ITEM& item;
    } items[] = {
        {"kernel", sys->core.kernel}, {"rootfs", sys->core.rootfs},   {"updater", sys->core.updater},
        {"gui", sys->core.gui},       {"drivers", sys->core.drivers},
    };
    for (const auto& entry : items) {
        if (cur.key == entry.key) {
            entry.item.swVersion = std::string(text, length);
        }
    }
    return value();
}
