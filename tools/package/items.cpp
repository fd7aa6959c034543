#include "items.h"

#include <algorithm>

namespace package {

namespace {

std::vector<ItemKind> makeKinds() {
    std::vector<ItemKind> kinds = {{"kernel", Content::Image, false},
                                   {"rootfs", Content::Recorded, false},
                                   {"updater", Content::Files, false},
                                   {"gui", Content::Files, false},
                                   {"drivers", Content::Files, false}};
    for (const modules::ROW& module : modules::VISITED)
        kinds.push_back({module.item, Content::Firmware, module.bootloader == modules::BOOTLOADER::SERIAL});
    return kinds;
}

std::vector<Stop> makeOrder() {
    std::vector<Stop> order = {{"Updater", "updater", nullptr},
                               {"Kernel", "kernel", nullptr},
                               {"Drivers", "drivers", nullptr},
                               {"GUI", "gui", nullptr}};
    for (const modules::ROW& module : modules::VISITED)
        order.push_back({module.shown, module.item, &module});
    return order;
}

const std::vector<ItemKind>& itemKinds() {
    static const std::vector<ItemKind> kinds = makeKinds();
    return kinds;
}

} // namespace

const ItemKind* findItem(const std::string& name) {
    const std::vector<ItemKind>& kinds = itemKinds();
    const auto found =
        std::find_if(kinds.begin(), kinds.end(), [&](const ItemKind& each) { return each.name == name; });
    return found == kinds.end() ? nullptr : &*found;
}

std::vector<std::string> itemNames() {
    std::vector<std::string> names;
    for (const ItemKind& each : itemKinds()) {
        if (names.empty() || std::find(names.begin(), names.end(), each.name) == names.end())
            names.push_back(each.name);
    }
    return names;
}

const std::vector<Stop>& visitingOrder() {
    static const std::vector<Stop> order = makeOrder();
    return order;
}

} // namespace package
