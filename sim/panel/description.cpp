#include "description.h"

#include "sim/text.h"
#include "src/system/modules.h"

#include <algorithm>
#include <fstream>
#include <stdexcept>

namespace panel {

namespace {

std::pair<std::uint32_t, std::uint32_t> toPiece(const std::string& text) {
    const auto plus = text.find('+');
    if (plus == std::string::npos)
        throw std::invalid_argument("'" + text + "' is no ADDRESS+SIZE");
    const std::string_view view = text;
    return {sim::toNumber(view.substr(0, plus), 16), sim::toNumber(view.substr(plus + 1), 16)};
}

void take(ModuleUpdate& module, const std::string& word) {
    const auto [key, value] = sim::keyValue(word);
    if (key == "image") {
        module.pieces.push_back(toPiece(value));
        return;
    }
    module.words += " " + word;
    for (const auto& [name, member] :
         {std::pair{"kind", &ModuleUpdate::kind}, std::pair{"hw", &ModuleUpdate::hardware},
          std::pair{"version", &ModuleUpdate::version}, std::pair{"next", &ModuleUpdate::next}})
        if (key == name)
            module.*member = value;
    if (key == "absent")
        module.fate = ModuleUpdate::Fate::Absent;
}

// An old bootloader tells no version, so that its module is programmed by every run.
void judge(ModuleUpdate& module) {
    if (module.fate == ModuleUpdate::Fate::Flash && module.version == module.next &&
        module.kind != "pic24-old")
        module.fate = ModuleUpdate::Fate::Current;
}

ModuleUpdate toModule(const std::vector<std::string>& words) {
    ModuleUpdate module;
    module.name = words.at(1);
    const modules::ROW* known = modules::find(module.name);
    if (known == nullptr)
        throw std::invalid_argument("no module " + module.name);
    module.shown = known->shown;
    module.item = known->item;
    std::for_each(words.begin() + 2, words.end(), [&](const std::string& word) { take(module, word); });
    judge(module);
    return module;
}

void takeLine(Description& description, std::vector<std::string> words) {
    const std::string what = words.at(0);
    words.resize(std::max<std::size_t>(words.size(), 5));
    if (what == "item")
        description.items.push_back({words[1], words[2], words[3], words[4]});
    else if (what == "file")
        description.files.push_back({words[1], words[2]});
    else if (what == "module")
        description.modules.push_back(toModule(words));
    else if (what == "spare")
        description.spares.push_back(toModule(words));
    else
        throw std::invalid_argument("no '" + what + "'");
}

} // namespace

void Description::exchange() {
    for (ModuleUpdate& module : modules) {
        const auto spare = std::find_if(spares.begin(), spares.end(),
                                        [&](const ModuleUpdate& each) { return each.name == module.name; });
        if (spare != spares.end()) {
            module = *spare;
            module.shown += ", exchanged";
        } else if (module.fate != ModuleUpdate::Fate::Absent) {
            module.words = " kind=" + module.kind + " hw=" + module.hardware + " version=" + module.next;
            module.version = module.next;
            judge(module);
        }
    }
}

Description readDescription(const std::string& file) {
    std::ifstream in(file);
    if (!in)
        throw std::runtime_error("cannot read " + file);
    Description description;
    for (std::string line; std::getline(in, line);) {
        try {
            if (auto words = sim::words(line); !words.empty())
                takeLine(description, std::move(words));
        } catch (const std::exception& error) {
            throw std::runtime_error(file + ": " + line + ": " + error.what());
        }
    }
    return description;
}

} // namespace panel
