#include "files.h"

#include "lib/fileHash.h"
#include "lib/format.h"
#include "progress.h"
#include "system/packageRules.h"

#include <cerrno>
#include <cryptopp/gzip.h>
#include <cstring>
#include <fstream>
#include <iterator>
#include <vector>

namespace package {

namespace fs = std::filesystem;

namespace {

constexpr std::streamsize PIECE = 0x10000;

[[noreturn]] void fail(const fs::path& path) {
    throw Failure(path.string() + ": " + std::strerror(errno));
}

// Of what it was fed with.
std::string digitsOf(CryptoPP::HashTransformation& hash) {
    std::string bytes(hash.DigestSize(), '\0');
    hash.Final(reinterpret_cast<CryptoPP::byte*>(bytes.data()));
    return fileHash::digitsOf(bytes);
}

// One of the streams that a gzip file has in a row.
class GzipStream : public CryptoPP::Gunzip {
public:
    bool hasEnded() const { return ended_; }
    std::size_t behind() const { return behind_; } // bytes that were put in and lie behind the end

protected:
    void ProcessPoststreamTail() override {
        Gunzip::ProcessPoststreamTail();
        ended_ = true;
        behind_ = static_cast<std::size_t>(m_inQueue.CurrentSize());
    }

private:
    bool ended_ = false;
    std::size_t behind_ = 0;
};

std::string digestOf(const fs::path& path, CryptoPP::HashTransformation& hash) {
    ProgressBar bar("reading", sizeOf(path));
    std::uint64_t done = 0;
    readPieces(path, [&](std::string_view piece) {
        hash.Update(reinterpret_cast<const CryptoPP::byte*>(piece.data()), piece.size());
        bar.show(done += piece.size());
    });
    return digitsOf(hash);
}

} // namespace

void requireFile(const fs::path& path) {
    if (!fs::is_regular_file(path))
        throw Failure(path.string() + ": no regular file");
    if (!platform::isReadable(path))
        throw Failure(path.string() + ": can't be read");
}

std::uint64_t sizeOf(const fs::path& path) {
    std::error_code broken; // a link, say
    if (!fs::is_directory(path, broken)) {
        const std::uint64_t size = fs::is_regular_file(path, broken) ? fs::file_size(path, broken) : 0;
        return broken ? 0 : size;
    }
    std::uint64_t size = 0;
    const auto skipping = fs::directory_options::skip_permission_denied;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(path, skipping, broken))
        size += entry.is_regular_file(broken) ? entry.file_size(broken) : 0;
    return size;
}

std::string shownSize(std::uint64_t bytes) {
    constexpr const char* UNITS[] = {"bytes", "kB", "MB", "GB"};
    double size = static_cast<double>(bytes);
    std::size_t unit = 0;
    for (; size >= 1000 && unit + 1 < std::size(UNITS); ++unit)
        size /= 1000;
    return unit == 0 ? format("%llu bytes", static_cast<unsigned long long>(bytes))
                     : format("%.1f %s", size, UNITS[unit]);
}

void readPieces(const fs::path& path, const std::function<void(std::string_view)>& take) {
    std::ifstream in(path, std::ios::binary);
    std::vector<char> piece(PIECE);
    while (in) {
        checkInterrupted();
        in.read(piece.data(), PIECE);
        take({piece.data(), static_cast<std::size_t>(in.gcount())});
    }
    if (!in.eof())
        fail(path);
}

std::string sha1Of(const fs::path& path) {
    CryptoPP::SHA1 hash;
    return digestOf(path, hash);
}

std::string sha256Of(const fs::path& path) {
    CryptoPP::SHA256 hash;
    return digestOf(path, hash);
}

std::string readFile(const fs::path& path) {
    if (fs::is_directory(path))
        throw Failure(path.string() + ": is a directory");
    std::ifstream in(path, std::ios::binary);
    if (!in)
        fail(path);
    if (sizeOf(path) > packageRules::LONGEST_MANIFEST)
        throw Failure(path.string() + ": " + shownSize(sizeOf(path)) + ", too large for a text");
    std::string text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    if (in.bad())
        fail(path);
    return text;
}

void writeFile(const fs::path& path, const std::string& content) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
    if (!out.flush())
        fail(path);
}

void SafeFile::write(const void* data, std::size_t size) {
    hash_.Update(static_cast<const CryptoPP::byte*>(data), size);
    file_.write(data, size);
}

std::string SafeFile::finish() {
    file_.force();
    const std::string digest = digitsOf(hash_);
    if (sha1Of(path_) != digest)
        throw Failure(path_.string() + ": reads back differently; the medium is damaged");
    return digest;
}

void checkGzip(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::vector<char> block(PIECE);
    ProgressBar bar("testing", sizeOf(path));
    std::uint64_t done = 0;
    try {
        do {
            GzipStream stream;
            stream.Attach(new CryptoPP::Redirector(CryptoPP::TheBitBucket())); // else it keeps everything
            while (!stream.hasEnded() && in) {
                checkInterrupted();
                in.read(block.data(), static_cast<std::streamsize>(block.size()));
                stream.Put(reinterpret_cast<CryptoPP::byte*>(block.data()),
                           static_cast<std::size_t>(in.gcount()));
                bar.show(done += static_cast<std::uint64_t>(in.gcount()));
            }
            stream.MessageEnd();
            in.clear();
            in.seekg(-static_cast<std::streamoff>(stream.behind()), std::ios::cur);
            while (in.peek() == 0) // gzip passes over padding
                in.get();
        } while (in.peek() != std::ifstream::traits_type::eof());
    } catch (const CryptoPP::Exception& error) {
        throw Failure(error.what());
    }
}

void checkInterrupted() {
    if (platform::isInterrupted())
        throw Failure("interrupted");
}

TemporaryDirectory::~TemporaryDirectory() {
    const platform::Uninterrupted whole;
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

} // namespace package
