#include "files.h"

#include "lib/format.h"

#include <cerrno>
#include <cryptopp/gzip.h>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <unistd.h>
#include <vector>

namespace package {

namespace fs = std::filesystem;

namespace {

volatile std::sig_atomic_t interrupted = 0;

[[noreturn]] void fail(const fs::path& path) {
    throw Failure(path.string() + ": " + std::strerror(errno));
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

std::string readFile(const fs::path& path) {
    if (fs::is_directory(path))
        throw Failure(path.string() + ": is a directory");
    std::ifstream in(path, std::ios::binary);
    if (!in)
        fail(path);
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

void checkGzip(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::vector<char> block(0x10000);
    try {
        do {
            GzipStream stream;
            while (!stream.hasEnded() && in) {
                checkInterrupted();
                in.read(block.data(), static_cast<std::streamsize>(block.size()));
                stream.Put(reinterpret_cast<CryptoPP::byte*>(block.data()),
                           static_cast<std::size_t>(in.gcount()));
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
