#include "contents.h"

#include "files.h"
#include "findingKinds.h"
#include "progress.h"

#include <algorithm>
#include <map>

namespace package {

namespace fs = std::filesystem;

namespace {

// What is packed, by its name in the package: sorted by bytes, whatever the locale.
using Sources = std::map<std::string, fs::path>;

// As the panel copies it: what a link leads to takes the link's place; `above` are the directories on the
// way.
void addTree(const fs::path& root, const std::string& name, std::vector<fs::path> above, Sources& sources) {
    std::error_code broken;
    const fs::path path = fs::canonical(root / name, broken);
    if (broken || std::find(above.begin(), above.end(), path) != above.end())
        return;
    sources[name] = root / name;
    if (!fs::is_directory(path))
        return;
    above.push_back(path);
    for (const fs::directory_entry& entry : fs::directory_iterator(path))
        addTree(root, name + "/" + entry.path().filename().string(), above, sources);
}

// The named files with the directories that lead to them. A name that the checks refuse may be there when
// building is forced; one that is not plain is never packed.
Sources sourcesOf(const Package& package) {
    Sources sources;
    for (const Item& item : package.items()) {
        for (const Entry& entry : item.entries) {
            std::error_code broken;
            const fs::path file = entry.file;
            if (!isPlainName(entry.file) || !fs::exists(package.pathOf(entry), broken))
                continue;
            for (fs::path parent = file.parent_path(); !parent.empty(); parent = parent.parent_path())
                sources[parent.string()] = package.root() / parent;
            if (entry.prepared.empty())
                addTree(package.root(), entry.file, {}, sources);
            else
                sources[entry.file] = entry.prepared;
        }
    }
    return sources;
}

} // namespace

std::vector<Member> membersOf(const Package& package) {
    std::vector<Member> members;
    for (const auto& [name, source] : sourcesOf(package))
        members.push_back({name, source, {}});
    return members;
}

std::uint64_t sizeOf(const std::vector<Member>& members) {
    std::uint64_t size = 0;
    for (const Member& member : members) {
        if (member.source.empty())
            size += member.text.size();
        else if (fs::is_regular_file(member.source))
            size += fs::file_size(member.source);
    }
    return size;
}

// Packs it to nowhere, until there is too much of it for a bomb.
void checkBulk(const Package& package, Findings& findings) {
    const std::vector<Member> members = membersOf(package);
    Bulk bulk{0, sizeOf(members)};
    if (!bulk.isBomb())
        return;
    ProgressBar bar("testing", bulk.unpacked);
    const auto count = [&](const void*, std::size_t size) {
        bulk.packed += size;
        if (!bulk.isBomb())
            throw Failure("");
    };
    try {
        pack(members, count, [&](std::uint64_t done) { bar.show(done); });
    } catch (const Failure&) {
        checkInterrupted();
        return; // what can't be read was reported
    }
    const auto size = [](const Member& each) {
        return fs::is_regular_file(each.source) ? fs::file_size(each.source) : 0;
    };
    findings.add(kinds::ARCHIVE_BOMB, {std::ranges::max_element(members, {}, size)->name}, bulk.text());
}

} // namespace package
