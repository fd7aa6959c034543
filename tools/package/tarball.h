// Package archives: tar compressed by gzip.
#pragma once

#include "files.h"
#include "finding.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace package {

// What an archive has and what comes out of it: of zeros, a thousand times as much.
struct Bulk {
    std::uint64_t packed = 0;
    std::uint64_t unpacked = 0;
    bool isBomb() const;
    std::string text() const;
};

// Whether there is anything of a tar archive compressed by gzip, damaged or not.
bool isArchive(const std::filesystem::path& path);

// Unpacks into a directory, permissions included. What the panel would not take is reported and left out.
// A file that holds next to nothing, and far more of it than an archive should, ends it, too.
// Returns the names in their order. Throws Failure when the archive or the directory can't be accessed.
std::vector<std::string> unpack(const std::filesystem::path& archive, const std::filesystem::path& directory,
                                Findings& findings);

// Something to be packed: a file or directory of the disk, or what a link leads to, or a text.
struct Member {
    std::string name;             // in the archive
    std::filesystem::path source; // empty: `text` is the content
    std::string text;
};

// Takes the archive, piece by piece; may throw Failure.
using Sink = std::function<void(const void* data, std::size_t size)>;
// Called with the number of bytes packed so far.
using Progress = std::function<void(std::uint64_t)>;

// The same members give the same bytes: owner, times and permissions (but for the executable bits) are fixed.
// Throws Failure.
void pack(const std::vector<Member>& members, const Sink& sink, const Progress& progress);

} // namespace package
