// The checks of what a package brings: names, versions, files.
#include "package.h"

#include "commandLine/suggest.h"
#include "contents.h"
#include "fileType.h"
#include "findingKinds.h"
#include "hexCheck.h"
#include "inventory.h"
#include "lib/format.h"
#include "system/busProtocol.h"
#include "systemFiles.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <set>

namespace package {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t REVISIONS = busProtocol::LAST_HW_REV + 1;

// As the panel writes what a module tells: "1.3.0".
bool isModuleVersion(const std::string& version) {
    unsigned numbers[3] = {};
    return std::sscanf(version.c_str(), "%3u.%3u.%3u", &numbers[0], &numbers[1], &numbers[2]) == 3 &&
           std::all_of(std::begin(numbers), std::end(numbers), [](unsigned each) { return each <= 255; }) &&
           version == format("%u.%u.%u", numbers[0], numbers[1], numbers[2]);
}

bool hasControls(const std::string& text) {
    return std::any_of(text.begin(), text.end(),
                       [](unsigned char each) { return each < ' ' || each == 0x7F; });
}

// What tools leave in directories, for themselves.
bool isForTools(const std::string& name) {
    return name == ".gitkeep" || name == ".keep" || name == ".gitignore" || name == ".gitattributes" ||
           name == ".DS_Store" || name == ".directory";
}

class ContentCheck {
public:
    ContentCheck(const Package& package, const Rules& rules, Findings& findings)
        : package_(package), rules_(rules), findings_(findings) {}

    void checkItem(const Item& item);
    void unnamed();
    void size();

private:
    bool checkName(const Item& item, const Entry& entry);
    bool isThere(const Item& item, const Entry& entry);
    bool checkWay(const Entry& entry);
    void checkVersion(const Item& item, const Entry& entry);
    void checkUpdater(const Entry& entry);
    void checkFile(const Item& item, const Entry& entry, std::size_t revision);
    void checkFirmware(const Item& item, const Entry& entry, std::size_t revision);
    void checkTree(const fs::path& directory);
    bool checkLink(const fs::path& link);
    void checkProgram(const fs::path& file);
    bool leavesPackage(const fs::path& link) const;
    std::string nameOf(const fs::path& path) const {
        return path.lexically_relative(package_.root()).string();
    }

    const Package& package_;
    const Rules& rules_;
    Findings& findings_;
    std::set<std::string> checked_; // firmware, with its processor
    std::vector<fs::path> walked_;  // the directories that the one being checked lies in, and itself
};

void ContentCheck::checkItem(const Item& item) {
    const Content content = item.kind->content;
    if (content == Content::Recorded)
        findings_.add(kinds::ITEM_UNVISITED, item.place, std::string("\"") + item.kind->name + "\"");
    if (content != Content::Firmware && item.entries.size() > 1)
        findings_.add(kinds::REVISION_UNUSED, item.entries[1].filePlace,
                      std::to_string(item.entries.size()) + " files for \"" + item.kind->name + "\"");
    if (item.entries.size() > REVISIONS)
        findings_.add(kinds::REVISION_TOO_HIGH, item.entries[REVISIONS].filePlace,
                      std::to_string(item.entries.size()) + " hardware revisions");
    for (std::size_t revision = 0; revision < item.entries.size(); ++revision) {
        const Entry& entry = item.entries[revision];
        checkVersion(item, entry);
        const bool named = checkName(item, entry);
        if (content != Content::Recorded && isThere(item, entry) && named && checkWay(entry))
            checkFile(item, entry, revision);
    }
}

bool ContentCheck::checkName(const Item& item, const Entry& entry) {
    const std::string& name = entry.file;
    const std::string quoted = "\"" + name + "\"";
    const std::size_t before = findings_.all().size();
    if (packageRules::standsForNoFile(name) && item.kind->content != Content::Firmware)
        findings_.add(kinds::NAME_SHORT, entry.filePlace, quoted);
    else if (packageRules::leadsOutside(name))
        findings_.add(kinds::NAME_OUTSIDE, entry.filePlace, quoted);
    else if (!isPlainName(name))
        findings_.add(kinds::NAME_FORM, entry.filePlace, quoted);
    else if (hasControls(name) || name.starts_with('-') ||
             (item.kind->content == Content::Image && !packageRules::isHarmless(name)))
        findings_.add(kinds::NAME_SHELL, entry.filePlace, quoted);
    const bool fine = findings_.all().size() == before;
    if (fine && !packageRules::isHarmless(name))
        findings_.add(kinds::NAME_ODD, entry.filePlace, quoted);
    return fine;
}

// Whatever is wrong with the name, too. A description names no file that it does without.
bool ContentCheck::isThere(const Item& item, const Entry& entry) {
    const bool standsForNone = !package_.isDescribed() && packageRules::standsForNoFile(entry.file) &&
                               item.kind->content != Content::Firmware;
    std::error_code broken;
    if (standsForNone || packageRules::leadsOutside(entry.file) || fs::exists(package_.pathOf(entry), broken))
        return true;
    findings_.add(kinds::FILE_MISSING, entry.filePlace, "\"" + entry.file + "\" is not in the package");
    return false;
}

// The links among the components of a name stay in the package.
bool ContentCheck::checkWay(const Entry& entry) {
    fs::path path = package_.root();
    for (const fs::path& component : fs::path(entry.file)) {
        path /= component;
        std::error_code broken;
        if (fs::is_symlink(fs::symlink_status(path, broken)) && leavesPackage(path)) {
            findings_.add(kinds::LINK_OUTSIDE, entry.filePlace,
                          nameOf(path) + " is a symbolic link to " + fs::read_symlink(path).string());
            return false;
        }
    }
    return true;
}

void ContentCheck::checkVersion(const Item& item, const Entry& entry) {
    const std::string& version = entry.version;
    const bool blank = version.find_first_not_of(" \t\r\n") == version.npos;
    if (entry.versionPlace.line == 0)
        return; // none at all was reported as not paired
    if (blank)
        findings_.add(kinds::VERSION_EMPTY, entry.versionPlace, "the version of \"" + entry.file + "\"");
    else if (hasControls(version) || (item.kind->content == Content::Firmware && !isModuleVersion(version)))
        findings_.add(kinds::VERSION_FORM, entry.versionPlace, "\"" + version + "\"");
}

// The program must land where the panel starts it.
void ContentCheck::checkUpdater(const Entry& entry) {
    const fs::path path = package_.root() / entry.file;
    const bool isTree = fs::is_directory(path);
    std::error_code broken;
    if (isTree ? !fs::is_regular_file(path / UPDATER_NAME, broken) : entry.file != UPDATER_NAME)
        findings_.add(kinds::UPDATER_NAME, entry.filePlace,
                      "\"" + entry.file + "\" " + (isTree ? "holds no " : "is not ") + UPDATER_NAME);
    const std::string program = isTree ? entry.file + "/" + UPDATER_NAME : entry.file;
    if (fs::is_regular_file(package_.root() / program, broken) &&
        platform::isReadable(package_.root() / program))
        checkUpdaterFile(package_.root() / program, program, findings_);
}

void ContentCheck::checkFile(const Item& item, const Entry& entry, std::size_t revision) {
    const fs::path path = package_.pathOf(entry);
    const bool takesTree = item.kind->content == Content::Files;
    if (!platform::isReadable(path)) {
        findings_.add(kinds::FILE_UNREADABLE, {entry.file}, "it can't be read");
    } else if (fs::is_directory(path) && takesTree) {
        if (fs::is_empty(path))
            findings_.add(kinds::FILE_EMPTY, {entry.file}, "the directory is empty");
        checkTree(path);
    } else if (!fs::is_regular_file(path)) {
        findings_.add(kinds::FILE_KIND, entry.filePlace, "\"" + entry.file + "\" is " + natureOf(path).name);
    } else if (fs::file_size(path) == 0) {
        findings_.add(kinds::FILE_EMPTY, {entry.file}, "the file is empty");
    } else if (takesTree) {
        checkProgram(path);
    } else if (item.kind->content == Content::Firmware) {
        checkFirmware(item, entry, revision);
    } else if (item.kind->content == Content::Image && !rules_.anyKernel) {
        checkKernelFile(path, entry.file, rules_.machine, findings_);
    }
    if (item.kind->name == std::string("updater") && revision == 0)
        checkUpdater(entry);
}

void ContentCheck::checkFirmware(const Item& item, const Entry& entry, std::size_t revision) {
    const Processor* processor = findProcessor(entry.processor);
    if (processor == nullptr && !entry.processor.empty())
        findings_.add(kinds::PROCESSOR_UNKNOWN, entry.filePlace,
                      "\"" + entry.processor + "\"" +
                          commandLine::suggest(entry.processor, processorNames()));
    const auto chosen = rules_.processors.find(item.kind->name);
    if (chosen != rules_.processors.end() && revision < chosen->second.size())
        processor = chosen->second[revision];
    const std::string key =
        entry.file + " " + (processor != nullptr ? processor->name : "") + " " + item.kind->name;
    if (!checked_.insert(key).second || (entry.prepared.empty() && !entry.origin.empty()))
        return; // or it could not be prepared, which was reported
    Findings found;
    checkHex(package_.pathOf(entry), entry.shown(), processor, item.kind->serial, found);
    for (const Finding& each : found.all()) // lines of what was prepared are nobody's
        findings_.add(*each.kind, {each.place.file, entry.prepared.empty() ? each.place.line : 0}, each.text);
}

void ContentCheck::checkTree(const fs::path& directory) {
    if (!platform::isReadable(directory)) {
        findings_.add(kinds::FILE_UNREADABLE, {nameOf(directory)}, "it can't be read");
        return;
    }
    std::vector<fs::path> entries(fs::directory_iterator(directory), fs::directory_iterator{});
    std::sort(entries.begin(), entries.end());
    walked_.push_back(fs::canonical(directory));
    for (const fs::path& path : entries) {
        if (hasControls(path.filename().string()))
            findings_.add(kinds::NAME_SHELL, {nameOf(path)}, "\"" + nameOf(path) + "\"");
        if (path.filename().string().front() == '.')
            findings_.add(isForTools(path.filename().string()) ? kinds::FILE_LEFT_OUT : kinds::FILE_HIDDEN,
                          {nameOf(path)}, "a hidden name");
        else if (fs::is_symlink(path) && !checkLink(path))
            continue;
        else if (fs::is_directory(path))
            checkTree(path);
        else if (!fs::is_regular_file(path))
            findings_.add(kinds::FILE_SPECIAL, {nameOf(path)}, "no regular file");
        else if (!platform::isReadable(path))
            findings_.add(kinds::FILE_UNREADABLE, {nameOf(path)}, "it can't be read");
        else
            checkProgram(path);
    }
    walked_.pop_back();
}

// A description's links are followed when the package is built; others are unpacked on the panel.
bool ContentCheck::leavesPackage(const fs::path& link) const {
    std::error_code broken;
    const fs::path target = fs::read_symlink(link);
    const fs::path there = fs::canonical(link, broken);
    const fs::path reached = nameOf(broken ? (link.parent_path() / target).lexically_normal() : there);
    return *reached.begin() == ".." || (target.is_absolute() && !package_.isDescribed());
}

// True when there is something to copy.
bool ContentCheck::checkLink(const fs::path& link) {
    std::error_code broken;
    const Kind* kind = &kinds::LINK_COPIED;
    const fs::path there = fs::canonical(link, broken);
    if (leavesPackage(link))
        kind = &kinds::LINK_OUTSIDE;
    else if (broken || std::find(walked_.begin(), walked_.end(), there) != walked_.end())
        kind = &kinds::LINK_BROKEN;
    findings_.add(*kind, {nameOf(link)}, "a symbolic link to " + fs::read_symlink(link).string());
    return kind == &kinds::LINK_COPIED;
}

// Building sets the bits for all when the owner has his.
void ContentCheck::checkProgram(const fs::path& file) {
    checkProgramFile(file, nameOf(file), rules_.machine, findings_);
    const fs::perms all = fs::perms::owner_exec | fs::perms::group_exec | fs::perms::others_exec;
    const fs::perms executable = package_.isDescribed() ? fs::perms::owner_exec : all;
    if ((fs::status(file).permissions() & executable) != executable &&
        (file.filename() == UPDATER_NAME || isProgramFile(file)))
        findings_.add(kinds::NOT_EXECUTABLE, {nameOf(file)}, "a program without its executable bits");
}

void ContentCheck::unnamed() {
    const auto isNamed = [&](const std::string& top) {
        return top == MANIFEST || top == MANIFEST + DIGEST ||
               std::any_of(package_.items().begin(), package_.items().end(), [&](const Item& item) {
                   return std::any_of(item.entries.begin(), item.entries.end(),
                                      [&](const Entry& entry) { return topOf(entry.file) == top; });
               });
    };
    std::set<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(package_.root()))
        names.insert(entry.path().filename().string());
    for (const std::string& name : names) {
        if (!isNamed(name))
            findings_.add(kinds::FILE_UNNAMED, {name}, "no item names it");
    }
}

// What is unpacked lies on the card beside the archive.
void ContentCheck::size() {
    constexpr std::uint64_t LARGE = 512'000'000;
    std::uint64_t unpacked = 0;
    for (const Item& item : package_.items()) {
        for (const Entry& entry : item.entries)
            unpacked += isPlainName(entry.file) ? sizeOf(package_.pathOf(entry)) : 0;
    }
    if (package_.archive().empty()) // one that is was unpacked
        checkBulk(package_, findings_);
    const std::uint64_t needed = unpacked + sizeOf(package_.archive());
    if (needed >= (rules_.cardSize != 0 ? rules_.cardSize : LARGE))
        findings_.add(kinds::CARD_SIZE, {},
                      shownSize(needed) + " on the card" +
                          (rules_.cardSize != 0 ? ", which holds " + shownSize(rules_.cardSize) : ""));
}

} // namespace

void checkContents(const Package& package, const Rules& rules, Findings& findings) {
    ContentCheck check(package, rules, findings);
    for (const Item& item : package.items())
        check.checkItem(item);
    check.size();
    if (!package.isDescribed() && !package.items().empty())
        check.unnamed();
}

void checkModules(const Package& package, const std::map<std::string, Module>& modules, Findings& findings) {
    for (const modules::ROW& row : modules::VISITED) {
        const auto module = modules.find(row.name);
        const Item* item = findItem(package.items(), row.item);
        if (module == modules.end() || item == nullptr)
            continue;
        const unsigned revision = pickedRevision(module->second);
        if (revision >= item->entries.size())
            findings.add(kinds::REVISION_MISSING, item->place,
                         format("%s has hardware revision %u, and \"%s\" has %zu files", row.name, revision,
                                row.item, item->entries.size()));
    }
}

} // namespace package
