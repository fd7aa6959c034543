#include "content.h"

#include "bed.h"
#include "sim/text.h"

#include <algorithm>
#include <map>
#include <random>

namespace panel {

namespace {

namespace fs = std::filesystem;

std::mt19937& random() {
    static std::mt19937 engine{std::random_device()()};
    return engine;
}

std::string randomText(std::size_t size) {
    std::string text(size, '\0');
    std::generate(text.begin(), text.end(), [] { return static_cast<char>(random()() & 0xFF); });
    return text;
}

// "key": "value", with commas between.
std::string members(const std::vector<std::pair<std::string, std::string>>& list) {
    std::string text;
    for (const auto& [key, value] : list)
        text += (text.empty() ? "\"" : ", \"") + key + "\": \"" + value + "\"";
    return text;
}

// The description of the package, for the tool. Images of an item stand in the order of their hardware
// revisions, which is theirs in the lists of modules.
std::string packageDescription(const Description& description) {
    std::map<std::string, std::string> items;
    const auto add = [&](const std::string& item, const std::string& entry) {
        items[item] += (items[item].empty() ? "{" : ", {") + entry + "}";
    };
    for (const HostItem& item : description.items)
        if (!item.packed.empty())
            add(item.name, members({{"file", item.file}, {"version", item.packed}}));
    for (const auto* list : {&description.modules, &description.spares})
        for (const ModuleUpdate& module : *list)
            add(module.item,
                members({{"file", module.image()}, {"version", module.next}, {"processor", module.kind}}));
    std::string text;
    for (const auto& [name, entries] : items)
        text += (text.empty() ? "{\n  \"" : ",\n  \"") + name + "\": [" + entries + "]";
    return text + "\n}\n";
}

} // namespace

Memory randomImage(const std::vector<std::pair<std::uint32_t, std::uint32_t>>& pieces, bool packed) {
    Memory image;
    for (const auto& [start, size] : pieces)
        for (std::uint32_t i = 0; i < (packed ? size / 3 * 4 : size); ++i)
            image[(packed ? 2 * start : start) + i] =
                packed && i % 4 == 3 ? std::uint8_t{0} : static_cast<std::uint8_t>(random()() & 0xFF);
    return image;
}

void writeContent(const Description& description, const fs::path& folder) {
    for (const ContentFile& file : description.files)
        if (file.content == "script")
            put(folder / file.name, "#!/bin/sh\n# " + std::to_string(random()()) + "\n", 0755);
        else
            put(folder / file.name, randomText(sim::toNumber(file.content)));
    for (const auto* list : {&description.modules, &description.spares})
        for (const ModuleUpdate& module : *list)
            put(folder / module.image(), hexFile(randomImage(module.pieces, module.isPacked())));
    put(folder / "package.json", packageDescription(description));
}

std::string busInventory(const Description& description, const fs::path& content) {
    std::string text;
    for (const ModuleUpdate& module : description.modules) {
        text += module.name + module.words;
        if (module.fate == ModuleUpdate::Fate::Current)
            text += " preload=" + (content / module.image()).string();
        text += "\n";
    }
    return text;
}

std::string systemManifest(const Description& description) {
    std::string text;
    for (const HostItem& item : description.items)
        text += (text.empty() ? "{\"" : ",\"") + item.name + "\":\"" + item.installed + "\"";
    return text + "}";
}

} // namespace panel
