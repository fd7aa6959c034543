#include "findingKinds.h"
#include "jsonWriter.h"
#include "lib/format.h"
#include "report.h"
#include "system/packageRules.h"

#include <map>
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

std::string findingsText(const Findings& findings, bool colours) {
    std::string text;
    const auto in = [&](const char* colour, const std::string& word) {
        return colours ? colour + word + "\033[0m" : word;
    };
    for (const auto& [each, more] : shownOf(findings)) {
        const bool isError = each.kind->severity == Severity::Error;
        const std::string place = printable(textOf(each.place));
        text += (place.empty() ? "" : in("\033[1m", place) + ": ") +
                in(isError ? "\033[1;31m" : "\033[1;33m", nameOf(each.kind->severity)) + ": " +
                printable(each.text) + " [" + each.kind->id + "]\n";
        text += std::string("    the panel: ") + each.kind->panel + "\n";
        text += std::string("    remedy:    ") + each.kind->remedy + "\n";
        if (more != 0)
            text += format("    ... and %zu more of these\n", more);
    }
    return text + counts(findings) + "\n";
}

void addFinding(JsonWriter& json, const Finding& each, const std::string* reason) {
    json.open();
    json.add("id", each.kind->id);
    json.add("severity", nameOf(each.kind->severity));
    json.add("file", each.place.file);
    json.add("line", std::uint64_t{each.place.line});
    json.add("column", std::uint64_t{each.place.column});
    json.add("text", each.text);
    json.add("panel", each.kind->panel);
    json.add("remedy", each.kind->remedy);
    if (reason != nullptr)
        json.add("reason", *reason);
    json.close();
}

std::string findingsJson(const Findings& findings, const std::string& package) {
    JsonWriter json;
    json.open();
    json.add("package", package);
    json.add("errors", std::uint64_t{findings.errors()});
    json.add("warnings", std::uint64_t{findings.warnings()});
    json.openList("findings");
    for (const Finding& each : findings.all())
        addFinding(json, each, nullptr);
    json.closeList();
    json.openList("allowed");
    for (const Allowed& each : findings.allowed())
        addFinding(json, each.finding, &each.reason);
    json.closeList();
    json.close();
    return json.text();
}

std::string uriOf(const std::string& path) {
    std::string uri;
    for (const char each : path)
        uri += packageRules::isHarmless(std::string(1, each))
                   ? std::string(1, each)
                   : format("%%%02X", static_cast<unsigned char>(each));
    return uri;
}

std::string explanationOf(const Kind& kind) {
    return std::string("The panel: ") + kind.panel + ". Remedy: " + kind.remedy + ".";
}

void addSarifPlace(JsonWriter& json, const Place& place) {
    json.openList("locations");
    json.open();
    json.open("physicalLocation");
    json.open("artifactLocation");
    json.add("uri", uriOf(place.file));
    json.close();
    if (place.line != 0) {
        json.open("region");
        json.add("startLine", std::uint64_t{place.line});
        if (place.column != 0)
            json.add("startColumn", std::uint64_t{place.column});
        json.close();
    }
    json.close();
    json.close();
    json.closeList();
}

void addSarifResult(JsonWriter& json, const Finding& each, const std::string* reason) {
    json.open();
    json.add("ruleId", each.kind->id);
    json.add("level", nameOf(each.kind->severity));
    json.open("message");
    json.add("text", each.text + ". " + explanationOf(*each.kind));
    json.close();
    addSarifPlace(json, each.place);
    if (reason != nullptr) {
        json.openList("suppressions");
        json.open();
        json.add("kind", "external");
        json.add("justification", *reason);
        json.close();
        json.closeList();
    }
    json.close();
}

void addSarifTool(JsonWriter& json) {
    json.open("tool");
    json.open("driver");
    json.add("name", "keldra-package");
    json.openList("rules");
    for (const Kind* kind : kinds::ALL) {
        json.open();
        json.add("id", kind->id);
        json.open("help");
        json.add("text", explanationOf(*kind));
        json.close();
        json.close();
    }
    json.closeList();
    json.close();
    json.close();
}

std::string findingsSarif(const Findings& findings) {
    JsonWriter json;
    json.open();
    json.add("$schema", "https://json.schemastore.org/sarif-2.1.0.json");
    json.add("version", "2.1.0");
    json.openList("runs");
    json.open();
    addSarifTool(json);
    json.openList("results");
    for (const Finding& each : findings.all())
        addSarifResult(json, each, nullptr);
    for (const Allowed& each : findings.allowed())
        addSarifResult(json, each.finding, &each.reason);
    json.closeList();
    json.close();
    json.closeList();
    json.close();
    return json.text();
}

// As the commands in a log want it; `isProperty` for what stands before the text.
std::string githubEscaped(const std::string& text, bool isProperty) {
    std::string escaped;
    for (const char each : text) {
        const bool special =
            each == '%' || each == '\r' || each == '\n' || (isProperty && (each == ':' || each == ','));
        escaped += special ? format("%%%02X", static_cast<unsigned char>(each)) : std::string(1, each);
    }
    return escaped;
}

std::string findingsGithub(const Findings& findings) {
    std::string text;
    for (const Finding& each : findings.all()) {
        text +=
            std::string("::") + nameOf(each.kind->severity) + " file=" + githubEscaped(each.place.file, true);
        if (each.place.line != 0)
            text += ",line=" + std::to_string(each.place.line);
        if (each.place.column != 0)
            text += ",col=" + std::to_string(each.place.column);
        text += std::string(",title=") + each.kind->id +
                "::" + githubEscaped(each.text + "\nremedy: " + each.kind->remedy, false) + "\n";
    }
    return text + counts(findings) + "\n";
}

} // namespace

std::string counts(const Findings& findings) {
    const std::size_t allowed = findings.allowed().size();
    return counted(findings.errors(), "error") + ", " + counted(findings.warnings(), "warning") +
           (allowed != 0 ? ", " + std::to_string(allowed) + " allowed" : "");
}

std::string printable(const std::string& text) {
    std::string shown;
    for (const char each : text) {
        const auto code = static_cast<unsigned char>(each);
        shown += code < ' ' || code == 0x7F ? format("\\x%02X", code) : std::string(1, each);
    }
    return shown;
}

std::string reportFindings(const Findings& findings, Format to, const std::string& package, bool colours) {
    switch (to) {
    case Format::Json:
        return findingsJson(findings, package);
    case Format::Sarif:
        return findingsSarif(findings);
    case Format::Github:
        return findingsGithub(findings);
    case Format::Text:
        break;
    }
    return findingsText(findings, colours);
}

} // namespace package
