#include "report.h"

#include "lib/format.h"

#include <map>

#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>
#include <utility>
#include <vector>

namespace package {

namespace {

const char* nameOf(Severity severity) {
    return severity == Severity::Error ? "error" : "warning";
}

std::string textOf(const Place& place) {
    std::string text = place.file;
    if (place.line != 0)
        text += ":" + std::to_string(place.line);
    if (place.column != 0)
        text += ":" + std::to_string(place.column);
    return text;
}

std::string counted(std::size_t count, const char* what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

// A wrong cause can have hundreds of findings: of each kind, a file's first ones stand for the others.
struct Shown {
    const Finding& finding;
    std::size_t more; // others of its kind in its file
};

std::vector<Shown> shownOf(const Findings& findings) {
    constexpr std::size_t MOST = 5;
    std::map<std::pair<const Kind*, std::string>, std::vector<std::size_t>> places; // of those of one kind
    std::vector<Shown> shown;
    for (const Finding& each : findings.all()) {
        std::vector<std::size_t>& those = places[{each.kind, each.place.file}];
        if (those.size() == MOST) {
            ++shown[those.back()].more;
        } else {
            those.push_back(shown.size());
            shown.push_back({each, 0});
        }
    }
    return shown;
}

// JSON is UTF-8; names on a disk need not be.
std::string asUtf8(const std::string& text) {
    std::string valid;
    for (std::size_t at = 0; at < text.size();) {
        rapidjson::StringStream rest(text.c_str() + at);
        rapidjson::StringBuffer ignored;
        const bool isValid = rapidjson::UTF8<>::Validate(rest, ignored);
        const std::size_t size = isValid ? rest.Tell() : 1;
        valid += isValid ? text.substr(at, size) : format("\\x%02X", static_cast<unsigned char>(text[at]));
        at += size;
    }
    return valid;
}

// An object written member by member.
class Json {
public:
    Json() {
        writer_.SetIndent(' ', 2);
        writer_.SetMaxDecimalPlaces(3);
    }
    void open(const char* key = nullptr) {
        name(key);
        writer_.StartObject();
    }
    void close() { writer_.EndObject(); }
    void openList(const char* key) {
        name(key);
        writer_.StartArray();
    }
    void closeList() { writer_.EndArray(); }
    void add(const char* key, const std::string& value) {
        const std::string text = asUtf8(value);
        name(key);
        writer_.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
    }
    void add(const char* key, std::uint64_t number) {
        name(key);
        writer_.Uint64(number);
    }
    void addSeconds(const char* key, double seconds) {
        name(key);
        writer_.Double(seconds);
    }
    void addFlag(const char* key, bool flag) {
        name(key);
        writer_.Bool(flag);
    }
    std::string text() const { return std::string(buffer_.GetString(), buffer_.GetSize()) + "\n"; }

private:
    void name(const char* key) {
        if (key != nullptr)
            writer_.Key(key);
    }
    rapidjson::StringBuffer buffer_;
    rapidjson::PrettyWriter<rapidjson::StringBuffer> writer_{buffer_};
};

const char* nameOf(Decision decision) {
    switch (decision) {
    case Decision::Update:
        return "update";
    case Decision::UpToDate:
        return "up-to-date";
    case Decision::NoImage:
        return "no image";
    case Decision::NotFound:
        return "not found";
    case Decision::NotOffered:
        return "nothing offered";
    case Decision::Fails:
        return "FAILS";
    case Decision::NotReached:
        return "not reached";
    }
    return "";
}

std::string explain(const Step& step) {
    switch (step.decision) {
    case Decision::Update:
        return (step.from.empty() ? "unknown" : step.from) + " -> " + step.to + "  " + step.file;
    case Decision::UpToDate:
        return step.from;
    case Decision::NoImage:
        return format("for hardware revision %u; the panel says \"up-to-date\"", step.revision);
    case Decision::Fails:
        return step.reason;
    default:
        return "";
    }
}

} // namespace

std::string findingsText(const Findings& findings) {
    std::string text;
    for (const auto& [each, more] : shownOf(findings)) {
        text += textOf(each.place) + ": " + nameOf(each.kind->severity) + ": " + each.text + " [" +
                each.kind->id + "]\n";
        text += std::string("    the panel: ") + each.kind->panel + "\n";
        text += std::string("    remedy:    ") + each.kind->remedy + "\n";
        if (more != 0)
            text += format("    ... and %zu more of these\n", more);
    }
    return text + counted(findings.errors(), "error") + ", " + counted(findings.warnings(), "warning") + "\n";
}

std::string findingsJson(const Findings& findings, const std::string& package) {
    Json json;
    json.open();
    json.add("package", package);
    json.add("errors", std::uint64_t{findings.errors()});
    json.add("warnings", std::uint64_t{findings.warnings()});
    json.openList("findings");
    for (const auto& [each, more] : shownOf(findings)) {
        json.open();
        json.add("id", std::string(each.kind->id));
        json.add("severity", std::string(nameOf(each.kind->severity)));
        json.add("file", each.place.file);
        json.add("line", std::uint64_t{each.place.line});
        json.add("column", std::uint64_t{each.place.column});
        json.add("text", each.text);
        json.add("panel", std::string(each.kind->panel));
        json.add("remedy", std::string(each.kind->remedy));
        json.add("more", std::uint64_t{more});
        json.close();
    }
    json.closeList();
    json.close();
    return json.text();
}

std::string planText(const Plan& plan, unsigned baud) {
    std::string text = format("%-17s %-15s %9s %6s %6s %8s %8s  %s\n", "item", "decision", "bytes", "pages",
                              "erases", "messages", "seconds", "versions");
    for (const Step& step : plan.steps) {
        const std::string line =
            format("%-17s %-15s %9llu %6u %6u %8u %8.2f  %s", step.stop->shown, nameOf(step.decision),
                   static_cast<unsigned long long>(step.bytes), step.bus.pages, step.bus.erases,
                   step.bus.messages, step.bus.seconds(baud), explain(step).c_str());
        text += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
    }
    if (plan.restarts)
        text += "The updater replaces itself and starts anew before it goes on with the rest.\n";
    return text + format("On the bus: %u pages, %u erases, %u messages; %.1f s at %u baud\n", plan.bus.pages,
                         plan.bus.erases, plan.bus.messages, plan.bus.seconds(baud), baud);
}

std::string planJson(const Plan& plan, unsigned baud) {
    Json json;
    const auto bus = [&](const BusCost& cost) {
        json.add("pages", std::uint64_t{cost.pages});
        json.add("erases", std::uint64_t{cost.erases});
        json.add("messages", std::uint64_t{cost.messages});
        json.add("sentBytes", std::uint64_t{cost.dataBytes});
        json.addSeconds("seconds", cost.seconds(baud));
    };
    json.open();
    json.add("baud", std::uint64_t{baud});
    json.openList("steps");
    for (const Step& step : plan.steps) {
        json.open();
        json.add("item", std::string(step.stop->shown));
        json.add("decision", std::string(nameOf(step.decision)));
        json.add("from", step.from);
        json.add("to", step.to);
        json.add("file", step.file);
        json.add("reason", step.reason);
        json.add("revision", std::uint64_t{step.revision});
        json.add("bytes", step.bytes);
        bus(step.bus);
        json.close();
    }
    json.closeList();
    json.addFlag("restarts", plan.restarts);
    json.open("total");
    bus(plan.bus);
    json.close();
    json.close();
    return json.text();
}

} // namespace package
