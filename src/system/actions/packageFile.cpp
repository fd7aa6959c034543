#include "packageFile.h"

#include "../../lib/fileHash.h"

std::string packageFile::ofItem(const coreState::BASE_ITEM& item, std::uint8_t revision) {
    const auto& items = item.update.items;
    const bool isTaken = revision < items.size() && !packageRules::leadsOutside(items[revision].item);
    return packageRules::UNPACKED + (isTaken ? items[revision].item : std::string());
}

bool packageFile::isSound(coreState& core, const std::string& path, std::uint64_t most) {
    plainFile file(path, packageRules::UNPACKED, most);
    if (!file.isOpen()) {
        core.log->log_item("Not a plain file of the package, or too large: " + path, logger::LOG_WARNING);
        return false;
    }
    const auto digest = core.fileDigests.find(path.substr(packageRules::UNPACKED.size()));
    const auto goOn = [&core, most] { return most != plainFile::ANY_SIZE || !core.cancel; };
    if (digest == core.fileDigests.end() || fileHash::sha256(file, goOn) == digest->second) {
        return true;
    }
    if (!goOn()) {
        return false;
    }
    core.log->log_item("Not as it was packed: " + path, logger::LOG_WARNING);
    return false;
}
