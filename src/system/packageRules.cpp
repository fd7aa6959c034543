#include "packageRules.h"

#include "../lib/functs.h"

namespace {

constexpr std::size_t NO_FILE_LENGTH = 2;
constexpr std::size_t LONGEST = 4096;
constexpr std::size_t BLANK_LENGTH = 9;
const char* const HARMLESS = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._+-/";

} // namespace

bool packageRules::standsForNoFile(const std::string& name) {
    return name.size() <= NO_FILE_LENGTH;
}

bool packageRules::leadsOutside(const std::string& name) {
    return name.find('\0') != std::string::npos || ("/" + name + "/").find("/../") != std::string::npos;
}

bool packageRules::isHarmless(const std::string& name) {
    return name.find_first_not_of(HARMLESS) == std::string::npos;
}

std::string packageRules::digestIn(const std::string& text) {
    functs f;
    std::string digest = text.substr(0, text.find(' '));
    f.trim(digest);
    f.strCase(digest, false);
    return digest;
}

bool packageRules::isTooLong(const std::string& text) {
    return text.size() > LONGEST;
}

bool packageRules::isBlank(const std::string& manifest) {
    const bool closed = manifest.ends_with('\n');
    return manifest.size() + (closed ? 0 : 1) <= BLANK_LENGTH;
}
