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

} // namespace

const ItemKind* findItem(const std::string& name) {
    static const std::vector<ItemKind> kinds = makeKinds();
    const auto found =
        std::find_if(kinds.begin(), kinds.end(), [&](const ItemKind& each) { return each.name == name; });
    return found == kinds.end() ? nullptr : &*found;
}

const std::vector<Stop>& visitingOrder() {
    static const std::vector<Stop> order = makeOrder();
    return order;
}

} // namespace package
