#include "proof.h"

#include "bed.h"
#include "sim/text.h"

#include <algorithm>
#include <map>
#include <sstream>

#include <rapidjson/document.h>

namespace panel {

namespace {

namespace fs = std::filesystem;
using Fate = ModuleUpdate::Fate;
using Report = std::map<std::string, std::string>; // of a module

bool isEqual(const fs::path& left, const fs::path& right) {
    return fs::is_regular_file(left) && fs::is_regular_file(right) && contents(left) == contents(right);
}

bool isExecutable(const fs::path& file) {
    constexpr auto execute = fs::perms::owner_exec | fs::perms::group_exec | fs::perms::others_exec;
    return (fs::status(file).permissions() & execute) != fs::perms::none;
}

class Proof {
public:
    Proof(const Places& places, Asked asked)
        : places_(places), asked_(asked), root_(places.panel / "root"), reports_(readReports()) {
        for (const char* file : {"root/keldra/logs/update.log", "root/tmp/update.log", "output.txt"})
            said_ += contents(places_.panel / file);
        record_.Parse(contents(root_ / "keldra/config/system.manifest").c_str());
    }

    Proven host(const HostItem& item) const {
        const fs::path source = places_.content / item.file;
        Proven proven{item.name, item.installed, recorded(item.name), "left alone", false};
        if (item.packed.empty()) {
            proven.isRight = proven.after == item.installed;
            return proven;
        }
        std::uintmax_t bytes = 0;
        proven.isRight = isInstalled(item.name, source, bytes) && proven.after == item.packed;
        if (asked_ == Asked::NoHalves)
            proven.isRight = proven.isRight || proven.after == item.installed;
        proven.evidence = std::to_string(bytes) + " bytes equal";
        return proven;
    }

    Proven module(const ModuleUpdate& module) const {
        if (module.fate == Fate::Absent)
            return {module.shown, "absent", "absent", "not found", says(module.shown + " not found")};
        const Memory image = readHexFile(places_.content / module.image());
        Report report;
        if (const auto found = reports_.find(module.name); found != reports_.end())
            report = found->second;
        const bool equal =
            isFlashed(module, image) && report["version"] == module.next && report["open-page"] == "no";
        const bool written = report["written"] != "0";
        const bool history = asked_ == Asked::History;
        if (asked_ == Asked::NoHalves && !written)
            return {module.shown, module.version, report["version"], "untouched",
                    report["version"] == module.version && report["open-page"] == "no"};
        if (module.fate == Fate::Flash)
            return {module.shown, module.version, report["version"],
                    std::to_string(image.size()) + " bytes equal", equal && (written || !history)};
        const bool leftAlone = !written && says(module.shown + " up-to-date");
        return {module.shown, module.version, report["version"], "left alone, equal",
                equal && (leftAlone || !history)};
    }

    Proven temporaryFiles() const {
        const fs::directory_iterator files(root_ / "keldra/tmp");
        return {"temporary files", "", "", "removed",
                std::none_of(begin(files), end(files), [](const auto& file) {
                    return file.path().filename().string().rfind("keldra_update", 0) == 0;
                })};
    }

private:
    bool says(const std::string& text) const { return said_.find(text) != std::string::npos; }

    bool isFlashed(const ModuleUpdate& module, const Memory& image) const {
        const fs::path dump = places_.bus / "flash" / (module.name + ".hex");
        return fs::exists(dump) && difference(readHexFile(dump), image, module.isPacked()).empty();
    }

    // Adds up the bytes that were compared.
    bool isInstalled(const std::string& item, const fs::path& source, std::uintmax_t& bytes) const {
        if (fs::is_directory(source))
            return isTreeInstalled(source, bytes);
        bytes = fs::file_size(source);
        if (item == "kernel")
            return contents(places_.panel / "card.img").starts_with(contents(source));
        const fs::path program = root_ / "usr/bin/K+Updater";
        return isEqual(source, program) && isExecutable(program);
    }

    // Every visible file is on the panel, with the same content and the same right to be executed; no hidden
    // one.
    bool isTreeInstalled(const fs::path& tree, std::uintmax_t& bytes) const {
        for (const auto& entry : fs::recursive_directory_iterator(tree)) {
            const fs::path installed = root_ / entry.path().lexically_relative(tree);
            if (entry.path().filename().string().front() == '.') {
                if (fs::exists(installed))
                    return false;
            } else if (entry.is_regular_file()) {
                if (!isEqual(entry.path(), installed) ||
                    isExecutable(entry.path()) != isExecutable(installed))
                    return false;
                bytes += entry.file_size();
            }
        }
        return true;
    }

    // The version of an item of the panel itself.
    std::string recorded(const std::string& item) const {
        const bool known = record_.IsObject() && record_.HasMember(item.c_str());
        return known && record_[item.c_str()].IsString() ? record_[item.c_str()].GetString() : "";
    }

    std::map<std::string, Report> readReports() const {
        std::map<std::string, Report> reports;
        std::istringstream lines(contents(places_.bus / "report.txt"));
        for (std::string line; std::getline(lines, line);) {
            Report report;
            for (const std::string& word : sim::words(line))
                report.insert(sim::keyValue(word));
            if (report.count("module") > 0)
                reports[report["name"]] = report;
        }
        return reports;
    }

    Places places_;
    Asked asked_;
    fs::path root_;
    rapidjson::Document record_; // of what is installed
    std::map<std::string, Report> reports_;
    std::string said_;
};

} // namespace

std::vector<Proven> prove(const Description& description, const Places& places, Asked asked) {
    const Proof proof(places, asked);
    std::vector<Proven> all;
    for (const HostItem& item : description.items)
        all.push_back(proof.host(item));
    for (const ModuleUpdate& module : description.modules)
        all.push_back(proof.module(module));
    all.push_back(proof.temporaryFiles());
    return all;
}

} // namespace panel
