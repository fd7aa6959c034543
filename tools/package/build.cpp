#include "build.h"

#include "digest.h"
#include "lib/sha1.h"
#include "package.h"
#include "progress.h"
#include "signing.h"
#include "tarball.h"

#include <algorithm>
#include <set>

namespace package {

namespace fs = std::filesystem;

namespace {

using Names = std::set<std::string>; // sorted by bytes, whatever the locale

// As the panel copies it: what a link leads to takes the link's place; `above` are the directories on the
// way.
void addTree(const fs::path& root, const std::string& name, std::vector<fs::path> above, Names& names) {
    std::error_code broken;
    const fs::path path = fs::canonical(root / name, broken);
    if (broken || std::find(above.begin(), above.end(), path) != above.end())
        return;
    names.insert(name);
    if (!fs::is_directory(path))
        return;
    above.push_back(path);
    for (const fs::directory_entry& entry : fs::directory_iterator(path))
        addTree(root, name + "/" + entry.path().filename().string(), above, names);
}

// The named files with the directories that lead to them. A name that the checks refuse may be there when
// building is forced; one that is not plain is never packed.
Names namesOf(const Package& package) {
    Names names;
    for (const Item& item : package.items()) {
        for (const Entry& entry : item.entries) {
            std::error_code broken;
            const fs::path file = entry.file;
            if (!isPlainName(entry.file) || !fs::exists(package.root() / file, broken))
                continue;
            for (fs::path parent = file.parent_path(); !parent.empty(); parent = parent.parent_path())
                names.insert(parent.string());
            addTree(package.root(), entry.file, {}, names);
        }
    }
    return names;
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

// Files that are written beside their places and then put there together. When that does not come about, what
// was there stays.
class Replacement {
public:
    Replacement() = default;
    ~Replacement() {
        std::error_code ignored;
        for (const fs::path& target : targets_)
            fs::remove(besides(target), ignored);
    }
    Replacement(const Replacement&) = delete;
    Replacement& operator=(const Replacement&) = delete;

    fs::path add(const fs::path& target) { return besides(targets_.emplace_back(target)); }
    void finish() {
        for (const fs::path& target : targets_)
            fs::rename(besides(target), target);
        targets_.clear();
    }

private:
    static fs::path besides(const fs::path& target) { return target.string() + ".new"; }

    std::vector<fs::path> targets_;
};

} // namespace

bool buildPackage(const BuildOptions& options, Findings& findings) {
    if (!fs::exists(options.source / DESCRIPTION))
        throw Failure((options.source / DESCRIPTION).string() + ": no such file");
    const Package package(options.source, findings);
    checkContents(package, {}, findings);
    if (findings.errors() != 0 && !options.force)
        return false;

    if (!options.key.empty())
        requireVerifyingUpdater(package);

    FileDigests digests;
    std::vector<Member> members;
    for (const std::string& name : namesOf(package)) {
        const fs::path source = package.root() / name;
        members.push_back({name, source, {}});
        if (fs::is_regular_file(source))
            digests[name] = digestOfFile(source);
    }
    const std::string manifest = writeManifest(package.items(), digests);
    const std::string manifestSha = digestText(sha1::ofText(manifest), MANIFEST);
    // The manifest last: where it is, everything is.
    members.push_back({MANIFEST + DIGEST, {}, manifestSha});
    members.push_back({MANIFEST, {}, manifest});

    fs::create_directories(options.target);
    Replacement files;
    const fs::path archive = files.add(options.target / ARCHIVE);
    ProgressBar bar("packing", sizeOf(members));
    pack(members, archive, [&](std::uint64_t done) { bar.show(done); });
    writeFile(files.add(options.target / MANIFEST), manifest);
    writeFile(files.add(options.target / (MANIFEST + DIGEST)), manifestSha);
    writeFile(files.add(options.target / (ARCHIVE + DIGEST)), digestText(sha1::ofFile(archive), ARCHIVE));
    const fs::path signature = options.target / (ARCHIVE + packageRules::SIGNATURE);
    std::error_code none;
    if (options.key.empty())
        fs::remove(signature, none); // of another archive
    else
        sign(archive, options.key, files.add(signature));
    files.finish(); // the archive's digest last: it belongs to no other archive
    return true;
}

} // namespace package
