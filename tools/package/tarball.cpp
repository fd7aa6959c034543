#include "tarball.h"

#include "fileType.h"
#include "files.h"
#include "findingKinds.h"
#include "progress.h"
#include "system/packageRules.h"

#include <archive.h>
#include <archive_entry.h>
#include <cerrno>
#include <cstring>
#include <memory>

namespace package {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t BLOCK = 0x10000;
constexpr int NO_FORMAT = EILSEQ;       // the library's word for content that it does not know
constexpr time_t PACKED_AT = 946684800; // 2000-01-01: tar finds the epoch itself implausible

struct Free {
    void operator()(archive* each) const { archive_free(each); }
    void operator()(archive_entry* each) const { archive_entry_free(each); }
};
using Reader = std::unique_ptr<archive, Free>;
using EntryPointer = std::unique_ptr<archive_entry, Free>;

Reader archiveReader() {
    Reader in(archive_read_new());
    archive_read_support_filter_gzip(in.get());
    archive_read_support_format_tar(in.get());
    return in;
}

// With what the system says of it, which the library leaves out.
std::string errorOf(archive* archive) {
    const char* text = archive_error_string(archive);
    const int number = archive_errno(archive);
    const std::string reason = number > 0 ? std::strerror(number) : "";
    if (text == nullptr)
        return "it ends too early";
    return std::string(text) + (reason.empty() || std::string(text).find(reason) != std::string::npos ||
                                        reason.starts_with("Unknown")
                                    ? ""
                                    : ": " + reason);
}

// Names that are not in the locale's encoding have none.
std::string nameOf(archive_entry* entry) {
    const char* name = archive_entry_pathname(entry);
    return name != nullptr ? name : "";
}

bool leavesPackage(const std::string& name) {
    return name.starts_with('/') || packageRules::leadsOutside(name);
}

// What is wrong with an entry; empty when nothing is.
std::string objection(archive_entry* entry) {
    const char* link = archive_entry_symlink(entry);
    const char* hardLink = archive_entry_hardlink(entry);
    const mode_t type = archive_entry_filetype(entry);
    const std::string name = nameOf(entry);
    if (name.empty())
        return "the name can't be read";
    if (leavesPackage(name))
        return "the name leads out of the package";
    if (hardLink != nullptr)
        return leavesPackage(hardLink) ? "the link leads out of the package" : "";
    if (type == AE_IFLNK && link != nullptr &&
        leavesPackage((fs::path(name).parent_path() / link).lexically_normal().string()))
        return "the link leads out of the package";
    return type == AE_IFREG || type == AE_IFDIR || type == AE_IFLNK ? "" : "no file, directory or link";
}

void copyData(archive* from, archive* to, Bulk& bulk, ProgressBar& bar) {
    const void* block = nullptr;
    std::size_t size = 0;
    la_int64_t offset = 0;
    int status = ARCHIVE_OK;
    while ((status = archive_read_data_block(from, &block, &size, &offset)) == ARCHIVE_OK) {
        checkInterrupted();
        bulk.unpacked += size;
        if (bulk.isBomb())
            throw Failure(bulk.text());
        if (archive_write_data_block(to, block, size, offset) < ARCHIVE_WARN)
            throw Failure("unpacking: " + errorOf(to));
        bar.show(static_cast<std::uint64_t>(archive_filter_bytes(from, -1)));
    }
    if (status != ARCHIVE_EOF)
        throw Failure(""); // the caller reports what the archive says
}

void unpackEntry(archive* in, archive_entry* entry, archive* disk, const fs::path& directory, Bulk& bulk,
                 ProgressBar& bar) {
    const bool isDirectory = archive_entry_filetype(entry) == AE_IFDIR;
    archive_entry_set_perm(entry, (archive_entry_perm(entry) & 0777) | (isDirectory ? 0700 : 0600));
    const std::string target = (directory / nameOf(entry)).string();
    if (const char* hardLink = archive_entry_hardlink(entry))
        archive_entry_set_hardlink(entry, (directory / hardLink).c_str());
    archive_entry_set_pathname(entry, target.c_str());
    if (archive_write_header(disk, entry) < ARCHIVE_WARN)
        throw Failure("unpacking: " + errorOf(disk));
    if (archive_entry_size(entry) > 0)
        copyData(in, disk, bulk, bar);
    if (archive_write_finish_entry(disk) < ARCHIVE_WARN)
        throw Failure("unpacking: " + errorOf(disk));
}

std::string plainName(std::string name) {
    if (name.starts_with("./"))
        name.erase(0, 2);
    return name;
}

// Fills in the entry's type, mode and size; false for what can't be packed.
bool describe(const Member& member, archive_entry* entry) {
    const bool isText = member.source.empty();
    const fs::file_status status =
        isText ? fs::file_status(fs::file_type::regular, fs::perms()) : fs::status(member.source);
    if (!fs::exists(status))
        throw Failure(member.source.string() + ": is gone");
    const bool isFile = fs::is_regular_file(status);
    const bool isDirectory = fs::is_directory(status);
    archive_entry_set_pathname(entry, member.name.c_str());
    archive_entry_set_mtime(entry, PACKED_AT, 0);
    archive_entry_set_uid(entry, 0);
    archive_entry_set_gid(entry, 0);
    const bool executable = isDirectory || (status.permissions() & fs::perms::owner_exec) != fs::perms::none;
    archive_entry_set_perm(entry, executable ? 0755 : 0644);
    archive_entry_set_filetype(entry, isDirectory ? AE_IFDIR : AE_IFREG);
    if (isFile)
        archive_entry_set_size(
            entry, static_cast<la_int64_t>(isText ? member.text.size() : fs::file_size(member.source)));
    return isFile || isDirectory;
}

class Packer {
public:
    Packer(const Sink& sink, const Progress& progress) : sink_(sink), progress_(progress) {
        archive_write_add_filter_gzip(out_.get());
        archive_write_set_format_gnutar(out_.get()); // takes names as bytes, of whatever length
        archive_write_set_options(out_.get(), "gzip:!timestamp,gzip:compression-level=9");
        archive_write_set_bytes_in_last_block(out_.get(), 1);
        check(archive_write_open2(out_.get(), this, nullptr, &Packer::store, nullptr, nullptr));
    }
    void add(const Member& member) {
        const EntryPointer entry(archive_entry_new());
        if (!describe(member, entry.get()))
            return;
        check(archive_write_header(out_.get(), entry.get()));
        if (member.source.empty())
            write(member.text.data(), member.text.size());
        else if (archive_entry_filetype(entry.get()) == AE_IFREG)
            addFile(member.source);
    }
    void close() { check(archive_write_close(out_.get())); }

private:
    static la_ssize_t store(archive*, void* self, const void* data, std::size_t size) {
        Packer& packer = *static_cast<Packer*>(self);
        try {
            packer.sink_(data, size);
            return static_cast<la_ssize_t>(size);
        } catch (const Failure& failure) { // not to pass through the library
            packer.failure_ = failure.what();
            return -1;
        }
    }
    void addFile(const fs::path& source) {
        readPieces(source, [this](std::string_view piece) { write(piece.data(), piece.size()); });
    }
    void write(const char* data, std::size_t size) {
        checkInterrupted();
        if (size > 0 && archive_write_data(out_.get(), data, size) < 0)
            check(ARCHIVE_FATAL);
        packed_ += size;
        progress_(packed_);
    }
    void check(int status) const {
        if (status < ARCHIVE_OK)
            throw Failure(failure_.empty() ? "packing: " + errorOf(out_.get()) : failure_);
    }

    const Sink& sink_;
    std::string failure_;
    Reader out_{archive_write_new()}; // ends before what it writes to
    const Progress& progress_;
    std::uint64_t packed_ = 0;
};

} // namespace

bool Bulk::isBomb() const {
    constexpr std::uint64_t LARGE = 512'000'000;
    constexpr std::uint64_t RATIO = 200;
    return unpacked > LARGE && unpacked / RATIO > packed;
}

std::string Bulk::text() const {
    return shownSize(packed) + " become more than " + shownSize(unpacked);
}

bool isArchive(const fs::path& path) {
    if (natureOf(path).type != FileType::Gzip)
        return false;
    const Reader in = archiveReader();
    archive_entry* entry = nullptr;
    return archive_read_open_filename(in.get(), path.c_str(), BLOCK) >= ARCHIVE_WARN &&
           (archive_read_next_header(in.get(), &entry) >= ARCHIVE_WARN ||
            archive_errno(in.get()) != NO_FORMAT);
}

std::vector<std::string> unpack(const fs::path& path, const fs::path& directory, Findings& findings) {
    const Reader in = archiveReader();
    const Reader disk(archive_write_disk_new());
    archive_write_disk_set_options(disk.get(), ARCHIVE_EXTRACT_PERM | ARCHIVE_EXTRACT_SECURE_NODOTDOT |
                                                   ARCHIVE_EXTRACT_SECURE_SYMLINKS);
    std::vector<std::string> names;
    Bulk bulk{fs::file_size(path), 0};
    ProgressBar bar("unpacking", fs::file_size(path));
    archive_entry* entry = nullptr;
    int status = archive_read_open_filename(in.get(), path.c_str(), BLOCK);
    while (status >= ARCHIVE_WARN && (status = archive_read_next_header(in.get(), &entry)) >= ARCHIVE_WARN &&
           status != ARCHIVE_EOF) {
        const std::string name = plainName(nameOf(entry));
        names.push_back(name);
        const std::string objected = objection(entry);
        if (!objected.empty()) {
            findings.add(kinds::ARCHIVE_ENTRY, {name}, objected);
            continue;
        }
        try {
            unpackEntry(in.get(), entry, disk.get(), directory, bulk, bar);
        } catch (const Failure&) {
            checkInterrupted();
            if (bulk.isBomb()) {
                findings.add(kinds::ARCHIVE_BOMB, {name}, bulk.text());
                return names;
            }
            if (archive_errno(in.get()) == 0)
                throw;
            status = ARCHIVE_FATAL;
        }
    }
    checkInterrupted();
    try { // the archive's reader does not look at the end of the compressed data
        if (status != ARCHIVE_EOF)
            throw Failure(errorOf(in.get()));
        checkGzip(path);
    } catch (const Failure& failure) {
        checkInterrupted();
        findings.add(kinds::ARCHIVE_BROKEN, {path.filename().string()}, failure.what());
    }
    return names;
}

void pack(const std::vector<Member>& members, const Sink& sink, const Progress& progress) {
    Packer packer(sink, progress);
    for (const Member& member : members)
        packer.add(member);
    packer.close();
}

} // namespace package
