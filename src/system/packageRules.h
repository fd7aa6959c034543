#pragma once

#include <cstdint>
#include <string>

/**
 * What a package must be like for the panel to take it: the one place of these rules, for the panel and for
 * programs on a desk that say beforehand what it will do. Pure functions: any thread.
 */
namespace packageRules {

// The fixed names: of the archive on the stick, of the manifest at its top, and what the name of either has
// behind it for the file with its digest or its signature.
inline const std::string ARCHIVE = "keldra_update.tgz";
inline const std::string MANIFEST = "update.manifest";
inline const std::string DIGEST = ".sha";
inline const std::string SIGNATURE = ".minisig";

// The manifest's member with the SHA-256 of files by their names; panels that do not know it pass over it.
inline const std::string FILE_DIGESTS = "sha256";

// Where the panel has them.
inline const std::string FETCHED = "/keldra/tmp/" + ARCHIVE;
inline const std::string UNPACKED = "/keldra/tmp/keldra_update/";
inline const std::string UNPACKED_MANIFEST = UNPACKED + MANIFEST;
/**
 * Stands while the package is being unpacked. When the panel loses power meanwhile, the manifest may be there
 * already and the rest not: such a tree is never resumed. The name is among those that the next load removes.
 */
inline const std::string UNPACKING = "/keldra/tmp/keldra_update.unpacking";

/** What the panel's own items take no file for: a name of at most 2 characters. They count as done. */
bool standsForNoFile(const std::string& name);

/**
 * True when a component of the name leads out of the directory it is used in: the panel refuses it, whichever
 * item it is for. An absolute name does not; it is taken as relative. So is one with a NUL refused, which
 * ends a name for the file system.
 */
bool leadsOutside(const std::string& name);

/** Letters, digits and ._+-/ only, which no shell takes for more than a name: what a kernel's must be. */
bool isHarmless(const std::string& name);

/**
 * The digest that the text of a .sha file names, in lower case: what stands before the first blank, without
 * white space around it. Not looked at more closely; empty when there is none.
 */
std::string digestIn(const std::string& text);

/** A name or version of more than 4096 bytes, which is a path's length: the panel refuses the manifest. */
bool isTooLong(const std::string& text);

/** Bytes of the largest file that is read: digest, manifest, firmware image. */
constexpr std::uint64_t LONGEST_DIGEST = 4096;
constexpr std::uint64_t LONGEST_MANIFEST = 16'000'000;
constexpr std::uint64_t LONGEST_IMAGE = 32'000'000;

/** A manifest of at most 9 characters, counted with the line end that it may lack, holds nothing. */
bool isBlank(const std::string& manifest);

} // namespace packageRules
