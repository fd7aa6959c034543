#include "sha1.h"

#include <cryptopp/files.h>
#include <cryptopp/filters.h>
#include <cryptopp/hex.h>
#include <cryptopp/sha.h>
#include <stdexcept>
#include <vector>

namespace {

using CryptoPP::byte;

/** Hands a file on in large pieces; a digest alone would have its source read one block at a time. */
class largePieces : public CryptoPP::Bufferless<CryptoPP::Filter> {
public:
    explicit largePieces(CryptoPP::BufferedTransformation* next) : piece(0x10000) { Detach(next); }
    byte* CreatePutSpace(std::size_t& size) override {
        size = piece.size();
        return piece.data();
    }
    std::size_t Put2(const byte* data, std::size_t length, int messageEnd, bool blocking) override {
        return AttachedTransformation()->Put2(data, length, messageEnd, blocking);
    }

private:
    std::vector<byte> piece;
};

/** As the library wants it: each part belongs to the one that it is given to. */
CryptoPP::HashFilter* digestInto(std::string& digest, CryptoPP::SHA1& hash) {
    return new CryptoPP::HashFilter(hash, new CryptoPP::HexEncoder(new CryptoPP::StringSink(digest), false));
}

} // namespace

std::string sha1::ofFile(const std::string& path) {
    std::string digest;
    CryptoPP::SHA1 hash;
    try {
        const CryptoPP::FileSource source(path.c_str(), true, new largePieces(digestInto(digest, hash)));
    } catch (const CryptoPP::Exception& error) {
        throw std::runtime_error(path + ": " + error.what());
    }
    return digest;
}

std::string sha1::ofText(const std::string& text) {
    std::string digest;
    CryptoPP::SHA1 hash;
    const CryptoPP::StringSource source(text, true, digestInto(digest, hash));
    return digest;
}
