// What a package's archive holds, or will hold.
#pragma once

#include "package.h"
#include "tarball.h"

#include <cstdint>
#include <vector>

namespace package {

// The files that the items name, with the directories that lead to them; without the manifest.
std::vector<Member> membersOf(const Package& package);
std::uint64_t sizeOf(const std::vector<Member>& members);

// Finds what is not packed yet and would unpack to far more than its archive.
void checkBulk(const Package& package, Findings& findings);

} // namespace package
