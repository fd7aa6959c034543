// The checks of what a package brings: names, versions, files.
#include "package.h"

#include "executable.h"
#include "faults.h"
#include "hexCheck.h"

#include <algorithm>
#include <set>

namespace package {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t NO_FILE_LENGTH = 2; // names this short stand for no file
constexpr std::size_t REVISIONS = 251;
constexpr const char* HARMLESS = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._+-/";

class ContentCheck {
public:
    ContentCheck(const Package& package, const ProcessorChoice& choice, Findings& findings)
        : package_(package), choice_(choice), findings_(findings) {}

    void checkItem(const Item& item);
    void unnamed();

private:
    bool checkName(const Entry& entry);
    void checkVersion(const Entry& entry);
    void checkFile(const Item& item, const Entry& entry, std::size_t revision);
    void checkFirmware(const Item& item, const Entry& entry, std::size_t revision);
    void checkTree(const fs::path& directory);
    void checkLink(const fs::path& link);
    void checkProgram(const fs::path& file, bool mustBeOne);
    std::string nameOf(const fs::path& path) const {
        return path.lexically_relative(package_.root()).string();
    }

    const Package& package_;
    const ProcessorChoice& choice_;
    Findings& findings_;
    std::set<std::string> checked_; // firmware, with its processor
};

void ContentCheck::checkItem(const Item& item) {
    const Content content = item.kind->content;
    if (content == Content::Recorded)
        findings_.add(faults::itemUnvisited, item.place, std::string("\"") + item.kind->name + "\"");
    if (content != Content::Firmware && item.entries.size() > 1)
        findings_.add(faults::revisionUnused, item.entries[1].filePlace,
                      std::to_string(item.entries.size()) + " files for \"" + item.kind->name + "\"");
    if (item.entries.size() > REVISIONS)
        findings_.add(faults::revisionTooHigh, item.entries[REVISIONS].filePlace,
                      std::to_string(item.entries.size()) + " hardware revisions");
    for (std::size_t revision = 0; revision < item.entries.size(); ++revision) {
        const Entry& entry = item.entries[revision];
        checkVersion(entry);
        if (checkName(entry) && content != Content::Recorded)
            checkFile(item, entry, revision);
    }
}

bool ContentCheck::checkName(const Entry& entry) {
    const std::string& name = entry.file;
    const std::string quoted = "\"" + name + "\"";
    const std::size_t before = findings_.all().size();
    if (name.size() <= NO_FILE_LENGTH)
        findings_.add(faults::nameShort, entry.filePlace, quoted);
    else if (name.front() == '/' || ("/" + name + "/").find("/../") != std::string::npos)
        findings_.add(faults::nameOutside, entry.filePlace, quoted);
    else if (name.find_first_not_of(HARMLESS) != std::string::npos || name.front() == '-')
        findings_.add(faults::nameShell, entry.filePlace, quoted);
    return findings_.all().size() == before;
}

void ContentCheck::checkVersion(const Entry& entry) {
    if (entry.version.empty() && entry.versionPlace.line != 0) // none at all was reported as not paired
        findings_.add(faults::versionEmpty, entry.versionPlace, "the version of \"" + entry.file + "\"");
}

void ContentCheck::checkFile(const Item& item, const Entry& entry, std::size_t revision) {
    const fs::path path = package_.root() / entry.file;
    const bool takesTree = item.kind->content == Content::Files;
    if (!fs::exists(path)) {
        findings_.add(faults::fileMissing, entry.filePlace, "\"" + entry.file + "\" is not in the package");
    } else if (fs::is_directory(path) && takesTree) {
        if (fs::is_empty(path))
            findings_.add(faults::fileEmpty, {entry.file}, "the directory is empty");
        checkTree(path);
    } else if (!fs::is_regular_file(path)) {
        findings_.add(faults::fileKind, entry.filePlace, "\"" + entry.file + "\" is no regular file");
    } else if (fs::file_size(path) == 0) {
        findings_.add(faults::fileEmpty, {entry.file}, "the file is empty");
    } else if (takesTree) {
        checkProgram(path, item.kind->name == std::string("updater"));
    } else if (item.kind->content == Content::Firmware) {
        checkFirmware(item, entry, revision);
    }
}

void ContentCheck::checkFirmware(const Item& item, const Entry& entry, std::size_t revision) {
    const Processor* processor = findProcessor(entry.processor);
    if (processor == nullptr && !entry.processor.empty())
        findings_.add(faults::processorUnknown, entry.filePlace, "\"" + entry.processor + "\"");
    const auto chosen = choice_.find(item.kind->name);
    if (chosen != choice_.end() && revision < chosen->second.size())
        processor = chosen->second[revision];
    const std::string key =
        entry.file + " " + (processor != nullptr ? processor->name : "") + " " + item.kind->name;
    if (checked_.insert(key).second)
        checkHex(package_.root() / entry.file, entry.file, processor, item.kind->serial, findings_);
}

void ContentCheck::checkTree(const fs::path& directory) {
    std::vector<fs::path> entries(fs::directory_iterator(directory), fs::directory_iterator{});
    std::sort(entries.begin(), entries.end());
    for (const fs::path& path : entries) {
        if (path.filename().string().front() == '.')
            findings_.add(faults::fileHidden, {nameOf(path)}, "a hidden name");
        else if (fs::is_symlink(path))
            checkLink(path);
        else if (fs::is_directory(path))
            checkTree(path);
        else if (!fs::is_regular_file(path))
            findings_.add(faults::fileKind, {nameOf(path)}, "no regular file");
        else
            checkProgram(path, false);
    }
}

void ContentCheck::checkLink(const fs::path& link) {
    const fs::path target = fs::read_symlink(link);
    const fs::path reached = nameOf((link.parent_path() / target).lexically_normal());
    const bool outside = target.is_absolute() || (!reached.empty() && *reached.begin() == "..");
    const bool broken = outside || !fs::exists(link);
    findings_.add(broken ? faults::linkBroken : faults::linkCopied, {nameOf(link)},
                  "a symbolic link to " + target.string() + (outside ? ", outside of the package" : ""));
}

void ContentCheck::checkProgram(const fs::path& file, bool mustBeOne) {
    const fs::perms executable = fs::perms::owner_exec | fs::perms::group_exec | fs::perms::others_exec;
    if ((fs::status(file).permissions() & executable) != executable && (mustBeOne || isProgram(file)))
        findings_.add(faults::notExecutable, {nameOf(file)}, "a program without its executable bits");
}

void ContentCheck::unnamed() {
    const auto isNamed = [&](const std::string& top) {
        return top == MANIFEST || top == MANIFEST + ".sha" ||
               std::any_of(package_.items().begin(), package_.items().end(), [&](const Item& item) {
                   return std::any_of(item.entries.begin(), item.entries.end(), [&](const Entry& entry) {
                       return *fs::path(entry.file).begin() == top;
                   });
               });
    };
    std::set<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(package_.root()))
        names.insert(entry.path().filename().string());
    for (const std::string& name : names) {
        if (!isNamed(name))
            findings_.add(faults::fileUnnamed, {name}, "no item names it");
    }
}

} // namespace

void checkContents(const Package& package, const ProcessorChoice& choice, Findings& findings) {
    ContentCheck check(package, choice, findings);
    for (const Item& item : package.items())
        check.checkItem(item);
    if (!package.isDescribed() && !package.items().empty())
        check.unnamed();
}

} // namespace package
