// A package in any of the forms that it has on its way: described, packed, unpacked.
#pragma once

#include "elfFile.h"
#include "files.h"
#include "manifest.h"
#include "packageNames.h"
#include "processors.h"

#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace package {

// Processors by item name and hardware revision.
using ProcessorChoice = std::map<std::string, std::vector<const Processor*>>;

// What a package is judged by.
struct Rules {
    ProcessorChoice processors;
    const Machine* machine = findMachine("armhf"); // null: any
    bool anyKernel = false;
    std::vector<Allowance> allowances;
    std::uint64_t cardSize = 0; // bytes that the panel's card has free; 0 when nobody said
};

struct Converted;

class Package {
public:
    // Opens an archive, a directory with one in it, an unpacked package or a directory with a description;
    // a description or manifest may also be named itself. Reports what is wrong down to the manifest; what is
    // in an archive is told as below it. Throws Failure when there is nothing of that kind.
    // A description's images that are no HEX files, or are to be filled or cropped, are prepared at once.
    Package(const std::filesystem::path& path, Findings& findings);

    const std::filesystem::path& root() const { return root_; } // the files lie here
    // As the panel puts it together: an absolute name counts as relative.
    std::filesystem::path pathOf(const Entry& entry) const {
        return entry.prepared.empty() ? std::filesystem::path(root_.string() + "/" + entry.file)
                                      : entry.prepared;
    }
    const Items& items() const { return items_; }
    const std::vector<Allowance>& allowances() const { return allowances_; } // a description's
    const std::filesystem::path& archive() const { return archive_; }        // empty when it is not packed
    bool isDescribed() const { return described_; } // the directory may hold what is not for the package

private:
    void openArchive(const std::filesystem::path& archive, Findings& findings);
    void openTree(Findings& findings);
    void openDescription(Findings& findings);
    bool isToPrepare(const Item& item, const Entry& entry) const;
    bool isFree(const std::string& name, const std::string& text) const;
    std::string nameFor(const Converted& made, const Entry& entry) const;
    void prepare(const ItemKind& kind, Entry& entry, Findings& findings);

    std::unique_ptr<TemporaryDirectory> unpacked_; // or what was prepared
    std::filesystem::path root_;
    std::filesystem::path archive_;
    Items items_;
    std::set<std::string> asTheyAre_;   // names of a description whose files are packed unchanged
    std::set<std::string> directories_; // that lead to its files
    std::vector<Allowance> allowances_;
    bool described_ = false;
};

// Checks names, versions, files and firmware of what a package brings.
void checkContents(const Package& package, const Rules& rules, Findings& findings);

// Checks that each of these modules finds an image for its hardware revision.
struct Module;
void checkModules(const Package& package, const std::map<std::string, Module>& modules, Findings& findings);

} // namespace package
