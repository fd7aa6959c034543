#include "files.h"

#include <cerrno>
#include <cryptopp/files.h>
#include <cryptopp/filters.h>
#include <cryptopp/hex.h>
#include <cryptopp/sha.h>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>

namespace package {

namespace fs = std::filesystem;

namespace {

[[noreturn]] void fail(const fs::path& path) {
    throw Failure(path.string() + ": " + std::strerror(errno));
}

// As Crypto++ wants it: the encoder belongs to the filter that it is given to.
CryptoPP::HashFilter* hexDigest(CryptoPP::SHA1& sha1, std::string& digest) {
    return new CryptoPP::HashFilter(sha1, new CryptoPP::HexEncoder(new CryptoPP::StringSink(digest), false));
}

} // namespace

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

std::string sha1OfFile(const fs::path& path) {
    std::string digest;
    CryptoPP::SHA1 sha1;
    try {
        const CryptoPP::FileSource source(path.c_str(), true, hexDigest(sha1, digest));
    } catch (const CryptoPP::Exception& error) {
        throw Failure(path.string() + ": " + error.what());
    }
    return digest;
}

std::string sha1OfText(const std::string& text) {
    std::string digest;
    CryptoPP::SHA1 sha1;
    const CryptoPP::StringSource source(text, true, hexDigest(sha1, digest));
    return digest;
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
