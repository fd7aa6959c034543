#include "digest.h"

#include "files.h"
#include "findingKinds.h"
#include "lib/functs.h"
#include "system/packageRules.h"

namespace package {

namespace fs = std::filesystem;

void checkDigest(const fs::path& file, const std::string& name, Findings& findings) {
    const fs::path path = file.string() + packageRules::DIGEST;
    const Place place{name + packageRules::DIGEST};
    if (!fs::is_regular_file(path)) {
        findings.add(kinds::DIGEST_MISSING, place, "there is no digest of " + name);
        return;
    }
    if (fs::file_size(path) > packageRules::LONGEST_DIGEST) {
        findings.add(kinds::DIGEST_FORM, place,
                     "it is longer than " + std::to_string(packageRules::LONGEST_DIGEST) + " bytes");
        return;
    }
    functs f;
    const std::string text = f.getFileContents(path.string());
    const std::string expected = packageRules::digestIn(text);
    if (expected.size() != 40 || expected.find_first_not_of("0123456789abcdef") != std::string::npos) {
        findings.add(kinds::DIGEST_FORM, place, "it does not begin with a SHA-1 of 40 digits");
        return;
    }
    const std::string digest = sha1Of(file);
    if (digest != expected)
        findings.add(kinds::DIGEST_WRONG, place, "the SHA-1 of " + name + " is " + digest);
    const std::size_t blank = text.rfind(' ');
    std::string other = blank == text.npos ? "" : text.substr(blank);
    f.trim(other);
    if (other.starts_with('*'))
        other.erase(0, 1);
    if (!other.empty() && fs::path(other).filename() != file.filename())
        findings.add(kinds::DIGEST_NAME, place, "it names " + other);
}

std::string digestText(const std::string& digest, const std::string& name) {
    return digest + "  " + name + "\n";
}

} // namespace package
