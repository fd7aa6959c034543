#include "matrixCells.h"

namespace {

constexpr std::uint32_t FULL = 0xFFFFFFFF; // all bytes of a page

bool always(const Kind&) {
    return true;
}
bool packs(const Kind& kind) {
    return kind.packed;
}
/** A used page is not filled up. */
bool sendsPart(const Kind& kind) {
    return !packs(kind);
}
bool identifies(const Kind& kind) {
    return kind.name != std::string("pic24-old");
}
bool isOld(const Kind& kind) {
    return !identifies(kind);
}
bool takesPages(const Kind& kind) {
    return !kind.byRecords;
}
bool erasesPages(const Kind& kind) {
    return kind.gapsErased && !kind.byRecords;
}
bool erasesAll(const Kind& kind) {
    return kind.erasedWhole;
}
/** Else a page or record whose write was doubted can be begun anew no more. */
bool rewritesPages(const Kind& kind) {
    return !kind.erasedWhole;
}
bool erases(const Kind& kind) {
    return erasesPages(kind) || erasesAll(kind);
}

const Shape SHAPES[] = {
    {"one-row", {{0, 5}}, always},
    {"full", {{0, FULL}}, always},
    {"two-full", {{0, FULL}, {1, FULL}}, packs},
    {"several", {{0, 50}, {1, 50}, {2, 50}}, always},
    {"gaps", {{0, 30}, {3, 30}, {6, 9}}, always},
    {"late-start", {{2, 30}}, sendsPart},
    {"last-row-1", {{0, 40}, {1, 1}}, sendsPart},
    {"last-row-2", {{0, 40}, {1, 2}}, sendsPart},
    {"last-row-3", {{0, 40}, {1, 3}}, sendsPart},
    {"last-row-4", {{0, 40}, {1, 4}}, sendsPart},
    {"last-row-5", {{0, 40}, {1, 5}}, sendsPart},
    {"last-row-6", {{0, 40}, {1, 6}}, sendsPart},
    {"last-row-7", {{0, 40}, {1, 7}}, sendsPart},
};

const Dimension DIMENSIONS[] = {
    {"row-ms", {"20", "45", "60", "100", "200", "400"}, always},
    {"start-ms", {"20", "45", "60", "100", "200", "400", "600"}, takesPages},
    {"write-ms", {"10", "50", "100", "200", "400", "800", "1500"}, always},
    {"erase-page-ms", {"20", "100", "500"}, erasesPages},
    {"erase-all-ms", {"200", "1000", "2500", "3000", "8000", "16000"}, erasesAll},
    {"busy", {"drop", "answer"}, always},
    {"write-answer", {"status", "at-once"}, always},
    {"erase-answer", {"status", "at-once"}, erases},
    {"on-status", {"state", "nothing"}, always},
    {"names", {"0", "1", "99"}, always},
    {"identifies", {"1", "99"}, identifies},
    {"renames", {"0", "99"}, always},
    {"rows", {"any"}, always},
    {"write-again", {"error"}, rewritesPages},
    {"reply-length", {"2", "3", "5", "8"}, always},
    {"enter-row", {"1", "5", "65535"}, isOld},
    {"enter-answer", {"silent"}, isOld},
    {"enter-nth", {"2", "3", "4"}, always},
    {"enter-ms", {"300", "900"}, always},
    {"deaf", {""}, always},
    {"latency-ms", {"20", "45", "60", "100", "130", "180"}, always},
    {"idle-ms", {"300", "450", "1000"}, always},
};

template <class Row, std::size_t COUNT>
std::vector<const Row*> rowsFor(const Kind& kind, const Row (&table)[COUNT]) {
    std::vector<const Row*> rows;
    for (const Row& row : table) {
        if (row.suits(kind)) {
            rows.push_back(&row);
        }
    }
    return rows;
}

template <class List>
const auto& pick(const List& list, std::mt19937_64& random) {
    return list[static_cast<std::size_t>(random() % std::size(list))];
}

/** HEX file address of a page; where a region is one page only, the others are in the next. */
std::uint32_t pageAddress(const Kind& kind, std::uint32_t page) {
    const bool isFirst = page == 0 || kind.regions.size() == 1;
    return isFirst ? kind.regions.front() + page * kind.pageBytes
                   : kind.regions.back() + (page - 1) * kind.pageBytes;
}

} // namespace

std::string Cell::text() const {
    return std::string(kind->name) + " " + shape->name + temper();
}

std::string Cell::temper() const {
    std::string words;
    for (const Trait& trait : traits) {
        const std::string value = trait.value;
        words += std::string(" ") + trait.dimension->name + (value.empty() ? "" : "=" + value);
    }
    return words;
}

Memory imageOf(const Kind& kind, const Shape& shape, std::mt19937_64& random) {
    Memory image;
    for (const Shape::Part& part : shape.parts) {
        const std::uint32_t start = pageAddress(kind, part.page);
        const std::uint32_t length = part.bytes == FULL ? kind.pageBytes : part.bytes * (kind.packed ? 4 : 1);
        for (std::uint32_t i = 0; i < length; ++i) {
            image[start + i] =
                kind.packed && i % 4 == 3 ? std::uint8_t{0} : static_cast<std::uint8_t>(random());
        }
    }
    return image;
}

MatrixCells::MatrixCells(std::uint64_t seedOfDrawn, unsigned traitsOfDrawn)
    : seed_(seedOfDrawn), together_(traitsOfDrawn) {
    const auto add = [this](const Kind& kind, std::vector<Cell::Trait> traits) {
        for (const Shape* shape : rowsFor(kind, SHAPES)) {
            single_.push_back({single_.size(), &kind, shape, traits});
        }
    };
    for (const Kind& kind : kinds()) {
        add(kind, {});
    }
    for (const Kind& kind : kinds()) {
        for (const Dimension* dimension : rowsFor(kind, DIMENSIONS)) {
            for (const char* value : dimension->values) {
                add(kind, {{dimension, value}});
            }
        }
    }
}

Cell MatrixCells::at(std::size_t number) const {
    return number < single_.size() ? single_[number] : drawn(number);
}

Cell MatrixCells::drawn(std::size_t number) const {
    std::mt19937_64 random(seed_ * 1'000'000'007 + number);
    const Kind& kind = pick(kinds(), random);
    Cell cell{number, &kind, pick(rowsFor(kind, SHAPES), random), {}};
    std::vector<const Dimension*> left = rowsFor(kind, DIMENSIONS);
    while (cell.traits.size() < together_ && !left.empty()) {
        const auto at = left.begin() + static_cast<std::ptrdiff_t>(random() % left.size());
        cell.traits.push_back({*at, pick((*at)->values, random)});
        left.erase(at);
    }
    return cell;
}
