// What a package says that it brings, read from its manifest or from the description it is built from.
#pragma once

#include "fileDigests.h"
#include "finding.h"
#include "items.h"

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

// A description: for each item a list of {"file", "version", "processor"} by hardware revision.
Items readDescription(const std::string& text, const std::string& name, Findings& findings);

// The manifest of these items, in their order, and of these digests.
std::string writeManifest(const Items& items, const FileDigests& digests);

} // namespace package
