#include "stepDurations.h"

#include "../lib/plainFile.h"
#include "actions/busCost.h"

#include <cstdlib>
#include <dirent.h>
#include <memory>
#include <sstream>
#include <sys/stat.h>

namespace {

constexpr double BYTES_PER_SECOND = 5e6; // onto a card; what is measured soon counts more
constexpr std::size_t PAGE_BYTES = 2048;
constexpr double PIC24_SHARE =
    0.875; // of the bytes in a file: all with the old bootloader, three of four with the new
constexpr unsigned FIRST_OF_STM32 = 0x0800; // the upper half of addresses; those of a PIC24 are lower

/** Data bytes of a HEX file that go to the module. */
double dataBytesOf(const std::string& path) {
    std::istringstream text(
        plainFile::contents(path, packageRules::UNPACKED, packageRules::LONGEST_IMAGE).value_or(""));
    double bytes = 0;
    bool isPic24 = true;
    for (std::string line; std::getline(text, line);) {
        if (line.size() < 13 || line[0] != ':') {
            continue;
        }
        const std::string type = line.substr(7, 2);
        if (type == "00") {
            bytes += static_cast<double>(std::strtoul(line.substr(1, 2).c_str(), nullptr, 16));
        } else if (type == "04") {
            isPic24 = isPic24 && std::strtoul(line.substr(9, 4).c_str(), nullptr, 16) < FIRST_OF_STM32;
        }
    }
    return isPic24 ? bytes * PIC24_SHARE : bytes;
}

double secondsOfImage(const std::string& path, unsigned baud) {
    hexpage::MEMORY_PAGE page;
    page.data.resize(PAGE_BYTES);
    busCost cost;
    cost.program(page, true);
    return dataBytesOf(path) / PAGE_BYTES * cost.seconds(baud);
}

} // namespace

std::uint64_t stepDurations::bytesOf(const std::string& path) {
    struct stat info {};
    if (stat(path.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) {
        return static_cast<std::uint64_t>(info.st_size);
    }
    std::uint64_t bytes = 0;
    if (!plainFile::isWithin(path, packageRules::UNPACKED)) {
        return bytes; // as far as a walk of all the panel would be
    }
    const std::unique_ptr<DIR, int (*)(DIR*)> dir(opendir(path.c_str()), closedir);
    while (const dirent* entry = dir ? readdir(dir.get()) : nullptr) {
        if (entry->d_name[0] != '.' && entry->d_type != DT_LNK) { // a link may lead back
            bytes += bytesOf(path + "/" + entry->d_name);
        }
    }
    return bytes;
}

double stepDurations::secondsOfBytes(std::uint64_t bytes) {
    return static_cast<double>(bytes) / BYTES_PER_SECOND;
}

double stepDurations::ofHostItem(const coreState::BASE_ITEM& item, bool force) {
    const std::uint8_t revision = item.hwRev;
    const auto& items = item.update.items;
    if (revision >= items.size() || (!force && items[revision].version == item.swVersion.get())) {
        return 0;
    }
    return secondsOfBytes(bytesOf(packageFile::ofItem(item, revision)));
}

double stepDurations::ofModule(const coreState::BASE_ITEM& item, bool isOneOfSeveral, bool force,
                               unsigned baud) {
    const auto& items = item.update.items;
    const std::uint8_t revision = item.isAccurate ? item.hwRev : 0;
    if (revision >= items.size() || baud == 0) {
        return 0;
    }
    const bool isCurrent = item.isAccurate && items[revision].version == item.swVersion.get();
    if (isCurrent && !force && !item.unfinished) {
        return 0;
    }
    if (item.isAccurate || !isOneOfSeveral) {
        return secondsOfImage(packageFile::ofItem(item, revision), baud);
    }
    double seconds = 0;
    for (std::size_t each = 0; each < items.size(); ++each) {
        seconds += secondsOfImage(packageFile::ofItem(item, static_cast<std::uint8_t>(each)), baud);
    }
    return seconds / static_cast<double>(items.size());
}
