#include "hexPage.h"

#include "../crc16.h"
#include "hexText.h"

#include <algorithm>
#include <cstdio>
#include <limits>

namespace {

constexpr std::uint8_t TYPE_DATA = 0;
constexpr std::uint8_t TYPE_EXTENDED_LINEAR = 4;
constexpr std::uint8_t TYPE_START = 5;

constexpr std::uint8_t PADDING = 0xFF; // erased flash

// The word address of a PIC24 byte address. The words 0x100..0x200, both included, go 2 higher than the
// image says: intended, and in this range only.
std::uint32_t pic24Word(std::uint32_t byteAddress) {
    const std::uint32_t word = byteAddress / 2;
    return word >= 0x100 && word <= 0x200 ? word + 2 : word;
}

} // namespace

struct hexpage::DATA_RECORD {
    std::string_view line;
    std::uint32_t address; // in target units
    std::uint32_t count;   // bytes, phantom bytes included

    std::uint8_t byte(std::uint32_t index) const {
        return hexText::byteAt(line, hexText::DATA + std::size_t{2} * index);
    }
};

void hexpage::clear() {
    regions.clear();
    cur_pg = nullptr;
    cur_rg = nullptr;
    region_ptr = 0;
    mem_ptr = 0;
    cfg_pic24 = false;
}

void hexpage::addRegion(std::uint32_t startAddress, std::uint32_t endAddress, std::uint32_t blockSize) {
    if (blockSize == 0) {
        return;
    }
    cur_rg = nullptr; // the regions may move
    cur_pg = nullptr;
    regions.push_back({startAddress, endAddress, blockSize, {}});
}

bool hexpage::parse(const std::string& fileName, bool rev) {
    address_extLin = 0;
    region_ptr = 0;
    mem_ptr = 0;
    dropped = 0;
    isInit = hexText::forEachLine(fileName, [this](std::string_view line) {
        if (hexText::isRecord(line)) {
            parseLine(line);
        }
    });
    if (!isInit) {
        return false;
    }
    finishPages(rev);
    cur_rg = nullptr;
    return true;
}

void hexpage::finishPages(bool rev) {
    const crc16 checker;
    for (MEMORY_REGION& region : regions) {
        for (MEMORY_PAGE& page : region.pages) {
            if (cfg_pic24 && !page.data.empty() && page.data.size() < region.blockSize) {
                page.data.resize(region.blockSize, PADDING);
            }
            page.checksum = checker.crc16_calculate(page.data, rev);
        }
    }
}

void hexpage::parseLine(std::string_view line) {
    const std::uint32_t count = hexText::byteAt(line, hexText::COUNT);
    const std::uint32_t address = hexText::convertHex(line.substr(hexText::ADDRESS, hexText::ADDRESS_DIGITS));
    switch (hexText::byteAt(line, hexText::TYPE)) {
    case TYPE_DATA: {
        const std::uint32_t linear = address | address_extLin;
        placeRecord({line, cfg_pic24 ? pic24Word(linear) : linear, count});
        break;
    }
    case TYPE_EXTENDED_LINEAR:
        address_extLin = hexText::convertHex(line.substr(hexText::DATA, std::size_t{2} * count)) << 16;
        break;
    case TYPE_START:
        address_app = hexText::convertHex(line.substr(hexText::DATA, std::size_t{2} * count));
        break;
    default:
        break;
    }
}

void hexpage::placeRecord(const DATA_RECORD& record) {
    searchForSection(record.address);
    if (!cur_pg) {
        dropped += record.count;
        return;
    }

    const std::uint32_t pageSize = cur_rg->blockSize;
    if (cur_pg->data.size() >= pageSize) {
        placeRest(record, 0);
        return;
    }
    const std::uint32_t index = appendBytes(record, 0, pageSize);
    if (index == record.count) {
        markRecord(record, record.address);
    } else { // the rest begins on an instruction boundary
        placeRest(record, isPhantom(index) ? index + 1 : index);
    }
}

// Puts the bytes from `index` on, for which the record's own page has no room, into the page of their
// address: all of them, even if that page overflows. A record whose phantom byte alone is left over has
// no such bytes, but the page that follows is made all the same.
void hexpage::placeRest(const DATA_RECORD& record, std::uint32_t index) {
    const std::uint32_t address = record.address + (cfg_pic24 ? index - index / 2 : index);
    searchForSection(address);
    if (!cur_pg) {
        std::printf("Discarding extra data at Address %x\n", address);
        dropped += record.count - index;
        return;
    }
    if (!cur_pg->data.empty()) {
        std::printf("%x %x\n", cur_pg->startAddress, address);
        std::puts("DATA SHOULD BE 0!!!!!!  This should never happen!");
    }
    appendBytes(record, index, std::numeric_limits<std::size_t>::max());
    markRecord(record, address);
}

// Appends bytes to the current page until it holds `pageLimit` bytes or the record ends. The phantom
// bytes of PIC24 images, the fourth of every instruction, have no place in flash and are left out.
// Returns the index of the first byte not dealt with.
std::uint32_t hexpage::appendBytes(const DATA_RECORD& record, std::uint32_t index, std::size_t pageLimit) {
    std::vector<std::uint8_t>& data = cur_pg->data;
    for (; index < record.count && data.size() < pageLimit; ++index) {
        const std::uint8_t byte = record.byte(index);
        if (!isPhantom(index)) {
            data.push_back(byte);
        }
    }
    return index;
}

void hexpage::markRecord(const DATA_RECORD& record, std::uint32_t address) {
    cur_pg->lastAddress = address;
    cur_pg->lastLength = cfg_pic24 ? record.count / 2 : record.count;
}

// Makes the last region around the address, and its page of that address, the current ones; both null if
// there is none. Every region around the address gets the pages up to it, not only the one chosen.
void hexpage::searchForSection(std::uint32_t address) {
    cur_rg = nullptr;
    cur_pg = nullptr;
    for (MEMORY_REGION& region : regions) {
        if (address < region.startAddress || address >= region.endAddress) {
            continue;
        }
        cur_rg = &region;
        // Pages have no gaps: the first that does not end below the address contains it.
        const auto page =
            std::partition_point(region.pages.begin(), region.pages.end(),
                                 [address](const MEMORY_PAGE& each) { return each.endAddress < address; });
        if (page != region.pages.end()) {
            cur_pg = &*page;
            continue;
        }
        do {
            newPage();
        } while (cur_pg->endAddress < address);
    }
}

// Appends the page behind the last one of the current region and makes it the current page.
void hexpage::newPage() {
    std::vector<MEMORY_PAGE>& pages = cur_rg->pages;
    const std::uint32_t start = pages.empty() ? cur_rg->startAddress : pages.back().endAddress + 1;
    // Every 3 bytes stored of a PIC24 cover 2 words.
    const std::uint32_t size = cur_rg->blockSize;
    const std::uint32_t span = cfg_pic24 ? size - size / 3 : size;
    // A page ends with the address space at the latest: behind a page that wrapped around to low
    // addresses, the search would never get to the one it wants.
    const std::uint32_t room = std::numeric_limits<std::uint32_t>::max() - start;

    MEMORY_PAGE page;
    page.startAddress = start;
    page.endAddress = start + std::min(span - 1, room);
    page.lastAddress = start;
    pages.push_back(page);
    cur_pg = &pages.back();
}

std::uint32_t hexpage::getTotalPages() const {
    std::size_t total = 0;
    for (const MEMORY_REGION& region : regions) {
        total += region.pages.size();
    }
    return static_cast<std::uint32_t>(total);
}

bool hexpage::walkReachesAllData() const {
    bool reached = true;
    bool anyData = false;
    for (const MEMORY_REGION& region : regions) {
        reached = reached && !region.pages.empty();
        const bool hasData = std::any_of(region.pages.begin(), region.pages.end(),
                                         [](const MEMORY_PAGE& page) { return !page.data.empty(); });
        if (hasData && !reached) {
            return false;
        }
        anyData = anyData || hasData;
    }
    return anyData;
}

void hexpage::resetIterator() {
    region_ptr = 0;
    mem_ptr = 0;
}

// Ends at a region without pages, and does not skip it: intended. Whether that leaves data out is
// walkReachesAllData()'s question.
hexpage::MEMORY_PAGE* hexpage::getNextPage() {
    if (region_ptr >= regions.size()) {
        return nullptr;
    }
    cur_rg = &regions[region_ptr];
    if (mem_ptr >= cur_rg->pages.size()) {
        return nullptr;
    }
    MEMORY_PAGE* const page = &cur_rg->pages[mem_ptr++];
    if (mem_ptr == cur_rg->pages.size()) {
        ++region_ptr;
        mem_ptr = 0;
    }
    return page;
}

void hexpage::print() {
    for (const MEMORY_REGION& region : regions) {
        std::printf("--------------\nREGION START %x END %x BLOCKSIZE %x\n", region.startAddress,
                    region.endAddress, region.blockSize);
        unsigned index = 0;
        for (const MEMORY_PAGE& page : region.pages) {
            std::printf("%u PAGE START %x END %x DATA %u\n", index++, page.startAddress, page.endAddress,
                        static_cast<unsigned>(page.data.size()));
        }
    }
    cur_rg = nullptr;
}

void hexpage::print(std::uint32_t rg, std::uint32_t pg) {
    if (rg < regions.size()) {
        cur_rg = &regions[rg];
    }
    if (!cur_rg || pg >= cur_rg->pages.size()) {
        return;
    }
    cur_pg = &cur_rg->pages[pg];
    print(*cur_pg, cur_rg->blockSize);
}

// A line shows four little-endian words, most significant byte first. In PIC24 mode a word is an
// instruction of 3 bytes that covers 2 addresses.
void hexpage::print(const MEMORY_PAGE& page, std::uint32_t /*blockSize*/) const {
    constexpr std::size_t WORDS = 4;
    const std::size_t wordBytes = cfg_pic24 ? 3 : 4;
    const std::size_t wordUnits = cfg_pic24 ? 2 : 4;
    const std::size_t size = page.data.size();

    for (std::size_t word = 0; word * wordBytes < size; ++word) {
        const std::size_t first = word * wordBytes;
        if (word % WORDS == 0) {
            std::printf("%s%08x", word ? "\n" : "",
                        static_cast<unsigned>(page.startAddress + word * wordUnits));
        }
        std::printf("        ");
        for (std::size_t at = std::min(first + wordBytes, size); at > first; --at) {
            std::printf("%02x", page.data[at - 1]);
        }
    }
    if (size > 0) {
        std::printf("\n");
    }
}
