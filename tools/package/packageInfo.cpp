#include "packageInfo.h"

#include "fileType.h"
#include "files.h"
#include "jsonWriter.h"
#include "lib/format.h"
#include "report.h"

#include <algorithm>
#include <map>
#include <numeric>
#include <set>

namespace package {

namespace fs = std::filesystem;

namespace {

FileInfo infoOf(const fs::path& path, const std::string& name) {
    return {name, sizeOf(path), sha1Of(path)};
}

// As the panel copies them: without hidden names.
void addFiles(const fs::path& path, const std::string& name, std::vector<FileInfo>& files) {
    std::error_code broken;
    if (!fs::is_directory(path, broken)) {
        if (fs::is_regular_file(path, broken) && platform::isReadable(path))
            files.push_back(infoOf(path, name));
        return;
    }
    std::set<fs::path> names;
    for (const fs::directory_entry& each : fs::directory_iterator(path, broken))
        names.insert(each.path().filename());
    for (const fs::path& each : names) {
        const bool isLoop = fs::is_symlink(path / each) && fs::is_directory(path / each, broken);
        if (!each.string().starts_with('.') && !isLoop)
            addFiles(path / each, name + "/" + each.string(), files);
    }
}

void addFirmware(const fs::path& path, const Item& item, const Entry& entry, const ProcessorChoice& choice,
                 EntryInfo& info) {
    Findings ignored;
    if (natureOf(path).type != FileType::IntelHex || guessProcessor(path) == nullptr)
        return;
    const HexFile file(path, entry.file, ignored);
    const auto chosen = choice.find(item.kind->name);
    if (chosen != choice.end() && info.revision < chosen->second.size())
        info.processor = chosen->second[info.revision];
    else
        info.processor = findProcessor(entry.processor);
    if (info.processor == nullptr) {
        info.processor = &guessProcessor(file.records());
        info.assumed = true;
    }
    info.flash = mapOf(file, *info.processor, item.kind->serial);
}

std::size_t pagesOf(const EntryInfo& entry) {
    return std::accumulate(entry.flash.regions.begin(), entry.flash.regions.end(), std::size_t{0},
                           [](std::size_t sum, const FlashRegion& each) { return sum + each.used(); });
}

std::string titleOf(const EntryInfo& entry) {
    return entry.item + (entry.processor != nullptr ? format(" r%zu", entry.revision) : "");
}

std::string processorOf(const EntryInfo& entry) {
    return entry.processor == nullptr
               ? ""
               : entry.processor->name + std::string(entry.assumed ? " (assumed)" : "");
}

std::string filesDiff(const EntryInfo& before, const EntryInfo& after) {
    std::map<std::string, std::string> old;
    for (const FileInfo& each : before.files)
        old[each.name] = each.digest;
    std::string text;
    for (const FileInfo& each : after.files) {
        const auto known = old.find(each.name);
        if (known == old.end())
            text += "    + " + printable(each.name) + "  " + shownSize(each.size) + "\n";
        else if (known->second != each.digest)
            text += "    * " + printable(each.name) + "  " + shownSize(each.size) + "\n";
        old.erase(each.name);
    }
    for (const auto& [name, digest] : old)
        text += "    - " + printable(name) + "\n";
    return text;
}

std::string pagesDiff(const EntryInfo& before, const EntryInfo& after) {
    std::string addresses;
    std::size_t changed = 0;
    for (const FlashRegion& region : after.flash.regions) {
        for (const FlashPage& page : region.pages) {
            if (isChanged(page, &before.flash) && ++changed <= 8)
                addresses += format(" 0x%X", page.address);
        }
    }
    return changed == 0 ? ""
                        : format("    pages changed: %zu of %zu:%s%s\n", changed, pagesOf(after),
                                 addresses.c_str(), changed > 8 ? " ..." : "");
}

std::string entryDiff(const EntryInfo* before, const EntryInfo* after) {
    if (before == nullptr)
        return "+ " + titleOf(*after) + "  " + printable(after->version) + "  " + printable(after->file) +
               "\n";
    if (after == nullptr)
        return "- " + titleOf(*before) + "  " + printable(before->version) + "  " + printable(before->file) +
               "\n";
    const std::string content = filesDiff(*before, *after) + pagesDiff(*before, *after);
    if (content.empty() && before->version == after->version)
        return "";
    const std::string versions = before->version == after->version
                                     ? after->version + " (the same version)"
                                     : before->version + " -> " + after->version;
    return "* " + titleOf(*after) + "  " + printable(versions) + "\n" + content;
}

} // namespace

std::uint64_t EntryInfo::size() const {
    return std::accumulate(files.begin(), files.end(), std::uint64_t{0},
                           [](std::uint64_t sum, const FileInfo& each) { return sum + each.size; });
}

PackageInfo inspect(const Package& package, const ProcessorChoice& choice) {
    PackageInfo info;
    if (!package.archive().empty())
        info.archive = infoOf(package.archive(), package.archive().filename().string());
    for (const Item& item : package.items()) {
        for (std::size_t revision = 0; revision < item.entries.size(); ++revision) {
            const Entry& entry = item.entries[revision];
            EntryInfo made{item.kind->name, revision, entry.file, entry.version, {}, {}, nullptr, false, {}};
            const fs::path path = package.pathOf(entry);
            made.nature = natureOf(path).name;
            if (isPlainName(entry.file))
                addFiles(path, entry.file, made.files);
            if (item.kind->content == Content::Firmware && !made.files.empty())
                addFirmware(path, item, entry, choice, made);
            info.entries.push_back(std::move(made));
        }
    }
    return info;
}

const EntryInfo* findEntry(const PackageInfo& info, const std::string& item, std::size_t revision) {
    const auto found = std::find_if(info.entries.begin(), info.entries.end(), [&](const EntryInfo& each) {
        return each.item == item && each.revision == revision;
    });
    return found == info.entries.end() ? nullptr : &*found;
}

bool isChanged(const FlashPage& page, const FlashMap* other) {
    if (other == nullptr)
        return false;
    for (const FlashRegion& region : other->regions) {
        for (const FlashPage& each : region.pages) {
            if (each.address == page.address)
                return each.data != page.data;
        }
    }
    return !page.data.empty();
}

std::string infoText(const PackageInfo& info) {
    std::string text;
    if (!info.archive.name.empty())
        text += printable(info.archive.name) + "  " + shownSize(info.archive.size) + "  SHA-1 " +
                info.archive.digest + "\n";
    for (const EntryInfo& each : info.entries) {
        text += format("%-9s %-10s %-24s %10s  %s", titleOf(each).c_str(), printable(each.version).c_str(),
                       printable(each.file).c_str(), shownSize(each.size()).c_str(), each.nature.c_str());
        if (each.processor != nullptr)
            text += format(", %s, %zu pages", processorOf(each).c_str(), pagesOf(each));
        text += "\n";
        for (const FileInfo& file : each.files)
            text += "    " + file.digest + "  " + printable(file.name) + "\n";
    }
    return text;
}

std::string infoJson(const PackageInfo& info) {
    JsonWriter json;
    const auto addFile = [&](const FileInfo& file) {
        json.add("name", file.name);
        json.add("bytes", file.size);
        json.add("sha1", file.digest);
    };
    json.open();
    json.open("archive");
    addFile(info.archive);
    json.close();
    json.openList("entries");
    for (const EntryInfo& each : info.entries) {
        json.open();
        json.add("item", each.item);
        json.add("revision", std::uint64_t{each.revision});
        json.add("version", each.version);
        json.add("file", each.file);
        json.add("nature", each.nature);
        json.add("bytes", each.size());
        json.add("processor", each.processor != nullptr ? each.processor->name : "");
        json.addFlag("assumed", each.assumed);
        json.add("pages", std::uint64_t{pagesOf(each)});
        json.openList("files");
        for (const FileInfo& file : each.files) {
            json.open();
            addFile(file);
            json.close();
        }
        json.closeList();
        json.close();
    }
    json.closeList();
    json.close();
    return json.text();
}

std::string diffText(const PackageInfo& before, const PackageInfo& after) {
    std::string text;
    for (const EntryInfo& each : after.entries)
        text += entryDiff(findEntry(before, each.item, each.revision), &each);
    for (const EntryInfo& each : before.entries) {
        if (findEntry(after, each.item, each.revision) == nullptr)
            text += entryDiff(&each, nullptr);
    }
    return text.empty() ? "the same items, versions and files\n" : text;
}

} // namespace package
