#include "signing.h"

#include "contents.h"
#include "files.h"
#include "findingKinds.h"
#include "platform.h"
#include "system/packageTrust.h"

#include <ctime>

namespace package {

namespace fs = std::filesystem;

namespace {

// A text of every updater that knows signatures.
const std::string MARK = "Package not trusted: no signature";

std::string timeNow() {
    char text[32];
    const std::time_t now = std::time(nullptr);
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", std::gmtime(&now));
    return text;
}

} // namespace

void sign(const fs::path& archive, const fs::path& key, const fs::path& signature) {
    requireFile(key);
    const std::string comment = ARCHIVE + " " + timeNow();
    const int status = platform::run({"minisign", "-S", "-q", "-s", key.string(), "-m", archive.string(),
                                      "-x", signature.string(), "-t", comment});
    if (status == platform::NOT_INSTALLED)
        throw Failure("minisign is not installed");
    if (status != 0)
        throw Failure("minisign did not sign the package");
}

bool hasVerifyingUpdater(const Package& package, Findings& findings) {
    bool verifies = true;
    for (const Member& each : membersOf(package)) {
        if (fs::path(each.name).filename() != UPDATER_NAME || !fs::is_regular_file(each.source) ||
            readFile(each.source).find(MARK) != std::string::npos)
            continue;
        findings.add(kinds::UPDATER_TRUSTING, {each.name}, "an updater that looks at no signature");
        verifies = false;
    }
    return verifies;
}

void checkSignature(const fs::path& path, const fs::path& keys, Findings& findings) {
    const fs::path archive = fs::is_directory(path) ? path / ARCHIVE : path;
    requireFile(archive);
    const packageTrust::VERDICT verdict = packageTrust::judge(archive.string(), keys.string());
    if (!verdict.whyNot.empty())
        findings.add(kinds::SIGNATURE_REFUSED, {archive.filename().string() + packageRules::SIGNATURE},
                     verdict.whyNot);
}

} // namespace package
