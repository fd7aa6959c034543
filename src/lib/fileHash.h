#pragma once

#include "plainFile.h"

#include <cryptopp/cryptlib.h>
#include <functional>
#include <optional>
#include <string>

/** What digests of files share. Stateless: any thread may ask at any time. */
namespace fileHash {

/** The digest's bytes; nothing when the file can't be read to its end, or `goOn`, asked now and then, says
 * no. */
std::optional<std::string> of(plainFile& file, CryptoPP::HashTransformation& hash,
                              const std::function<bool()>& goOn = nullptr);
/** The same of a text. */
std::string ofText(const std::string& text, CryptoPP::HashTransformation& hash);
/** Two lower-case digits a byte. */
std::string digitsOf(const std::string& bytes);

/** SHA-256 in digits; nothing as above. */
std::optional<std::string> sha256(plainFile& file, const std::function<bool()>& goOn = nullptr);

} // namespace fileHash
