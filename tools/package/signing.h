// Signatures in minisign's form. The secret key is minisign's own business: it is started, and asks for the
// password itself.
#pragma once

#include "package.h"

#include <filesystem>
#include <string>

namespace package {

// Signs the archive, under the name that it will have on the stick, into a file. Throws Failure.
void sign(const std::filesystem::path& archive, const std::filesystem::path& key,
          const std::filesystem::path& signature);

// False when the package brings an updater that would not look at signatures, whichever item has it; that is
// a finding.
bool hasVerifyingUpdater(const Package& package, Findings& findings);

// Judges the signature beside an archive, or beside the one in a directory, as a panel with these keys does.
void checkSignature(const std::filesystem::path& path, const std::filesystem::path& keys, Findings& findings);

} // namespace package
