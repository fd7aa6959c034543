#include "firmwareStore.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace fs = std::filesystem;

namespace {

fs::path temporaryDirectory() {
    std::string name = (fs::temp_directory_path() / "module-images-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
        throw std::runtime_error("cannot make " + name);
    }
    return name;
}

/** Number of the byte in flash that stands at an address of a HEX file. */
std::uint32_t cellOf(const Kind& kind, std::uint32_t address) {
    return kind.packed ? address / 4 * 3 + address % 4 : address;
}

std::size_t programmed(const sim::Bytes& cells) {
    return cells.size() -
           static_cast<std::size_t>(std::count(cells.begin(), cells.end(), sim::Flash::ERASED_BYTE));
}

} // namespace

std::vector<sim::Bytes> cellsAfter(const Kind& kind, const Memory& image,
                                   const std::set<std::uint32_t>& ignoredPages) {
    const std::uint32_t first = cellOf(kind, kind.regions.front());
    sim::Bytes cells(cellOf(kind, kind.regions.front() + OLD_BYTES) - first, sim::Flash::ERASED_BYTE);
    for (const auto& [address, byte] : flashAfter(kind, image, ignoredPages)) {
        if (!kind.packed || address % 4 != 3) {
            cells[cellOf(kind, address) - first] = byte;
        }
    }
    std::vector<sim::Bytes> accepted = {cells};
    const std::uint32_t end = image.rbegin()->first + 1;
    if (kind.packed && end % kind.pageBytes == 0) {
        // The fourth byte of the last instruction has no place in flash; it may be taken for the first one of
        // a page behind the image, which is without data then.
        std::fill_n(cells.begin() + (cellOf(kind, end) - first), cellOf(kind, kind.pageBytes),
                    sim::Flash::ERASED_BYTE);
        accepted.push_back(cells);
    }
    return accepted;
}

std::optional<std::uint32_t> wrongAddress(const sim::Flash& flash, const Kind& kind,
                                          const std::vector<sim::Bytes>& accepted) {
    std::size_t total = 0;
    for (const auto& [number, block] : flash.blocks()) {
        total += programmed(block);
    }
    const sim::Bytes cells =
        flash.read(cellOf(kind, kind.regions.front()), static_cast<std::uint32_t>(accepted.front().size()));
    if (total == programmed(cells) && std::count(accepted.begin(), accepted.end(), cells) > 0) {
        return {};
    }
    const auto differing = std::mismatch(cells.begin(), cells.end(), accepted.front().begin());
    const auto cell = static_cast<std::uint32_t>(differing.first - cells.begin());
    return kind.regions.front() + (kind.packed ? cell / 3 * 4 + cell % 3 : cell);
}

FirmwareStore::FirmwareStore() : directory_(temporaryDirectory()) {}

FirmwareStore::~FirmwareStore() {
    std::error_code ignored;
    fs::remove_all(directory_, ignored);
}

const Firmware& FirmwareStore::get(const std::string& name, const Kind& kind, const Maker& make) {
    const auto [entry, isNew] = made_.try_emplace(name);
    Firmware& firmware = entry->second;
    if (isNew) {
        std::seed_seq seed(name.begin(), name.end());
        std::mt19937_64 random(seed);
        firmware.kind = &kind;
        firmware.image = make(random);
        firmware.path = directory_ / (name + ".hex");
        std::ofstream(firmware.path) << hexFile(kind, firmware.image, random);
        firmware.after = cellsAfter(kind, firmware.image);
        firmware.before.preload(cellOf(kind, kind.regions.front()),
                                sim::Bytes(firmware.after.front().size(), OLD));
    }
    return firmware;
}
