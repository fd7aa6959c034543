#pragma once

#include "plainFile.h"

#include <cryptopp/cryptlib.h>
#include <optional>
#include <string>

/** What digests of files share. Stateless: any thread may ask at any time. */
namespace fileHash {

/** The digest's bytes; nothing when the file can't be read to its end. */
std::optional<std::string> of(plainFile& file, CryptoPP::HashTransformation& hash);
/** The same of a text. */
std::string ofText(const std::string& text, CryptoPP::HashTransformation& hash);
/** Two lower-case digits a byte. */
std::string digitsOf(const std::string& bytes);

/** SHA-256 in digits; nothing when the file can't be read to its end. */
std::optional<std::string> sha256(plainFile& file);

} // namespace fileHash
