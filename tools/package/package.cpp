#include "package.h"

#include "digest.h"
#include "findingKinds.h"
#include "tarball.h"

#include <algorithm>

namespace package {

namespace fs = std::filesystem;

namespace {

// The last two entries, so that an interrupted unpacking leaves no manifest.
void checkOrder(const std::vector<std::string>& names, Findings& findings) {
    const auto manifest = std::find(names.begin(), names.end(), MANIFEST);
    const bool early = std::any_of(manifest, names.end(), [](const std::string& each) {
        return each != MANIFEST && each != MANIFEST + DIGEST;
    });
    if (early)
        findings.add(kinds::manifestNotLast, {MANIFEST}, "files follow the manifest in the archive");
}

} // namespace

std::string topOf(const std::string& name) {
    const fs::path relative = fs::path(name).relative_path();
    return relative.empty() ? "" : relative.begin()->string();
}

bool isPlainName(const std::string& name) {
    const std::string framed = "/" + name + "/";
    return !packageRules::leadsOutside(name) && framed.find("//") == framed.npos &&
           framed.find("/./") == framed.npos && topOf(name) != MANIFEST && topOf(name) != MANIFEST + DIGEST;
}

Package::Package(const fs::path& path, Findings& findings) {
    if (!fs::exists(path))
        throw Failure(path.string() + ": no such file or directory");
    const bool isDirectory = fs::is_directory(path);
    root_ = fs::canonical(isDirectory ? path : fs::absolute(path).parent_path());
    const fs::path name = path.filename();
    if (isDirectory ? fs::exists(path / DESCRIPTION) : name == DESCRIPTION)
        openDescription(findings);
    else if (isDirectory && fs::exists(path / ARCHIVE))
        openArchive(path / ARCHIVE, findings);
    else if (isDirectory ? fs::exists(path / MANIFEST) : name == MANIFEST)
        openTree(findings);
    else if (!isDirectory)
        openArchive(path, findings);
    else
        throw Failure(path.string() + ": holds no " + ARCHIVE + ", " + MANIFEST + " or " + DESCRIPTION);
}

void Package::openArchive(const fs::path& archive, Findings& findings) {
    requireFile(archive);
    const std::string name = archive.filename().string();
    if (name != ARCHIVE)
        findings.add(kinds::packageName, {name}, "the archive's name is " + name);
    checkDigest(archive, name, findings);
    unpacked_ = std::make_unique<TemporaryDirectory>();
    root_ = fs::canonical(unpacked_->path());
    const std::size_t before = findings.all().size();
    checkOrder(unpack(archive, root_, findings), findings);
    if (fs::exists(root_ / MANIFEST))
        openTree(findings);
    else if (findings.all().size() == before)
        findings.add(kinds::manifestMissing, {MANIFEST}, "the archive holds no manifest");
}

void Package::openTree(Findings& findings) {
    requireFile(root_ / MANIFEST);
    checkDigest(root_ / MANIFEST, MANIFEST, findings);
    const std::string manifest = readFile(root_ / MANIFEST);
    items_ = readManifest(manifest, MANIFEST, findings);
    checkFileDigests(root_, manifest, findings);
}

void Package::openDescription(Findings& findings) {
    described_ = true;
    requireFile(root_ / DESCRIPTION);
    items_ = readDescription(readFile(root_ / DESCRIPTION), DESCRIPTION, findings);
}

} // namespace package
