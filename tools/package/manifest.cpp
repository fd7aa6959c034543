#include "manifest.h"

#include "commandLine/suggest.h"
#include "findingKinds.h"
#include "json.h"
#include "system/packageRules.h"

#include <algorithm>
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>

namespace package {

namespace {

bool holdsObject(const JsonValue& value) {
    return value.isObject() || std::any_of(value.elements.begin(), value.elements.end(), holdsObject);
}

bool holdsInner(const JsonValue& body) {
    return std::any_of(body.members.begin(), body.members.end(),
                       [](const JsonMember& each) { return holdsObject(each.value); });
}

// What both readers share: the text, where findings go, and how a place in the text is told.
class Reader {
public:
    Reader(const std::string& name, Findings& findings) : name_(name), findings_(findings) {}

    // False when `text` is no object; one that is empty is reported only.
    bool parse(const std::string& text, JsonValue& root, const std::string& what) {
        const JsonError error = parseJson(text, root);
        if (!error.text.empty()) {
            findings_.add(kinds::JSON_SYNTAX, {name_, error.position.line, error.position.column},
                          error.text);
            return false;
        }
        if (!root.isObject())
            report(kinds::ITEM_FORM, root, "the text is no object of items");
        else if (root.members.empty())
            report(kinds::MANIFEST_EMPTY, root, what + " names no item");
        return root.isObject();
    }
    std::size_t reported() const { return findings_.all().size(); }
    void report(const Kind& kind, const JsonValue& at, const std::string& text) {
        findings_.add(kind, place(at), text);
    }
    Place place(const JsonValue& value) const { return {name_, value.position.line, value.position.column}; }

    // Whether a value is a text; one that is too long for the panel is reported.
    bool isTextOf(const std::string& what, const JsonValue& value) {
        if (!value.isText())
            report(kinds::VALUE_NOT_TEXT, value, what + " that is not a text");
        else if (packageRules::isTooLong(value.text))
            report(kinds::TEXT_TOO_LONG, value, what + " of " + std::to_string(value.text.size()) + " bytes");
        return value.isText();
    }

    // The item that a key opens; null when there is none of that name.
    Item* openItem(const JsonValue& key, const JsonValue& body, Items& items) {
        const ItemKind* kind = package::findItem(key.text);
        if (kind == nullptr) {
            report(holdsInner(body) ? kinds::ITEM_NESTED : kinds::ITEM_UNKNOWN, key,
                   "there is no item \"" + key.text + "\"" + commandLine::suggest(key.text, itemNames()));
            return nullptr;
        }
        const auto known =
            std::find_if(items.begin(), items.end(), [&](const Item& each) { return each.kind == kind; });
        if (known != items.end()) {
            report(kinds::ITEM_TWICE, key, "\"" + key.text + "\" a second time");
            return &*known;
        }
        return &items.emplace_back(Item{kind, place(key), {}});
    }

private:
    const std::string& name_;
    Findings& findings_;
};

// The texts of "f" or "v": one, or a list of them. What is no text is reported and left out.
std::vector<const JsonValue*> textsOf(const JsonValue& value, const std::string& what, Reader& reader) {
    std::vector<const JsonValue*> texts;
    const auto take = [&](const JsonValue& each) {
        if (reader.isTextOf("a " + what, each))
            texts.push_back(&each);
    };
    if (!value.isArray())
        take(value);
    for (const JsonValue& each : value.elements)
        take(each);
    return texts;
}

void setVersions(Item& item, const JsonValue& value, bool hadFiles, Reader& reader) {
    const auto versions = textsOf(value, "version", reader);
    const std::size_t given = value.isArray() ? value.elements.size() : 1;
    for (std::size_t i = 0; i < std::min(versions.size(), item.entries.size()); ++i) {
        item.entries[i].version = versions[i]->text;
        item.entries[i].versionPlace = reader.place(*versions[i]);
    }
    if (hadFiles && given != item.entries.size())
        reader.report(kinds::UNPAIRED, value,
                      std::to_string(item.entries.size()) + " files, " + std::to_string(given) + " versions");
}

void readItem(const JsonValue& body, Item& item, Reader& reader) {
    bool files = false;
    bool versions = false;
    const std::size_t before = reader.reported();
    for (const auto& [key, value] : body.members) {
        if (holdsObject(value)) {
            reader.report(kinds::ITEM_NESTED, key, "an object inside the item");
            continue;
        }
        if (key.text != "f" && key.text != "v") {
            reader.report(kinds::KEY_UNKNOWN, key, "\"" + key.text + "\" is neither \"f\" nor \"v\"");
            continue;
        }
        bool& seen = key.text == "f" ? files : versions;
        if (seen)
            reader.report(kinds::KEY_TWICE, key, "\"" + key.text + "\" a second time");
        seen = true;
        if (key.text == "v") {
            if (!files)
                reader.report(kinds::VERSIONS_FIRST, key, "\"v\" stands before \"f\"");
            setVersions(item, value, files, reader);
            continue;
        }
        for (const JsonValue* file : textsOf(value, "file name", reader))
            item.entries.push_back({file->text, reader.place(*file), {}, {}, {}, false, false});
    }
    if (files && !versions)
        reader.report(kinds::UNPAIRED, body, "no \"v\"");
    if (item.entries.empty() && reader.reported() == before)
        reader.report(kinds::ITEM_FORM, body, "the item names no file");
}

bool isRemark(const JsonValue& key) {
    return key.text == "$schema" || key.text == "$comment";
}

// A second value of a key, of which only one can be meant.
void reportTwice(const JsonValue& object, const JsonValue& key, const JsonValue& value, Reader& reader) {
    if (object.find(key.text) != &value)
        reader.report(kinds::KEY_TWICE, key, "\"" + key.text + "\" a second time");
}

void readAllowances(const JsonValue& list, std::vector<Allowance>* allowances, Reader& reader) {
    if (!list.isArray())
        reader.report(kinds::ALLOW_FORM, list, "\"allow\" is no list");
    for (const JsonValue& each : list.elements) {
        Allowance allowance;
        for (const auto& [key, field] : each.members) {
            if (isRemark(key))
                continue;
            reportTwice(each, key, field, reader);
            if (key.text != "finding" && key.text != "file" && key.text != "reason")
                reader.report(kinds::ALLOW_FORM, key,
                              "\"" + key.text + "\" is none of \"finding\", \"file\" and \"reason\"");
            (key.text == "finding" ? allowance.id
             : key.text == "file"  ? allowance.file
                                   : allowance.reason) = field.text;
        }
        if (const std::string objection = kinds::objectionToAllowing(allowance.id); !objection.empty())
            reader.report(kinds::ALLOW_FORM, each, objection);
        else if (allowance.reason.empty())
            reader.report(kinds::ALLOW_FORM, each, "no \"reason\"");
        else if (allowances != nullptr)
            allowances->push_back(allowance);
    }
}

// One revision of a description.
void readEntry(const JsonValue& value, Item& item, Reader& reader) {
    Entry entry;
    entry.filePlace = entry.versionPlace = reader.place(value);
    if (!value.isObject()) {
        reader.report(kinds::ITEM_FORM, value, "no object with \"file\" and \"version\"");
        return;
    }
    for (const auto& [key, field] : value.members) {
        if (isRemark(key))
            continue;
        reportTwice(value, key, field, reader);
        if (key.text == "fill" || key.text == "crop") {
            if (field.isText() || (field.text != "true" && field.text != "false"))
                reader.report(kinds::ITEM_FORM, field, "\"" + key.text + "\" is neither true nor false");
            (key.text == "fill" ? entry.fill : entry.crop) = field.text == "true";
            continue;
        }
        std::string* target = key.text == "file"        ? &entry.file
                              : key.text == "version"   ? &entry.version
                              : key.text == "processor" ? &entry.processor
                                                        : nullptr;
        if (target == nullptr) {
            reader.report(
                kinds::KEY_UNKNOWN, key,
                "\"" + key.text +
                    "\" is none of \"file\", \"version\", \"processor\", \"fill\" and \"crop\"" +
                    commandLine::suggest(key.text, {"file", "version", "processor", "fill", "crop"}));
            continue;
        }
        if (!reader.isTextOf("a \"" + key.text + "\"", field))
            return;
        *target = field.text;
        (target == &entry.version ? entry.versionPlace : entry.filePlace) = reader.place(field);
    }
    for (const char* key : {"file", "version"}) {
        if (value.find(key) == nullptr) {
            reader.report(kinds::UNPAIRED, value, std::string("no \"") + key + "\"");
            return;
        }
    }
    item.entries.push_back(entry);
}

} // namespace

const Item* findItem(const Items& items, const std::string& name) {
    const auto found =
        std::find_if(items.begin(), items.end(), [&](const Item& each) { return each.kind->name == name; });
    return found == items.end() ? nullptr : &*found;
}

Items readManifest(const std::string& text, const std::string& name, Findings& findings) {
    Items items;
    Reader reader(name, findings);
    JsonValue root;
    if (packageRules::isBlank(text)) {
        findings.add(kinds::MANIFEST_BLANK, {name}, "the manifest holds nothing");
        return items;
    }
    if (!reader.parse(text, root, "the manifest"))
        return items;
    for (const auto& [key, body] : root.members) {
        if (key.text == packageRules::FILE_DIGESTS)
            continue;
        Item* item = reader.openItem(key, body, items);
        if (item == nullptr)
            continue;
        if (body.isObject())
            readItem(body, *item, reader);
        else
            reader.report(kinds::ITEM_FORM, body, "\"" + key.text + "\" is no object with \"f\" and \"v\"");
    }
    return items;
}

Items readDescription(const std::string& text, const std::string& name, Findings& findings,
                      std::vector<Allowance>* allowances) {
    Items items;
    Reader reader(name, findings);
    JsonValue root;
    if (!reader.parse(text, root, "the description"))
        return items;
    for (const auto& [key, list] : root.members) {
        if (isRemark(key))
            continue;
        if (key.text == "allow") {
            reportTwice(root, key, list, reader);
            readAllowances(list, allowances, reader);
            continue;
        }
        Item* item = reader.openItem(key, {}, items);
        if (item == nullptr)
            continue;
        if (!list.isArray() || list.elements.empty())
            reader.report(kinds::ITEM_FORM, list, "\"" + key.text + "\" is no list with a file in it");
        for (const JsonValue& value : list.elements)
            readEntry(value, *item, reader);
    }
    return items;
}

std::string writeManifest(const Items& items, const FileDigests& digests) {
    rapidjson::StringBuffer buffer;
    rapidjson::PrettyWriter<rapidjson::StringBuffer> writer(buffer);
    writer.SetIndent(' ', 2);
    writer.SetFormatOptions(rapidjson::kFormatSingleLineArray);
    const auto text = [&](const std::string& value) {
        writer.String(value.data(), static_cast<rapidjson::SizeType>(value.size()));
    };
    writer.StartObject();
    for (const Item& item : items) {
        writer.Key(item.kind->name);
        writer.StartObject();
        writer.Key("f"); // the panel pairs versions with the files that it has read by then
        writer.StartArray();
        for (const Entry& entry : item.entries)
            text(entry.file);
        writer.EndArray();
        writer.Key("v");
        writer.StartArray();
        for (const Entry& entry : item.entries)
            text(entry.version);
        writer.EndArray();
        writer.EndObject();
    }
    writer.Key(packageRules::FILE_DIGESTS.c_str());
    writer.StartObject();
    for (const auto& [name, digest] : digests) {
        writer.Key(name.data(), static_cast<rapidjson::SizeType>(name.size()));
        text(digest);
    }
    writer.EndObject();
    writer.EndObject();
    return std::string(buffer.GetString(), buffer.GetSize()) + "\n";
}

} // namespace package
