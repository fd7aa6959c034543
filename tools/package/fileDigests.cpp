#include "fileDigests.h"

#include "files.h"
#include "findingKinds.h"
#include "json.h"
#include "packageNames.h"

namespace package {

namespace fs = std::filesystem;

void checkFileDigests(const fs::path& root, const std::string& manifest, Findings& findings) {
    JsonValue text;
    if (!parseJson(manifest, text).text.empty())
        return; // reported by who reads the items
    const JsonValue* digests = text.find(packageRules::FILE_DIGESTS);
    if (digests == nullptr)
        return;
    for (const auto& [name, digest] : digests->members) {
        std::error_code broken;
        const fs::path file = root / fs::path(name.text).relative_path();
        const bool isThere = isPlainName(name.text) && fs::is_regular_file(file, broken);
        if (isThere && sha256Of(file) != digest.text)
            findings.add(kinds::FILE_CHANGED, {MANIFEST, name.position.line, name.position.column},
                         "the SHA-256 of " + name.text + " is another one");
    }
}

} // namespace package
