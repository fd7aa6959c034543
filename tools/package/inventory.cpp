#include "inventory.h"

#include "commandLine/suggest.h"
#include "fileType.h"
#include "files.h"
#include "json.h"
#include "lib/format.h"
#include "system/busProtocol.h"
#include "system/modules.h"

#include <charconv>
#include <cstdlib>
#include <sstream>

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
        throw Failure(format("%s:%u:%u: %s", name_.c_str(), at.line, at.column, text.c_str()));
    }

private:
    std::string name_;
    JsonValue root_;
};

std::uint8_t revisionOf(const JsonFile& file, const JsonValue& value) {
    unsigned number = 0;
    const char* const end = value.text.data() + value.text.size();
    const auto result = std::from_chars(value.text.data(), end, number);
    if (result.ec != std::errc() || result.ptr != end || number > 255)
        file.fail(value.position, "\"" + value.text + "\" is no hardware revision from 0 to 255");
    return static_cast<std::uint8_t>(number);
}

void setField(const JsonFile& file, const JsonValue& key, const JsonValue& value, Module& module) {
    if (key.text == "$comment")
        return;
    if (!value.isText() && key.text != "hw" && key.text != "lost")
        file.fail(value.position, "the value of \"" + key.text + "\" is not a text");
    if (key.text == "kind") {
        module.processor = findProcessor(value.text);
        if (module.processor == nullptr)
            file.fail(value.position, "\"" + value.text + "\" is no kind of processor" +
                                          commandLine::suggest(value.text, processorNames()));
    } else if (key.text == "link") {
        if (value.text != "can" && value.text != "serial")
            file.fail(value.position, "a link is \"can\" or \"serial\"");
        module.serial = value.text == "serial";
    } else if (key.text == "hw") {
        module.hardware = revisionOf(file, value);
    } else if (key.text == "version") {
        module.version = value.text;
        module.knownVersion = true;
    } else if (key.text == "lost") {
        if (value.isText() || (value.text != "true" && value.text != "false"))
            file.fail(value.position, "the value of \"lost\" is neither true nor false");
        module.silent = value.text == "true";
    } else {
        file.fail(key.position,
                  "\"" + key.text + "\" is none of kind, link, hw, version and lost" +
                      commandLine::suggest(key.text, {"kind", "link", "hw", "version", "lost"}));
    }
}

std::vector<std::string> moduleNames() {
    std::vector<std::string> names;
    for (const modules::ROW& row : modules::VISITED)
        names.push_back(row.name);
    return names;
}

// The lines that bus-sim takes: "s1 kind=stm32f3 hw=1 version=1.2.3", with remarks behind #. What only the
// simulated modules have is passed over.
std::map<std::string, Module> readLines(const std::filesystem::path& path) {
    std::map<std::string, Module> modules;
    std::istringstream text(readFile(path));
    unsigned number = 0;
    for (std::string line; std::getline(text, line);) {
        ++number;
        std::istringstream words(line.substr(0, line.find('#')));
        std::string name;
        if (!(words >> name))
            continue;
        const auto fail = [&](const std::string& what) {
            throw Failure(format("%s:%u: %s", path.c_str(), number, what.c_str()));
        };
        const modules::ROW* known = modules::find(name);
        if (known == nullptr)
            fail("there is no module \"" + name + "\"" + commandLine::suggest(name, moduleNames()));
        Module module;
        module.serial = known->bootloader == modules::BOOTLOADER::SERIAL;
        bool present = true;
        for (std::string word; words >> word;) {
            const std::string key = word.substr(0, word.find('='));
            const std::string value = word.size() > key.size() ? word.substr(key.size() + 1) : "";
            if (key == "kind" && (module.processor = findProcessor(value)) == nullptr)
                fail("\"" + value + "\" is no kind of processor" +
                     commandLine::suggest(value, processorNames()));
            else if (key == "hw")
                module.hardware = static_cast<std::uint8_t>(std::strtoul(value.c_str(), nullptr, 10));
            else if (key == "version")
                module.version = value;
            else if (key == "link")
                module.serial = value == "serial";
            present = present && key != "absent";
            module.silent = module.silent || key == "lost";
        }
        module.knownVersion = !module.version.empty();
        if (present)
            modules[name] = module;
    }
    return modules;
}

std::map<std::string, Module> readModules(const std::filesystem::path& path) {
    const FileType type = natureOf(path).type;
    if (type == FileType::Text || type == FileType::Empty)
        return readLines(path);
    const JsonFile file(path);
    std::map<std::string, Module> modules;
    for (const auto& [key, body] : file.root().members) {
        const std::string& name = key.text;
        if (name == "$schema" || name == "$comment")
            continue;
        const modules::ROW* known = modules::find(name);
        if (known == nullptr)
            file.fail(key.position,
                      "there is no module \"" + name + "\"" + commandLine::suggest(name, moduleNames()));
        if (!body.isObject())
            file.fail(body.position, "\"" + name + "\" is no object");
        Module& module = modules[name];
        module.serial = known->bootloader == modules::BOOTLOADER::SERIAL;
        for (const auto& [field, value] : body.members)
            setField(file, field, value, module);
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
        const JsonFile file(installed);
        for (const auto& [key, value] : file.root().members) {
            if (value.isText())
                inventory.installed[key.text] = value.text;
        }
    }
    if (!modules.empty())
        inventory.modules = readModules(modules);
    return inventory;
}

} // namespace package
