#include "inventory.h"

#include "commandLine/suggest.h"
#include "hexFile.h"
#include "text.h"

#include <algorithm>
#include <iterator>
#include <rapidjson/document.h>
#include <rapidjson/error/en.h>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace sim {

namespace {

struct KnownModule {
    const char* name;
    std::uint8_t address;
    std::uint8_t number;
    const char* processor; // unless the inventory says otherwise
};

constexpr KnownModule KNOWN_MODULES[] = {
    {"ctrl", CONTROL_MODULE, CONTROL_MODULE, "pic32-pages"},
    {"cy1", 0, 3, "pic24"},
    {"cy2", 0, 4, "pic24"},
    {"cy3", 0, 5, "pic24"},
    {"cy4", 0, 6, "pic24"},
    {"master", 7, 7, "pic24"},
    {"motor", 8, 8, "pic24"},
    {"s1", 9, 9, "pic24"},
    {"s2", 10, 10, "pic24"},
    {"s3", 11, 11, "pic24"},
    {"s4", 12, 12, "pic24"},
    {"mf1", 13, 13, "pic24"},
    {"mf2", 14, 14, "pic24"},
    {"mf3", 15, 15, "pic24"},
    {"arts", 16, 50, "pic24"},
};

std::uint8_t toByte(const std::string& text, std::uint8_t max = 255) {
    return static_cast<std::uint8_t>(toNumber(text, 10, max));
}

Bytes toSerialNumber(const std::string& text) {
    Bytes bytes = fromHex(text);
    if (bytes.size() != 6)
        throw std::invalid_argument("a serial number has 12 digits: " + text);
    return bytes;
}

// What one of some words stands for.
template <typename Meaning>
Meaning choose(const std::string& value, std::initializer_list<std::pair<const char*, Meaning>> words) {
    std::string known;
    for (const auto& [word, meaning] : words) {
        if (value == word)
            return meaning;
        known += std::string(known.empty() ? "" : ", ") + word;
    }
    throw std::invalid_argument("'" + value + "' is none of " + known);
}

Temper::Answers toAnswers(const std::string& value) {
    using enum Temper::Answers;
    return choose<Temper::Answers>(value, {{"direct", Directly}, {"status", OnStatus}, {"at-once", AtOnce}});
}

// Of what is not answered ahead of the work.
Temper::Answers toLaterAnswers(const std::string& value) {
    using enum Temper::Answers;
    return choose<Temper::Answers>(value, {{"direct", Directly}, {"status", OnStatus}});
}

Temper::OutOfOrder toOutOfOrder(const std::string& value) {
    using enum Temper::OutOfOrder;
    return choose<Temper::OutOfOrder>(value, {{"refused", Refused}, {"silent", Silent}, {"drops", Drops}});
}

bool isSilent(const std::string& value) {
    return choose<bool>(value, {{"direct", false}, {"silent", true}});
}

unsigned toCount(const std::string& text, unsigned max) {
    const unsigned count = toNumber(text, 10, max);
    if (count == 0)
        throw std::invalid_argument("this number starts at 1");
    return count;
}

// "A,B"
std::array<std::uint8_t, 2> toPair(const std::string& text) {
    const auto comma = text.find(',');
    if (comma == std::string::npos)
        throw std::invalid_argument("'" + text + "' is no pair of numbers");
    return {toByte(text.substr(0, comma)), toByte(text.substr(comma + 1))};
}

// "BYTE@ADDRESS+LENGTH", all hexadecimal, the address in the module's units; or the name of a HEX file.
void preload(ModuleConfig& config, const std::string& value) {
    const auto at = value.find('@');
    const auto plus = value.find('+', at == std::string::npos ? at : at + 1);
    if (plus == std::string::npos) {
        preloadHexFile(value, config.processor->packsInstructions(), config.flash);
        return;
    }
    const std::string_view text(value);
    const auto byte = static_cast<std::uint8_t>(toNumber(text.substr(0, at), 16, 0xFF));
    const std::uint32_t address = toNumber(text.substr(at + 1, plus - at - 1), 16);
    const Bytes bytes(toNumber(text.substr(plus + 1), 16, 0x1000000), byte);
    config.flash.preload(config.processor->cellOf(address), bytes);
}

template <auto Field>
void setTime(ModuleConfig& config, const std::string& value) {
    config.temper.*Field = Temper::Time(toNumber(value));
}

using Setter = void (*)(ModuleConfig&, const std::string&);

struct Key {
    const char* name;
    Setter set;
};

constexpr Key KEYS[] = {
    {"kind", [](ModuleConfig& c, const std::string& v) { c.processor = &processorNamed(v); }},
    {"link",
     [](ModuleConfig& c, const std::string& v) {
         c.serialBootloader = choose<bool>(v, {{"can", false}, {"serial", true}});
     }},
    {"absent", [](ModuleConfig& c, const std::string&) { c.present = false; }},
    {"lost", [](ModuleConfig& c, const std::string&) { c.lost = true; }},
    {"reply",
     [](ModuleConfig& c, const std::string& v) {
         c.temper.replyLength = choose<unsigned>(v, {{"long", 4}, {"short", 2}});
     }},
    {"identity",
     [](ModuleConfig& c, const std::string& v) {
         c.shortIdentity = choose<bool>(v, {{"12", false}, {"11", true}});
     }},
    {"hw", [](ModuleConfig& c, const std::string& v) { c.hardware = toByte(v); }},
    {"mode", [](ModuleConfig& c, const std::string& v) { c.mode = toByte(v, 7); }},
    {"version", [](ModuleConfig& c, const std::string& v) { c.version = Version::parse(v); }},
    {"next", [](ModuleConfig& c, const std::string& v) { c.next = Version::parse(v); }},
    {"serial", [](ModuleConfig& c, const std::string& v) { c.serialNumber = toSerialNumber(v); }},
    {"ignore", [](ModuleConfig& c, const std::string& v) { c.ignoredPages.push_back(toNumber(v, 16)); }},
    {"preload", preload},
    {"enter-ms", setTime<&Temper::enterTime>},
    {"start-ms", setTime<&Temper::startTime>},
    {"row-ms", setTime<&Temper::rowTime>},
    {"write-ms", setTime<&Temper::writeTime>},
    {"erase-page-ms", setTime<&Temper::erasePageTime>},
    {"erase-all-ms", setTime<&Temper::eraseAllTime>},
    {"latency-ms", setTime<&Temper::latency>},
    {"idle-ms", setTime<&Temper::idleTime>},
    {"babble-ms", setTime<&Temper::babblePeriod>},
    {"identity-ms", setTime<&Temper::identityPeriod>},
    {"busy",
     [](ModuleConfig& c, const std::string& v) {
         using enum Temper::Busy;
         c.temper.busy = choose<Temper::Busy>(v, {{"queue", Queue}, {"drop", Drop}, {"answer", Answer}});
     }},
    {"enter-answer", [](ModuleConfig& c, const std::string& v) { c.temper.silentEnter = isSilent(v); }},
    {"start-answer", [](ModuleConfig& c, const std::string& v) { c.temper.startAnswer = toLaterAnswers(v); }},
    {"row-answer", [](ModuleConfig& c, const std::string& v) { c.temper.rowAnswer = toLaterAnswers(v); }},
    {"out-of-order", [](ModuleConfig& c, const std::string& v) { c.temper.outOfOrder = toOutOfOrder(v); }},
    {"write-answer", [](ModuleConfig& c, const std::string& v) { c.temper.writeAnswer = toAnswers(v); }},
    {"erase-answer", [](ModuleConfig& c, const std::string& v) { c.temper.eraseAnswer = toAnswers(v); }},
    {"on-status",
     [](ModuleConfig& c, const std::string& v) {
         using enum Temper::OnStatus;
         c.temper.onStatus =
             choose<Temper::OnStatus>(v, {{"last", LastReply}, {"state", State}, {"nothing", Nothing}});
     }},
    {"names", [](ModuleConfig& c, const std::string& v) { c.temper.namedModule = toByte(v); }},
    {"renames", [](ModuleConfig& c, const std::string& v) { c.temper.renamedModule = toByte(v); }},
    {"rows",
     [](ModuleConfig& c, const std::string& v) {
         c.temper.anyRowOrder = choose<bool>(v, {{"next", false}, {"any", true}});
     }},
    {"write-again",
     [](ModuleConfig& c, const std::string& v) {
         c.temper.refusesWriteAgain = choose<bool>(v, {{"result", false}, {"error", true}});
     }},
    {"identifies", [](ModuleConfig& c, const std::string& v) { c.temper.identifiedModule = toByte(v); }},
    {"reply-length",
     [](ModuleConfig& c, const std::string& v) { c.temper.replyLength = toCount(v, MAX_PAYLOAD); }},
    {"enter-row",
     [](ModuleConfig& c,
        const std::string& v) { c.temper.enterRow = static_cast<std::uint16_t>(toNumber(v, 10, 0xFFFF)); }},
    {"enter-nth", [](ModuleConfig& c, const std::string& v) { c.temper.enterNth = toCount(v, 1000); }},
    {"deaf", [](ModuleConfig& c, const std::string&) { c.temper.deafToEnter = true; }},
    {"restart-after", [](ModuleConfig& c, const std::string& v) { c.temper.restartAfter = toNumber(v); }},
    {"identity-hw", [](ModuleConfig& c, const std::string& v) { c.temper.identityHardware = toPair(v); }},
};

template <typename Row, std::size_t Count>
std::vector<std::string> namesOf(const Row (&rows)[Count]) {
    std::vector<std::string> names;
    for (const Row& row : rows)
        names.emplace_back(row.name);
    return names;
}

// `place` is where the words stand.
void addModule(std::vector<ModuleConfig>& modules, const std::vector<std::string>& line,
               const std::string& place) {
    try {
        ModuleConfig config = parseModule(line);
        for (const ModuleConfig& other : modules)
            if (other.name == config.name)
                throw std::invalid_argument(config.name + " stands there twice");
        modules.push_back(std::move(config));
    } catch (const std::system_error& error) { // of a file that it names
        throw std::runtime_error(place + ": " + error.what());
    } catch (const std::exception& error) {
        throw std::invalid_argument(place + ": " + error.what());
    }
}

std::vector<ModuleConfig> readLines(const std::string& text, const std::string& file) {
    std::vector<ModuleConfig> modules;
    std::istringstream lines(text);
    unsigned number = 0;
    for (std::string line; std::getline(lines, line);) {
        ++number;
        if (const auto list = words(line); !list.empty())
            addModule(modules, list, file + ":" + std::to_string(number));
    }
    return modules;
}

// What a member is as a word of a line; a list stands for several.
void addWords(std::vector<std::string>& line, const std::string& key, const rapidjson::Value& value) {
    if (value.IsArray())
        for (const rapidjson::Value& each : value.GetArray())
            addWords(line, key, each);
    else if (value.IsString())
        line.push_back(key + "=" + value.GetString());
    else if (value.IsUint())
        line.push_back(key + "=" + std::to_string(value.GetUint()));
    else if (value.IsTrue())
        line.push_back(key);
    else if (!value.IsFalse())
        line.push_back(key + "=?"); // which no key takes
}

// What only simulated modules have stands in an object of its own, and counts behind the rest.
void addObject(std::vector<std::string>& line, const rapidjson::Value& module, const std::string& place) {
    if (!module.IsObject())
        throw std::invalid_argument(place + ": no object");
    for (const auto& [key, value] : module.GetObject())
        if (key != "$comment" && key != "simulation")
            addWords(line, key.GetString(), value);
    if (module.HasMember("simulation"))
        addObject(line, module["simulation"], place);
}

std::vector<ModuleConfig> readJson(const std::string& text, const std::string& file) {
    rapidjson::Document document;
    document.Parse(text.data(), text.size());
    if (document.HasParseError()) {
        const auto end = text.begin() + static_cast<std::ptrdiff_t>(document.GetErrorOffset());
        throw std::invalid_argument(file + ":" + std::to_string(std::count(text.begin(), end, '\n') + 1) +
                                    ": " + rapidjson::GetParseError_En(document.GetParseError()));
    }
    std::vector<ModuleConfig> modules;
    for (const auto& [name, module] : std::as_const(document).GetObject()) {
        if (name == "$schema" || name == "$comment")
            continue;
        std::vector<std::string> line{name.GetString()};
        const std::string place = file + ": " + line[0];
        addObject(line, module, place);
        addModule(modules, line, place);
    }
    return modules;
}

} // namespace

ModuleConfig parseModule(const std::vector<std::string>& line) {
    const auto known = std::find_if(std::begin(KNOWN_MODULES), std::end(KNOWN_MODULES),
                                    [&line](const KnownModule& module) { return module.name == line[0]; });
    if (known == std::end(KNOWN_MODULES))
        throw std::invalid_argument("unknown module '" + line[0] + "'" +
                                    commandLine::suggest(line[0], namesOf(KNOWN_MODULES)));
    ModuleConfig config;
    config.name = known->name;
    config.address = known->address;
    config.number = known->number;
    config.processor = &processorNamed(known->processor);
    config.serialBootloader = known->address == CONTROL_MODULE;
    for (std::size_t i = 1; i < line.size(); ++i) {
        const auto [name, value] = keyValue(line[i]);
        const auto key = std::find_if(std::begin(KEYS), std::end(KEYS), [&name = name](const Key& candidate) {
            return candidate.name == name;
        });
        if (key == std::end(KEYS))
            throw std::invalid_argument("unknown key '" + name + "'" +
                                        commandLine::suggest(name, namesOf(KEYS)));
        key->set(config, value);
    }
    return config;
}

std::vector<ModuleConfig> loadInventory(const std::string& file) {
    if (file.empty())
        return {};
    const std::string text = readText(file);
    const std::size_t start = text.find_first_not_of(" \t\r\n");
    return start != text.npos && text[start] == '{' ? readJson(text, file) : readLines(text, file);
}

} // namespace sim
