// The .sha file beside a file, read as the panel reads it.
#pragma once

#include "finding.h"

#include <filesystem>
#include <string>

namespace package {

// Checks `file` + ".sha" against the file; `name` is what findings call the file.
void checkDigest(const std::filesystem::path& file, const std::string& name, Findings& findings);

// The text of such a file, in the form of sha1sum.
std::string digestText(const std::string& digest, const std::string& name);

} // namespace package
