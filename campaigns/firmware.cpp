#include "firmware.h"

#include <algorithm>

namespace {

const Kind KINDS[] = {
    // name          regions             page    packed whole  gaps   records
    {"pic24", {0, 0x2000}, 0x800, true, false, true, false},
    {"pic24-old", {0}, 0x600, false, false, false, false},
    {"stm32f0", {0x08000000}, 0x800, false, false, false, false},
    {"stm32f3", {0x08000000}, 0x800, false, false, false, false},
    {"stm32f4", {0x08000000}, 0x800, false, true, true, false},
    {"pic32-pages", {0x1D000000}, 0x1000, false, false, false, false},
    {"pic32-records", {0x1D00FF80}, 0x1000, false, true, false, true},
};

std::uint32_t draw(std::mt19937_64& random, std::uint32_t from, std::uint32_t to) {
    return from + static_cast<std::uint32_t>(random() % (to - from + 1));
}

/** Bytes in a used page: all, some, or a single row. */
std::uint32_t drawLength(const Kind& kind, std::mt19937_64& random, bool small) {
    const std::uint32_t grain = kind.packed ? 4 : 1;
    if (kind.byRecords) {
        return draw(random, 1, small ? 2 : 200);
    }
    switch (small ? 1 : draw(random, 0, 3)) {
    case 0:
        return kind.pageBytes;
    case 1:
        return draw(random, 1, 7 / grain) * grain;
    default:
        return draw(random, 1, 600 / grain) * grain;
    }
}

} // namespace

std::span<const Kind> kinds() {
    return KINDS;
}

const Kind& kindNamed(const std::string& name) {
    return *std::find_if(std::begin(KINDS), std::end(KINDS),
                         [&](const Kind& kind) { return kind.name == name; });
}

Memory makeImage(const Kind& kind, std::mt19937_64& random, bool smallPages) {
    Memory image;
    std::uint32_t page = kind.regions.front();
    for (std::uint32_t n = draw(random, 2, 3); n > 0; --n) {
        const std::uint32_t length = drawLength(kind, random, smallPages);
        for (std::uint32_t i = 0; i < length; ++i) {
            image[page + i] =
                kind.packed && i % 4 == 3 ? std::uint8_t{0} : static_cast<std::uint8_t>(random());
        }
        const bool leavesRegion = page < kind.regions.back();
        page = leavesRegion ? kind.regions.back() : page + kind.pageBytes;
        page += draw(random, 0, 2) * kind.pageBytes;
    }
    return image;
}

std::vector<std::uint32_t> usedPages(const Kind& kind, const Memory& image) {
    std::vector<std::uint32_t> pages;
    for (const auto& [address, byte] : image) {
        const std::uint32_t page = address - (address - kind.regions.front()) % kind.pageBytes;
        if (pages.empty() || pages.back() != page) {
            pages.push_back(page);
        }
    }
    return pages;
}

std::string hexFile(const Kind& kind, const Memory& image, std::mt19937_64& random) {
    return panel::hexFile(image, [&]() -> std::size_t {
        return kind.byRecords && random() % 8 == 0 ? draw(random, 1, 4) : 16;
    });
}

Memory flashAfter(const Kind& kind, const Memory& image, const std::set<std::uint32_t>& ignoredPages) {
    Memory flash;
    const std::uint32_t start = kind.regions.front();
    const auto pages = usedPages(kind, image);
    // The fourth byte of the last instruction has no place in flash: behind a full page it makes one more,
    // without data.
    const bool spills = kind.packed && (image.rbegin()->first + 1) % kind.pageBytes == 0;
    const std::uint32_t last = pages.back() + (spills ? kind.pageBytes : 0);
    for (std::uint32_t page = start; page < start + OLD_BYTES; page += kind.pageBytes) {
        const bool used = std::count(pages.begin(), pages.end(), page) > 0;
        const bool outside = kind.regions.size() > 1 && page > start && page < kind.regions.back();
        const bool isGap = !used && !outside && page <= last;
        const bool ignored = ignoredPages.count(page) > 0;
        for (std::uint32_t i = page; i < std::min(page + kind.pageBytes, start + OLD_BYTES); ++i) {
            if ((ignored && !kind.erasedWhole) || !(kind.erasedWhole || used || (isGap && kind.gapsErased))) {
                flash[i] = OLD;
            } else if (const auto byte = image.find(i); !ignored && byte != image.end()) {
                flash[i] = byte->second;
            }
        }
    }
    return flash;
}
