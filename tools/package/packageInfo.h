// What a package holds, file by file and page by page, and what is different in another one.
#pragma once

#include "flashMap.h"
#include "package.h"

#include <filesystem>
#include <string>
#include <vector>

namespace package {

struct FileInfo {
    std::string name;
    std::uint64_t size = 0;
    std::string digest; // SHA-1
};

// What an item has for one hardware revision.
struct EntryInfo {
    std::string item;
    std::size_t revision = 0;
    std::string file;
    std::string version;
    std::string nature;                   // what the file is
    std::vector<FileInfo> files;          // the file, or those of the directory
    const Processor* processor = nullptr; // of a firmware image
    bool assumed = false;                 // nobody said which
    FlashMap flash;

    std::uint64_t size() const;
};

struct PackageInfo {
    FileInfo archive; // without a name when the package is not packed
    std::vector<EntryInfo> entries;
};

PackageInfo inspect(const Package& package, const ProcessorChoice& choice);
const EntryInfo* findEntry(const PackageInfo& info, const std::string& item, std::size_t revision);

// Whether the other image, null for none, has something else in the page of that address.
bool isChanged(const FlashPage& page, const FlashMap* other);

std::string infoText(const PackageInfo& info);
std::string infoJson(const PackageInfo& info);
std::string diffText(const PackageInfo& before, const PackageInfo& after);

} // namespace package
