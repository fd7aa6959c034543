#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

/** What must outlast a loss of power. Stateless; false for what the file system refuses. */
namespace durable {

/** Forces what was written to `path`, a file or a directory, onto the card. */
bool flush(const std::string& path);
/**
 * True when the card, not the memory that caches it, holds what `original` has: a file exactly that, a block
 * device at its start. Forces it onto the card before. `goOn` is asked in between; false when it ends it.
 */
bool holds(const std::string& written, const std::string& original,
           const std::function<bool()>& goOn = nullptr);
/** What a file system, which `path` lies on, has room for; nothing when it does not tell. */
std::optional<std::uint64_t> freeBytes(const std::string& path);
/** Forces onto the card all that was written to the file system which `path` lies on. */
bool flushAll(const std::string& path);
/** Replaces a file whole. A loss of power leaves the old content or the new one; a full card, the old one. */
bool replaceFile(const std::string& path, const std::string& text);

} // namespace durable
