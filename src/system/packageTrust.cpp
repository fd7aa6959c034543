#include "packageTrust.h"

#include "../lib/minisign.h"
#include "../lib/plainFile.h"
#include "packageRules.h"

#include <algorithm>
#include <filesystem>
#include <vector>

namespace fs = std::filesystem;

namespace {

const char* const KEY_EXTENSION = ".pub";

/** The keys of a directory; what is none is passed over. */
std::vector<minisign::KEY> keysIn(const std::string& directory) {
    std::vector<minisign::KEY> keys;
    std::error_code unreadable;
    for (fs::directory_iterator entry(directory, unreadable);
         !unreadable && entry != fs::directory_iterator(); entry.increment(unreadable)) {
        if (entry->path().extension() != KEY_EXTENSION) {
            continue;
        }
        const auto text = plainFile::contents(entry->path().string(), "/", minisign::LONGEST);
        const auto key = text ? minisign::readKey(*text) : std::nullopt;
        if (key) {
            keys.push_back(*key);
        }
    }
    return unreadable ? std::vector<minisign::KEY>() : keys;
}

packageTrust::VERDICT fail(const std::string& why) {
    return {why, {}, {}};
}

/** A log's line stays one, whatever the comment holds. */
std::string printable(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7F'; },
        ' ');
    return text;
}

} // namespace

packageTrust::VERDICT packageTrust::judge(const std::string& archive, const std::string& keys,
                                          const WORKER& worker) {
    const std::vector<minisign::KEY> known = keysIn(keys);
    const fs::path file = archive + packageRules::SIGNATURE;
    std::error_code ignored;
    if (known.empty()) {
        return fail("Package not trusted: no key in " + keys);
    }
    if (!fs::exists(fs::symlink_status(file, ignored))) {
        return fail("Package not trusted: no signature");
    }
    const auto text = plainFile::contents(file.string(), file.parent_path().string(), minisign::LONGEST);
    const auto signature = text ? minisign::readSignature(*text) : std::nullopt;
    if (!signature) {
        return fail("Package not trusted: damaged signature file");
    }
    if (!signature->isPrehashed) {
        return fail("Package not trusted: signature of the older form");
    }
    const auto key = std::find_if(known.begin(), known.end(),
                                  [&](const minisign::KEY& each) { return each.id == signature->key; });
    if (key == known.end()) {
        return fail("Package not trusted: unknown key " + minisign::nameOf(signature->key));
    }
    if (!worker([&] { return minisign::signsFile(*key, *signature, archive); })) {
        return fail("Package not trusted: signature does not match");
    }
    if (!minisign::signsComment(*key, *signature)) {
        return fail("Package not trusted: comment does not match");
    }
    return {{}, minisign::nameOf(key->id), printable(signature->comment)};
}
