#include "build.h"

#include "contents.h"
#include "digest.h"
#include "lib/sha1.h"
#include "package.h"
#include "platform.h"
#include "progress.h"
#include "signing.h"
#include "tarball.h"

namespace package {

namespace fs = std::filesystem;

namespace {

// Files that are written beside their places and then put there together. When that does not come about, what
// was there stays.
class Replacement {
public:
    Replacement() = default;
    ~Replacement() {
        const platform::Uninterrupted whole;
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

std::string manifestOf(const Package& package, const std::vector<Member>& members) {
    FileDigests digests;
    for (const Member& each : members) {
        if (fs::is_regular_file(each.source))
            digests[each.name] = sha256Of(each.source);
    }
    return writeManifest(package.items(), digests);
}

// Returns the digest.
std::string writeArchive(const fs::path& path, const std::vector<Member>& members) {
    SafeFile archive(path);
    ProgressBar bar("packing", sizeOf(members));
    pack(
        members, [&](const void* data, std::size_t size) { archive.write(data, size); },
        [&](std::uint64_t done) { bar.show(done); });
    return archive.finish();
}

// The archive with its digest and signature, and beside it the manifest with its digest.
void writePackage(const Package& package, const BuildOptions& options) {
    std::vector<Member> members = membersOf(package);
    const std::string manifest = manifestOf(package, members);
    const std::string manifestSha = digestText(sha1::ofText(manifest), MANIFEST);
    // The manifest last: where it is, everything is.
    members.push_back({MANIFEST + DIGEST, {}, manifestSha});
    members.push_back({MANIFEST, {}, manifest});

    fs::create_directories(options.target);
    Replacement files;
    const fs::path archivePath = files.add(options.target / ARCHIVE);
    const std::string digest = writeArchive(archivePath, members);
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
}

bool isToBuild(const Package& package, const BuildOptions& options, Findings& findings) {
    findings.allow(package.allowances());
    if (findings.errors() != 0)
        return false; // a description that can't be followed: not even when forced
    checkContents(package, options.rules, findings);
    findings.allow(options.rules.allowances);
    findings.allow(package.allowances());
    if (options.strict && findings.warnings() != 0)
        return false;
    if (findings.errors() != 0 && (!options.force || findings.leavesOut()))
        return false; // without a file it would be another package

    return options.key.empty() || hasVerifyingUpdater(package, findings);
}

} // namespace

bool buildPackage(const BuildOptions& options, Findings& findings) {
    const bool isNamed = options.source.filename() == DESCRIPTION && !fs::is_directory(options.source);
    const fs::path description = isNamed ? options.source : options.source / DESCRIPTION;
    if (!fs::exists(description))
        throw Failure(description.string() + ": no such file; keldra-package init makes an example of one");
    const Package package(options.source, findings);
    if (!isToBuild(package, options, findings))
        return false;
    writePackage(package, options);
    return true;
}

} // namespace package
