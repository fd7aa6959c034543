#include "build.h"

#include "digest.h"
#include "lib/sha1.h"
#include "package.h"
#include "platform.h"
#include "progress.h"
#include "signing.h"
#include "tarball.h"

#include <algorithm>

namespace package {

namespace fs = std::filesystem;

namespace {

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

bool buildPackage(const BuildOptions& options, Findings& findings) {
    const bool isNamed = options.source.filename() == DESCRIPTION && !fs::is_directory(options.source);
    const fs::path description = isNamed ? options.source : options.source / DESCRIPTION;
    if (!fs::exists(description))
        throw Failure(description.string() + ": no such file; keldra-package init makes an example of one");
    const Package package(options.source, findings);
    findings.allow(package.allowances());
    if (findings.errors() != 0)
        return false; // a description that can't be followed: not even when forced
    checkContents(package, options.rules, findings);
    findings.allow(options.rules.allowances);
    findings.allow(package.allowances());
    if (options.strict && findings.warnings() != 0)
        return false;
    if (findings.errors() != 0 && !options.force)
        return false;

    const Sources sources = sourcesOf(package);
    if (!options.key.empty() && !hasVerifyingUpdater(sources, findings))
        return false;

    FileDigests digests;
    std::vector<Member> members;
    for (const auto& [name, source] : sources) {
        members.push_back({name, source, {}});
        if (fs::is_regular_file(source))
            digests[name] = sha256Of(source);
    }
    const std::string manifest = writeManifest(package.items(), digests);
    const std::string manifestSha = digestText(sha1::ofText(manifest), MANIFEST);
    // The manifest last: where it is, everything is.
    members.push_back({MANIFEST + DIGEST, {}, manifestSha});
    members.push_back({MANIFEST, {}, manifest});

    fs::create_directories(options.target);
    Replacement files;
    const fs::path archivePath = files.add(options.target / ARCHIVE);
    std::string digest;
    {
        SafeFile archive(archivePath);
        ProgressBar bar("packing", sizeOf(members));
        pack(members, archive, [&](std::uint64_t done) { bar.show(done); });
        digest = archive.finish();
    }
    const auto put = [&](const std::string& name, const std::string& text) {
        SafeFile file(files.add(options.target / name));
        file.write(text.data(), text.size());
        file.finish();
    };
    put(MANIFEST, manifest);
    put(MANIFEST + DIGEST, manifestSha);
    put(ARCHIVE + DIGEST, digestText(digest, ARCHIVE));
    const fs::path signature = options.target / (ARCHIVE + packageRules::SIGNATURE);
    if (!options.key.empty())
        sign(archivePath, options.key, files.add(signature));
    files.finish();
    if (options.key.empty())
        fs::remove(signature); // of another archive
    platform::forceDirectory(options.target);
    return true;
}

} // namespace package
