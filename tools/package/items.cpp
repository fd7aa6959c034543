#include "items.h"

#include <algorithm>
#include <iterator>

namespace package {

const ItemKind* findItem(const std::string& name) {
    static constexpr ItemKind kinds[] = {
        {"kernel", Content::Image, false},    {"rootfs", Content::Recorded, false},
        {"updater", Content::Files, false},   {"gui", Content::Files, false},
        {"drivers", Content::Files, false},   {"ctrl", Content::Firmware, true},
        {"master", Content::Firmware, false}, {"motor", Content::Firmware, false},
        {"slave", Content::Firmware, false},  {"mf", Content::Firmware, false},
        {"arts", Content::Firmware, false},
    };
    const auto* found = std::find_if(std::begin(kinds), std::end(kinds),
                                     [&](const ItemKind& each) { return each.name == name; });
    return found == std::end(kinds) ? nullptr : found;
}

const std::vector<Stop>& visitingOrder() {
    static const std::vector<Stop> order = {
        {"Updater", "updater", nullptr, false},  {"Kernel", "kernel", nullptr, false},
        {"Drivers", "drivers", nullptr, false},  {"GUI", "gui", nullptr, false},
        {"MultiFunction #1", "mf", "mf1", true}, {"MultiFunction #2", "mf", "mf2", true},
        {"MultiFunction #3", "mf", "mf3", true}, {"ARTS Sensor", "arts", "arts", true},
        {"Secondary #1", "slave", "s1", true},   {"Secondary #2", "slave", "s2", true},
        {"Secondary #3", "slave", "s3", true},   {"Secondary #4", "slave", "s4", true},
        {"Motor", "motor", "motor", true},       {"Primary", "master", "master", false},
        {"CTRL", "ctrl", "ctrl", true},
    };
    return order;
}

} // namespace package
