#pragma once

#include <string>

/** What must outlast a loss of power. Stateless; false for what the file system refuses. */
namespace durable {

/** Forces what was written to `path`, a file or a directory, onto the card. */
bool flush(const std::string& path);
/** Forces onto the card all that was written to the file system which `path` lies on. */
bool flushAll(const std::string& path);
/** Replaces a file whole. A loss of power leaves the old content or the new one; a full card, the old one. */
bool replaceFile(const std::string& path, const std::string& text);

} // namespace durable
