#include "package.h"

#include "convert.h"
#include "digest.h"
#include "fileType.h"
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

bool isArchiveName(const fs::path& name) {
    return name == ARCHIVE || name.extension() == ".tgz" || name.extension() == ".gz";
}

std::string adviceFor(const fs::path& path) {
    const FileType type = natureOf(path).type;
    return type == FileType::Json ? "; a description is named " + DESCRIPTION + ", a manifest " + MANIFEST
           : type == FileType::Gzip || type == FileType::Utf16 ? adviceOn(type)
                                                               : "";
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
    const fs::path base = (isDirectory ? path : path.parent_path()).lexically_normal();
    findings.setBase(base == "." ? "" : base.string());
    root_ = fs::canonical(isDirectory ? path : fs::absolute(path).parent_path());
    const fs::path name = path.filename();
    if (isDirectory ? fs::exists(path / DESCRIPTION) : name == DESCRIPTION)
        openDescription(findings);
    else if (isDirectory && fs::exists(path / ARCHIVE))
        openArchive(path / ARCHIVE, findings);
    else if (isDirectory ? fs::exists(path / MANIFEST) : name == MANIFEST)
        openTree(findings);
    else if (!isDirectory && fs::is_regular_file(path) && !isArchive(path) && !isArchiveName(name))
        throw Failure(path.string() + ": it is " + natureOf(path).name + ", no package" + adviceFor(path));
    else if (!isDirectory)
        openArchive(path, findings);
    else
        throw Failure(path.string() + ": holds no " + ARCHIVE + ", " + MANIFEST + " or " + DESCRIPTION);
}

void Package::openArchive(const fs::path& archive, Findings& findings) {
    requireFile(archive);
    const std::string name = archive.filename().string();
    archive_ = archive;
    if (!isArchive(archive)) {
        findings.add(kinds::archiveBroken, {name},
                     "it is " + natureOf(archive).name + ", no archive of a package");
        return;
    }
    if (name != ARCHIVE)
        findings.add(kinds::packageName, {name}, "the archive's name is " + name);
    checkDigest(archive, name, findings);
    unpacked_ = std::make_unique<TemporaryDirectory>();
    root_ = fs::canonical(unpacked_->path());
    const std::size_t before = findings.all().size();
    checkOrder(unpack(archive, root_, findings), findings);
    findings.setBase(archive.lexically_normal().string());
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
    items_ = readDescription(readFile(root_ / DESCRIPTION), DESCRIPTION, findings, &allowances_);
    for (Item& item : items_) {
        for (Entry& entry : item.entries) {
            if (item.kind->content == Content::Firmware)
                prepare(*item.kind, entry, findings);
        }
    }
}

// Puts the HEX image that is made of an entry's file into a directory of its own.
void Package::prepare(const ItemKind& kind, Entry& entry, Findings& findings) {
    const fs::path source = root_ / entry.file;
    const FileType type = isPlainName(entry.file) ? natureOf(source).type : FileType::Absent;
    const bool foreign = type == FileType::Elf || type == FileType::SRecords;
    if (!foreign && (type != FileType::IntelHex || (!entry.fill && !entry.crop)))
        return;
    entry.origin = entry.file;
    try {
        const Converted made =
            convertImage(source, {findProcessor(entry.processor), kind.serial, entry.fill, entry.crop});
        std::string name = entry.origin + (foreign ? ".hex" : "");
        if (unpacked_ == nullptr)
            unpacked_ = std::make_unique<TemporaryDirectory>();
        if (const fs::path known = unpacked_->path() / name;
            fs::exists(known) && readFile(known) != made.text)
            name = entry.origin + "." + made.processor->name + ".hex"; // filled for another processor
        entry.file = name;
        entry.prepared = unpacked_->path() / name;
        entry.processor = entry.processor.empty() ? made.processor->name : entry.processor;
        fs::create_directories(entry.prepared.parent_path());
        writeFile(entry.prepared, made.text);
    } catch (const BadFile& error) {
        findings.add(kinds::imageForm, {entry.origin, error.line()}, error.what());
    }
}

} // namespace package
