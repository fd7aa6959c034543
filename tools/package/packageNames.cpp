#include "packageNames.h"

#include <filesystem>

namespace package {

std::string topOf(const std::string& name) {
    const std::filesystem::path relative = std::filesystem::path(name).relative_path();
    return relative.empty() ? "" : relative.begin()->string();
}

bool isPlainName(const std::string& name) {
    const std::string framed = "/" + name + "/";
    return !packageRules::leadsOutside(name) && framed.find("//") == framed.npos &&
           framed.find("/./") == framed.npos && topOf(name) != MANIFEST && topOf(name) != MANIFEST + DIGEST;
}

} // namespace package
