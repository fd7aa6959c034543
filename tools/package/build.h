// Makes the package that a description asks for.
#pragma once

#include "finding.h"
#include "package.h"

#include <filesystem>

namespace package {

struct BuildOptions {
    std::filesystem::path source; // directory with package.json, or that file
    std::filesystem::path target; // directory, made when missing
    bool force = false;           // build what the checks refuse
    Rules rules = {};
    bool strict = false;            // warnings forbid it, too
    std::filesystem::path key = {}; // secret, to sign with; empty: none
};

// Writes update.manifest, keldra_update.tgz, the digests of both, and the signature. False when the findings
// forbid it. Throws Failure, and leaves an earlier package in the target as it was then.
bool buildPackage(const BuildOptions& options, Findings& findings);

} // namespace package
