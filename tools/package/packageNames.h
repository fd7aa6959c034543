// What the parts of a package are called, and which names its files may have.
#pragma once

#include "system/packageRules.h"

#include <string>

namespace package {

// The fixed names of a package's parts.
using packageRules::ARCHIVE;
using packageRules::DIGEST;
using packageRules::MANIFEST;
inline const std::string DESCRIPTION = "package.json";
inline const std::string UPDATER_NAME = "K+Updater"; // the program that the panel starts

// The first component of a name below the package.
std::string topOf(const std::string& name);
// Relative, without "." and ".." and needless slashes, and none of the manifest's own names.
bool isPlainName(const std::string& name);

} // namespace package
