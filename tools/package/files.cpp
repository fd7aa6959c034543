#include "files.h"

#include "lib/fileHash.h"
#include "lib/format.h"
#include "progress.h"

#include <algorithm>
#include <cerrno>
#include <cryptopp/gzip.h>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <unistd.h>
#include <vector>

namespace package {

namespace fs = std::filesystem;

namespace {

constexpr std::streamsize PIECE = 0x10000;
constexpr std::uint64_t LARGEST_TEXT = 16'000'000;

volatile std::sig_atomic_t interrupted = 0;

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

bool isReadable(const fs::path& path) {
    return access(path.c_str(), fs::is_directory(path) ? R_OK | X_OK : R_OK) == 0;
}

void requireFile(const fs::path& path) {
    if (!fs::is_regular_file(path))
        throw Failure(path.string() + ": no regular file");
    if (!isReadable(path))
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
    if (sizeOf(path) > LARGEST_TEXT)
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

SafeFile::SafeFile(const fs::path& path)
    : path_(path), file_(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666)) {
    if (file_ < 0)
        fail(path_);
}

SafeFile::~SafeFile() {
    close(file_);
}

void SafeFile::write(const void* data, std::size_t size) {
    const auto* rest = static_cast<const CryptoPP::byte*>(data);
    hash_.Update(rest, size);
    while (size > 0) {
        const ssize_t written = ::write(file_, rest, size);
        if (written < 0 && errno != EINTR)
            fail(path_);
        rest += std::max<ssize_t>(written, 0);
        size -= static_cast<std::size_t>(std::max<ssize_t>(written, 0));
    }
}

std::string SafeFile::finish() {
    if (fsync(file_) != 0)
        fail(path_);
    posix_fadvise(file_, 0, 0, POSIX_FADV_DONTNEED); // what is read back is to come from the medium
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

void watchInterrupts() {
    struct sigaction action {};
    action.sa_handler = [](int) { interrupted = 1; };
    action.sa_flags = SA_RESETHAND; // a second one ends the program at once
    for (const int each : {SIGINT, SIGTERM, SIGHUP})
        sigaction(each, &action, nullptr);
}

void checkInterrupted() {
    if (interrupted != 0)
        throw Failure("interrupted");
}

TemporaryDirectory::TemporaryDirectory() {
    std::string pattern = (fs::temp_directory_path() / "keldra-package.XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr)
        fail(pattern);
    path_ = pattern;
}

TemporaryDirectory::~TemporaryDirectory() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

} // namespace package
