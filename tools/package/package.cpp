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
        findings.add(kinds::MANIFEST_NOT_LAST, {MANIFEST}, "files follow the manifest in the archive");
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

// Of what begins too short to tell what is compressed in it, the compression itself knows that it is cut.
std::string objectionToArchive(const fs::path& path) {
    const FileNature nature = natureOf(path);
    try {
        if (nature.type == FileType::Gzip)
            checkGzip(path);
    } catch (const Failure&) {
        checkInterrupted();
        return "it ends too soon";
    }
    return "it is " + nature.name + ", no archive of a package";
}

// What linkers write besides the panel's own form.
bool isForeign(FileType type) {
    return type == FileType::Elf || type == FileType::SRecords;
}

} // namespace

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
        findings.add(kinds::ARCHIVE_BROKEN, {name}, objectionToArchive(archive));
        return;
    }
    if (name != ARCHIVE)
        findings.add(kinds::PACKAGE_NAME, {name}, "the archive's name is " + name);
    checkDigest(archive, name, findings);
    unpacked_ = std::make_unique<TemporaryDirectory>();
    root_ = fs::canonical(unpacked_->path());
    const std::size_t before = findings.all().size();
    checkOrder(unpack(archive, root_, findings), findings);
    findings.setBase(archive.lexically_normal().string());
    if (fs::exists(root_ / MANIFEST))
        openTree(findings);
    else if (findings.all().size() == before)
        findings.add(kinds::MANIFEST_MISSING, {MANIFEST}, "the archive holds no manifest");
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
    for (const Item& item : items_) {
        for (const Entry& entry : item.entries) {
            for (fs::path parent = fs::path(entry.file).parent_path(); parent.has_relative_path();
                 parent = parent.parent_path())
                directories_.insert(parent.string());
            if (!isToPrepare(item, entry))
                asTheyAre_.insert(entry.file);
        }
    }
    for (Item& item : items_) {
        for (Entry& entry : item.entries) {
            if (isToPrepare(item, entry))
                prepare(*item.kind, entry, findings);
        }
    }
}

// An image that the panel would not read, or is to get another content.
bool Package::isToPrepare(const Item& item, const Entry& entry) const {
    if (item.kind->content != Content::Firmware || !isPlainName(entry.file))
        return false;
    const FileType type = natureOf(root_ / entry.file).type;
    return isForeign(type) || (type == FileType::IntelHex && (entry.fill || entry.crop));
}

// Whether a text may be packed under a name: nothing else is, whether as it is, prepared, or in a directory.
bool Package::isFree(const std::string& name, const std::string& text) const {
    if (asTheyAre_.contains(name) || directories_.contains(name))
        return false;
    for (fs::path parent = fs::path(name).parent_path(); !parent.empty(); parent = parent.parent_path()) {
        if (asTheyAre_.contains(parent.string()) && fs::exists(root_ / name))
            return false;
    }
    const fs::path known = unpacked_->path() / name;
    return !fs::exists(known) || readFile(known) == text;
}

// One file may be the origin of several images: for other processors, filled or cropped.
std::string Package::nameFor(const Converted& made, const Entry& entry) const {
    std::string name = entry.file + (isForeign(natureOf(root_ / entry.file).type) ? ".hex" : "");
    for (unsigned number = 1; !isFree(name, made.text); ++number)
        name = entry.file + "." + made.processor->name + (number == 1 ? "" : "-" + std::to_string(number)) +
               ".hex";
    return name;
}

// Puts the HEX image that is made of an entry's file into a directory of its own.
void Package::prepare(const ItemKind& kind, Entry& entry, Findings& findings) {
    entry.origin = entry.file;
    try {
        const Converted made = convertImage(
            root_ / entry.file, {findProcessor(entry.processor), kind.serial, entry.fill, entry.crop});
        if (unpacked_ == nullptr)
            unpacked_ = std::make_unique<TemporaryDirectory>();
        entry.file = nameFor(made, entry);
        entry.prepared = unpacked_->path() / entry.file;
        if (entry.crop && !made.outside.empty())
            findings.add(kinds::HEX_CROPPED, {entry.origin}, "dropped " + spansText(made.outside));
        entry.processor = entry.processor.empty() ? made.processor->name : entry.processor;
        fs::create_directories(entry.prepared.parent_path());
        writeFile(entry.prepared, made.text);
    } catch (const BadFile& error) {
        findings.add(kinds::IMAGE_FORM, {entry.origin, error.line()}, error.what());
    }
}

} // namespace package
