#include "sha1.h"

#include "fileHash.h"

#include <cryptopp/sha.h>
#include <stdexcept>

std::string sha1::ofFile(const std::string& path) {
    CryptoPP::SHA1 hash;
    plainFile file(path, "/");
    const auto digest = fileHash::of(file, hash);
    if (!digest) {
        throw std::runtime_error(path + ": can't be read");
    }
    return fileHash::digitsOf(*digest);
}

std::string sha1::ofText(const std::string& text) {
    CryptoPP::SHA1 hash;
    return fileHash::digitsOf(fileHash::ofText(text, hash));
}
