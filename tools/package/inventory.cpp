#include "inventory.h"

#include "commandLine/suggest.h"
#include "fileType.h"
#include "files.h"
#include "json.h"
#include "lib/format.h"
#include "system/busProtocol.h"
#include "system/modules.h"

#include <algorithm>
#include <charconv>
#include <sstream>
#include <stdexcept>

namespace package {

namespace {

// Throws with a place in the file.
class JsonFile {
public:
    explicit JsonFile(const std::filesystem::path& path) : name_(path.string()) {
        const JsonError error = parseJson(readFile(path), root_);
        if (!error.text.empty())
            fail(error.position, error.text);
        if (!root_.isObject())
            fail(root_.position, "no object");
    }
    const JsonValue& root() const { return root_; }
    [[noreturn]] void fail(const JsonPosition& at, const std::string& text) const {
        throw std::invalid_argument(format("%s:%u:%u: %s", name_.c_str(), at.line, at.column, text.c_str()));
    }

private:
    std::string name_;
    JsonValue root_;
};

// What a module has, in both forms of an inventory. Each sets its field of a text, and says what is wrong
// with that.
using Setter = std::string (*)(Module& module, const std::string& value);

std::string setKind(Module& module, const std::string& value) {
    module.processor = findProcessor(value);
    return module.processor != nullptr
               ? ""
               : "\"" + value + "\" is no kind of processor" + commandLine::suggest(value, processorNames());
}

std::string setLink(Module& module, const std::string& value) {
    module.serial = value == "serial";
    return module.serial || value == "can" ? "" : "a link is \"can\" or \"serial\"";
}

std::string setRevision(Module& module, const std::string& value) {
    const char* const end = value.data() + value.size();
    const auto result = std::from_chars(value.data(), end, module.hardware);
    return result.ec == std::errc() && result.ptr == end
               ? ""
               : "\"" + value + "\" is no hardware revision from 0 to 255";
}

std::string setVersion(Module& module, const std::string& value) {
    module.version = value;
    module.knownVersion = true;
    return "";
}

template <bool Module::*Flag>
std::string setFlag(Module& module, const std::string& value) {
    module.*Flag = value == "true";
    return value == "true" || value == "false" ? "" : "\"" + value + "\" is neither true nor false";
}

const std::map<std::string, Setter> FIELDS = {{"kind", setKind},
                                              {"link", setLink},
                                              {"hw", setRevision},
                                              {"version", setVersion},
                                              {"lost", setFlag<&Module::silent>},
                                              {"absent", setFlag<&Module::absent>}};

// Also those that are in the table of the bus, but never visited.
const modules::ROW* rowOf(const std::string& name) {
    const auto row = std::ranges::find(modules::TABLE, std::string_view(name), &modules::ROW::name);
    return row == modules::TABLE.end() ? nullptr : &*row;
}

std::string unknownModule(const std::string& name) {
    std::vector<std::string> names;
    for (const modules::ROW& row : modules::VISITED)
        names.push_back(row.name);
    return "there is no module \"" + name + "\"" + commandLine::suggest(name, names);
}

std::string meantField(const std::string& name) {
    std::vector<std::string> names;
    for (const auto& [known, setter] : FIELDS)
        names.push_back(known);
    return commandLine::suggest(name, names);
}

std::string unknownField(const std::string& name) {
    return "\"" + name + "\" is none of absent, hw, kind, link, lost, version and simulation" +
           meantField(name);
}

using Modules = std::map<std::string, Module>;

Module newModule(const modules::ROW& row) {
    Module module;
    module.serial = row.bootloader == modules::BOOTLOADER::SERIAL;
    return module;
}

void addModule(Modules& modules, const modules::ROW& row, Module module) {
    if (modules::isVisited(row) && !module.absent)
        modules[row.name] = std::move(module);
}

// "s1 kind=stm32f3 hw=1 version=1.2.3", with remarks behind #. What only simulated modules have is passed
// over.
Modules readLines(const std::filesystem::path& path) {
    Modules modules;
    std::istringstream text(readFile(path));
    unsigned number = 0;
    bool named = false;
    for (std::string line; std::getline(text, line);) {
        ++number;
        std::istringstream words(line.substr(0, line.find('#')));
        std::string name;
        if (!(words >> name))
            continue;
        const auto fail = [&](const std::string& what) {
            throw std::invalid_argument(format("%s:%u: %s", path.string().c_str(), number, what.c_str()));
        };
        const modules::ROW* row = rowOf(name);
        if (row == nullptr)
            fail(unknownModule(name));
        if (modules.contains(name))
            fail("\"" + name + "\" a second time");
        Module module = newModule(*row);
        for (std::string word; words >> word;) {
            const std::size_t equals = word.find('=');
            const auto field = FIELDS.find(word.substr(0, equals));
            if (field == FIELDS.end()) {
                const std::string meant = meantField(word.substr(0, equals)); // else the simulation's
                if (!meant.empty())
                    fail("there is no \"" + word.substr(0, equals) + "\"" + meant);
                continue;
            }
            const bool isFlag = field->first == "lost" || field->first == "absent";
            if (isFlag != (equals == word.npos))
                fail("\"" + field->first + "\" " + (isFlag ? "has no value" : "needs a value"));
            const std::string value = isFlag ? "true" : word.substr(equals + 1);
            if (const std::string objection = field->second(module, value); !objection.empty())
                fail(objection);
        }
        addModule(modules, *row, module);
        named = true;
    }
    if (!named)
        throw std::invalid_argument(path.string() + ": names no module");
    return modules;
}

void setField(const JsonFile& file, const JsonValue& key, const JsonValue& value, Module& module) {
    if (key.text == "$comment" || key.text == "simulation")
        return;
    const auto field = FIELDS.find(key.text);
    if (field == FIELDS.end())
        file.fail(key.position, unknownField(key.text));
    const bool isFlag = key.text == "lost" || key.text == "absent";
    if (value.isText() ? isFlag : !isFlag && key.text != "hw")
        file.fail(value.position, "the value of \"" + key.text + "\" is " +
                                      (isFlag ? "neither true nor false" : "not a text"));
    if (const std::string objection = field->second(module, value.text); !objection.empty())
        file.fail(value.position, objection);
}

// Another file in the place of a text: what it is says more than where it stops to be JSON.
FileType requireText(const std::filesystem::path& path, const char* what) {
    const FileNature nature = natureOf(path);
    if (nature.type != FileType::Json && nature.type != FileType::Text && nature.type != FileType::Absent)
        throw std::invalid_argument(path.string() + ": it is " + nature.name + ", no " + what);
    return nature.type;
}

Modules readModules(const std::filesystem::path& path) {
    if (requireText(path, "inventory of modules") == FileType::Text)
        return readLines(path);
    const JsonFile file(path);
    Modules modules;
    for (const auto& [key, body] : file.root().members) {
        const std::string& name = key.text;
        if (name == "$schema" || name == "$comment")
            continue;
        const modules::ROW* row = rowOf(name);
        if (row == nullptr)
            file.fail(key.position, unknownModule(name));
        if (modules.contains(name))
            file.fail(key.position, "\"" + name + "\" a second time");
        if (!body.isObject())
            file.fail(body.position, "\"" + name + "\" is no object");
        Module module = newModule(*row);
        for (const auto& [field, value] : body.members)
            setField(file, field, value, module);
        addModule(modules, *row, module);
    }
    return modules;
}

} // namespace

unsigned pickedRevision(const Module& module) {
    const bool identifies = module.processor == nullptr || module.processor->identifies;
    if (!identifies && !module.knownVersion)
        return 0; // never recognised: programmed whatever it has
    return identifies && module.hardware > busProtocol::LAST_HW_REV ? 0U : module.hardware;
}

Inventory readInventory(const std::filesystem::path& installed, const std::filesystem::path& modules) {
    Inventory inventory;
    if (!installed.empty()) {
        requireText(installed, "system.manifest");
        const JsonFile file(installed);
        for (const auto& [key, value] : file.root().members) {
            if (value.isText())
                inventory.installed[key.text] = value.text;
        }
        if (inventory.installed.empty() && !file.root().members.empty())
            file.fail(file.root().position, "no version in it, so no system.manifest");
    }
    if (!modules.empty())
        inventory.modules = readModules(modules);
    return inventory;
}

} // namespace package
