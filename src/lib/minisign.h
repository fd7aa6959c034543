#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>

/**
 * Public keys and signatures in the form of the program minisign: Ed25519, over the BLAKE2b-512 of a file. A
 * reader takes nothing but that form to the letter; lines may end with a carriage return. Any thread.
 */
namespace minisign {

constexpr std::uint64_t LONGEST = 4096; ///< bytes of a file with a key or a signature

struct KEY {
    std::uint64_t id = 0; ///< chosen at random: a name, no proof
    std::array<std::uint8_t, 32> point{};
};

struct SIGNATURE {
    bool isPrehashed = false; ///< else the older form, over the whole file in memory
    std::uint64_t key = 0;
    std::array<std::uint8_t, 64> ofFile{};
    std::string comment;                      ///< the trusted one
    std::array<std::uint8_t, 64> ofComment{}; ///< of `ofFile` with the comment behind it
};

std::optional<KEY> readKey(const std::string& text);
std::optional<SIGNATURE> readSignature(const std::string& text);

/** True when `signature` is this key's and prehashed, and the file can be read and is the signed one. */
bool signsFile(const KEY& key, const SIGNATURE& signature, const std::string& path);
bool signsComment(const KEY& key, const SIGNATURE& signature);

/** 16 upper-case digits, as minisign prints it. */
std::string nameOf(std::uint64_t id);

} // namespace minisign
