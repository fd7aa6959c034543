#include "matrixRun.h"

#include "panelDialogue.h"
#include "plainDialogue.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <utility>

namespace fs = std::filesystem;

namespace {

constexpr std::chrono::seconds LAST_WORK{60}; // what a module may still be at when the dialogue has ended

/** As an inventory names it: a PIC32 sits on the serial bootloader. */
const char* moduleName(const Kind& kind) {
    return std::string(kind.name).rfind("pic32", 0) == 0 ? "ctrl" : "mf1";
}

fs::path temporaryDirectory() {
    std::string name = (fs::temp_directory_path() / "module-matrix-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
        throw std::runtime_error("cannot make " + name);
    }
    return name;
}

/** Number of the byte in flash that stands at an address of a HEX file. */
std::uint32_t cellOf(const Kind& kind, std::uint32_t address) {
    return kind.packed ? address / 4 * 3 + address % 4 : address;
}

/** What may be in flash after an update, from the first region's start on. */
std::vector<sim::Bytes> expectedCells(const Kind& kind, const Memory& image) {
    const std::uint32_t first = cellOf(kind, kind.regions.front());
    sim::Bytes cells(cellOf(kind, kind.regions.front() + OLD_BYTES) - first, sim::Flash::erasedByte);
    for (const auto& [address, byte] : flashAfter(kind, image, {})) {
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
                    sim::Flash::erasedByte);
        accepted.push_back(cells);
    }
    return accepted;
}

std::size_t programmedCells(const sim::Flash& flash) {
    std::size_t count = 0;
    for (const auto& [number, block] : flash.blocks()) {
        const auto erased = std::count(block.begin(), block.end(), sim::Flash::erasedByte);
        count += block.size() - static_cast<std::size_t>(erased);
    }
    return count;
}

/** Nothing else is programmed than what is expected. */
bool holds(const sim::Flash& flash, std::uint32_t first, const sim::Bytes& expected) {
    const auto erased = std::count(expected.begin(), expected.end(), sim::Flash::erasedByte);
    return programmedCells(flash) == expected.size() - static_cast<std::size_t>(erased) &&
           flash.read(first, static_cast<std::uint32_t>(expected.size())) == expected;
}

} // namespace

MatrixRuns::MatrixRuns(Settings requested) : settings(std::move(requested)), directory(temporaryDirectory()) {
    if (settings.lose > 0) {
        const std::string share = " share=" + std::to_string(settings.lose);
        settings.faults.push_back("lost-request" + share);
        settings.faults.push_back("lost" + share);
    }
}

MatrixRuns::~MatrixRuns() {
    std::error_code ignored;
    fs::remove_all(directory, ignored);
}

const MatrixRuns::Firmware& MatrixRuns::firmwareOf(const Kind& kind, const Shape& shape) {
    const std::string name = std::string(kind.name) + "-" + shape.name;
    const auto [entry, isNew] = firmware.try_emplace(name);
    Firmware& made = entry->second;
    if (isNew) {
        std::seed_seq seed(name.begin(), name.end());
        std::mt19937_64 random(seed);
        const Memory image = imageOf(kind, shape, random);
        made.path = directory / (name + ".hex");
        std::ofstream(made.path) << hexFile(kind, image, random);
        made.after = expectedCells(kind, image);
        made.firstCell = cellOf(kind, kind.regions.front());
        made.before.preload(made.firstCell, sim::Bytes(made.after.front().size(), OLD));
    }
    return made;
}

virtualBus::SETTINGS MatrixRuns::busFor(const Cell& cell, const Firmware& made) const {
    virtualBus::SETTINGS bus;
    bus.module =
        sim::parseModule(sim::words(std::string(moduleName(*cell.kind)) + " kind=" + cell.kind->name + " " +
                                    settings.temper + cell.temper()));
    bus.module.flash = made.before;
    bus.faults = settings.faults;
    bus.seed = cell.number + 1;
    bus.baud = settings.baud;
    bus.trace = settings.trace;
    return bus;
}

MatrixResult MatrixRuns::run(const Cell& cell, Dialogue dialogue) {
    const Firmware& made = firmwareOf(*cell.kind, *cell.shape);
    virtualBus bus(busFor(cell, made));
    virtualHost host(bus, settings.exchangeTime);
    const virtualBus::clock::time_point start = bus.now();
    const sim::ModuleConfig& module = bus.module().config();
    const DialogueTarget target{module.address, module.serialBootloader, made.path};
    MatrixResult result;
    try {
        const bool done = dialogue == Dialogue::PLAIN
                              ? plainDialogue(host, settings.countRowFailures).flash(target)
                              : flashByPanel(host, target);
        result.time = bus.now() - start;
        bus.advance(bus.now() + LAST_WORK);
        const bool equal = std::any_of(made.after.begin(), made.after.end(), [&](const sim::Bytes& after) {
            return holds(module.flash, made.firstCell, after);
        });
        result.verdict = !done ? Verdict::REFUSED : equal ? Verdict::FLASHED : Verdict::WRONG;
    } catch (const virtualBus::endless&) {
        result.verdict = Verdict::ENDLESS;
    }
    result.log = std::move(host.logged);
    result.requests = std::move(host.sent);
    return result;
}
