#include "fileHash.h"

#include <cryptopp/filters.h>
#include <cryptopp/hex.h>
#include <cryptopp/sha.h>

namespace {

using CryptoPP::byte;

void update(CryptoPP::HashTransformation& hash, std::string_view piece) {
    hash.Update(reinterpret_cast<const byte*>(piece.data()), piece.size());
}

std::string endOf(CryptoPP::HashTransformation& hash) {
    std::string digest(hash.DigestSize(), '\0');
    hash.Final(reinterpret_cast<byte*>(digest.data()));
    return digest;
}

} // namespace

std::optional<std::string> fileHash::of(plainFile& file, CryptoPP::HashTransformation& hash,
                                        const std::function<bool()>& goOn) {
    const auto take = [&](std::string_view piece) {
        update(hash, piece);
        return !goOn || goOn();
    };
    return file.read(take) ? std::optional(endOf(hash)) : std::nullopt;
}

std::string fileHash::ofText(const std::string& text, CryptoPP::HashTransformation& hash) {
    update(hash, text);
    return endOf(hash);
}

std::string fileHash::digitsOf(const std::string& bytes) {
    std::string digits;
    CryptoPP::StringSource(bytes, true, new CryptoPP::HexEncoder(new CryptoPP::StringSink(digits), false));
    return digits;
}

std::optional<std::string> fileHash::sha256(plainFile& file, const std::function<bool()>& goOn) {
    CryptoPP::SHA256 hash;
    const auto bytes = of(file, hash, goOn);
    return bytes ? std::optional(digitsOf(*bytes)) : std::nullopt;
}
