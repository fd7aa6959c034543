#pragma once

#include <string>

/** SHA-1 digests, as 40 lower-case digits. Stateless: any thread may ask at any time. */
namespace sha1 {

/** Throws std::runtime_error, whose text names the file, when it can't be read to its end. */
std::string ofFile(const std::string& path);
std::string ofText(const std::string& text);

} // namespace sha1
