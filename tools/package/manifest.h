// What a package says that it brings, read from its manifest or from the description it is built from.
#pragma once

#include "fileDigests.h"
#include "finding.h"
#include "items.h"

#include <filesystem>
#include <string>
#include <vector>

namespace package {

// The file for one hardware revision.
struct Entry {
    std::string file;
    Place filePlace;
    std::string version;
    Place versionPlace;
    std::string processor; // empty when nobody said
    bool fill = false;     // an image's pages are filled up
    bool crop = false;     // what lies outside of the flash is dropped

    std::filesystem::path prepared = {}; // the file that is packed under the name, when it is made of...
    std::string origin = {};             // ...this one of the description
    const std::string& shown() const { return origin.empty() ? file : origin; }
};

struct Item {
    const ItemKind* kind = nullptr;
    Place place;
    std::vector<Entry> entries; // by hardware revision
};

// The items that the panel would know, with the files and versions that it would pair.
using Items = std::vector<Item>;

const Item* findItem(const Items& items, const std::string& name);

// An update manifest, judged by the rules of the panel's parser: files append, versions count from the first
// file. `name` is what findings call the file. Objects within items are reported, not followed.
Items readManifest(const std::string& text, const std::string& name, Findings& findings);

// A description: for each item a list of {"file", "version", "processor", ...} by hardware revision; and
// "allow", a list of findings that are meant. "$schema" and "$comment" are for people and editors.
Items readDescription(const std::string& text, const std::string& name, Findings& findings,
                      std::vector<Allowance>* allowances = nullptr);

// The manifest of these items, in their order, and of these digests.
std::string writeManifest(const Items& items, const FileDigests& digests);

} // namespace package
