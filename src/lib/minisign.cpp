#include "minisign.h"

#include "fileHash.h"
#include "format.h"

#include <algorithm>
#include <cryptopp/base64.h>
#include <cryptopp/blake2.h>
#include <cryptopp/filters.h>
#include <cryptopp/xed25519.h>
#include <string_view>
#include <vector>

namespace {

using CryptoPP::byte;

const std::string UNTRUSTED = "untrusted comment: ";
const std::string TRUSTED = "trusted comment: ";
constexpr std::string_view KEY_FORM = "Ed"; // both of a key and of the older form of a signature
constexpr std::string_view PREHASHED_FORM = "ED";
constexpr std::size_t ID_BYTES = 8;

/** The lines without their ends; empty when there is a NUL or too much text. */
std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    if (text.size() > minisign::LONGEST || text.find('\0') != std::string::npos) {
        return lines;
    }
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = std::min(text.find('\n', start), text.size());
        std::string line = text.substr(start, end - start);
        if (line.ends_with('\r')) {
            line.pop_back();
        }
        lines.push_back(line);
        start = end + 1;
    }
    return lines;
}

/** Exactly so many bytes in base64, written in the one way there is; else nothing. */
std::string decode(const std::string& text, std::size_t size) {
    std::string bytes;
    std::string again;
    CryptoPP::StringSource(text, true, new CryptoPP::Base64Decoder(new CryptoPP::StringSink(bytes)));
    CryptoPP::StringSource(bytes, true, new CryptoPP::Base64Encoder(new CryptoPP::StringSink(again), false));
    return bytes.size() == size && again == text ? bytes : std::string();
}

/** Reads the parts of a decoded line one after the other. */
class parts {
public:
    explicit parts(std::string_view bytes) : rest(bytes) {}
    std::string_view form() { return take(KEY_FORM.size()); }
    std::uint64_t id() {
        std::uint64_t value = 0;
        const std::string_view digits = take(ID_BYTES);
        for (std::size_t i = ID_BYTES; i-- > 0;) { // the lowest comes first
            value = value << 8 | static_cast<std::uint8_t>(digits[i]);
        }
        return value;
    }
    template <std::size_t N>
    void bytes(std::array<std::uint8_t, N>& target) {
        const std::string_view source = take(N);
        std::copy(source.begin(), source.end(), target.begin());
    }

private:
    std::string_view take(std::size_t count) {
        const std::string_view part = rest.substr(0, count);
        rest.remove_prefix(count);
        return part;
    }
    std::string_view rest;
};

bool verifies(const minisign::KEY& key, const std::string& message,
              const std::array<std::uint8_t, 64>& signature) {
    const CryptoPP::ed25519Verifier verifier(key.point.data());
    return verifier.VerifyMessage(reinterpret_cast<const byte*>(message.data()), message.size(),
                                  signature.data(), signature.size());
}

} // namespace

std::optional<minisign::KEY> minisign::readKey(const std::string& text) {
    KEY key;
    const std::vector<std::string> lines = linesOf(text);
    if (lines.size() != 2 || !lines[0].starts_with(UNTRUSTED)) {
        return std::nullopt;
    }
    const std::string bytes = decode(lines[1], KEY_FORM.size() + ID_BYTES + key.point.size());
    parts part(bytes);
    if (bytes.empty() || part.form() != KEY_FORM) {
        return std::nullopt;
    }
    key.id = part.id();
    part.bytes(key.point);
    return key;
}

std::optional<minisign::SIGNATURE> minisign::readSignature(const std::string& text) {
    SIGNATURE signature;
    const std::vector<std::string> lines = linesOf(text);
    if (lines.size() != 4 || !lines[0].starts_with(UNTRUSTED) || !lines[2].starts_with(TRUSTED)) {
        return std::nullopt;
    }
    const std::string bytes = decode(lines[1], KEY_FORM.size() + ID_BYTES + signature.ofFile.size());
    const std::string ofComment = decode(lines[3], signature.ofComment.size());
    if (bytes.empty() || ofComment.empty()) {
        return std::nullopt;
    }
    parts part(bytes);
    const std::string_view form = part.form();
    signature.isPrehashed = form == PREHASHED_FORM;
    if (!signature.isPrehashed && form != KEY_FORM) {
        return std::nullopt;
    }
    signature.key = part.id();
    part.bytes(signature.ofFile);
    signature.comment = lines[2].substr(TRUSTED.size());
    parts(ofComment).bytes(signature.ofComment);
    return signature;
}

bool minisign::signsFile(const KEY& key, const SIGNATURE& signature, const std::string& path) {
    if (!signature.isPrehashed || signature.key != key.id) {
        return false;
    }
    CryptoPP::BLAKE2b hash; // of 512 bits
    plainFile file(path, "/");
    const auto digest = fileHash::of(file, hash);
    return digest && verifies(key, *digest, signature.ofFile);
}

bool minisign::signsComment(const KEY& key, const SIGNATURE& signature) {
    const std::string signedText =
        std::string(signature.ofFile.begin(), signature.ofFile.end()) + signature.comment;
    return verifies(key, signedText, signature.ofComment);
}

std::string minisign::nameOf(std::uint64_t id) {
    return format("%016llX", static_cast<unsigned long long>(id));
}
