// SHA-256 digests of a package's files, which its manifest may hold: panels look at them right before use.
#pragma once

#include "finding.h"

#include <filesystem>
#include <map>
#include <string>

namespace package {

using FileDigests = std::map<std::string, std::string>; // name in the package, 64 digits

// Compares what a manifest says with the files below a directory.
void checkFileDigests(const std::filesystem::path& root, const std::string& manifest, Findings& findings);

} // namespace package
