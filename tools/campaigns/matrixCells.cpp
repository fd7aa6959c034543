#include "matrixCells.h"

#include <algorithm>
#include <initializer_list>
#include <utility>

using sim::Temper;

namespace {

const char* const KINDS[] = {"pic24",   "pic24-old",   "stm32f0",      "stm32f3",
                             "stm32f4", "pic32-pages", "pic32-records"};

constexpr std::uint32_t FULL = 0xFFFFFFFF; // all bytes of a page

const Shape SHAPES[] = {
    {"one-row", {{0, 5}}, true},
    {"full", {{0, FULL}}, true},
    {"several", {{0, 50}, {1, 50}, {2, 50}}, true},
    {"gaps", {{0, 30}, {3, 30}, {6, 9}}, true},
    {"last-row-1", {{0, 40}, {1, 1}}, false},
    {"last-row-2", {{0, 40}, {1, 2}}, false},
    {"last-row-3", {{0, 40}, {1, 3}}, false},
    {"last-row-4", {{0, 40}, {1, 4}}, false},
    {"last-row-5", {{0, 40}, {1, 5}}, false},
    {"last-row-6", {{0, 40}, {1, 6}}, false},
    {"last-row-7", {{0, 40}, {1, 7}}, false},
};

bool always(const Kind&) {
    return true;
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
bool erases(const Kind& kind) {
    return erasesPages(kind) || erasesAll(kind);
}

template <class FIELD>
Dimension numbers(const char* name, FIELD Temper::*field, std::initializer_list<unsigned> values,
                  bool (*concerns)(const Kind&) = always) {
    Dimension dimension{name, {}, concerns};
    for (const unsigned value : values) {
        dimension.values.push_back(
            {std::to_string(value), [field, value](Temper& temper) { temper.*field = FIELD(value); }});
    }
    return dimension;
}

template <class FIELD>
Dimension ways(const char* name, FIELD Temper::*field,
               std::initializer_list<std::pair<const char*, FIELD>> values,
               bool (*concerns)(const Kind&) = always) {
    Dimension dimension{name, {}, concerns};
    for (const auto& [text, value] : values) {
        dimension.values.push_back({text, [field, way = value](Temper& temper) { temper.*field = way; }});
    }
    return dimension;
}

const std::vector<Dimension>& dimensions() {
    using Answers = Temper::Answers;
    static const std::vector<Dimension> all = {
        numbers("row-ms", &Temper::rowTime, {20, 45, 60, 100, 200, 400}),
        numbers("start-ms", &Temper::startTime, {20, 45, 60, 100, 200, 400, 600}, takesPages),
        numbers("write-ms", &Temper::writeTime, {10, 50, 100, 200, 400, 800, 1500}),
        numbers("erase-page-ms", &Temper::erasePageTime, {20, 100, 500}, erasesPages),
        numbers("erase-all-ms", &Temper::eraseAllTime, {200, 1000, 2500, 3000, 8000, 16000}, erasesAll),
        ways("busy", &Temper::busy, {{"drop", Temper::Busy::Drop}, {"answer", Temper::Busy::Answer}}),
        ways("write-answer", &Temper::writeAnswer,
             {{"status", Answers::OnStatus}, {"at-once", Answers::AtOnce}}),
        ways("erase-answer", &Temper::eraseAnswer,
             {{"status", Answers::OnStatus}, {"at-once", Answers::AtOnce}}, erases),
        ways("on-status", &Temper::onStatus,
             {{"state", Temper::OnStatus::State}, {"nothing", Temper::OnStatus::Nothing}}),
        numbers("names", &Temper::namedModule, {0, 1, 99}),
        numbers("identifies", &Temper::identifiedModule, {1, 99}, identifies),
        numbers("reply-length", &Temper::replyLength, {2, 3, 5, 8}),
        numbers("enter-row", &Temper::enterRow, {1, 5, 0xFFFF}, isOld),
        numbers("enter-nth", &Temper::enterNth, {2, 3, 4}),
        numbers("enter-ms", &Temper::enterTime, {300, 900}),
        ways("deaf", &Temper::deafToEnter, {{"", true}}),
        numbers("latency-ms", &Temper::latency, {20, 45, 60, 100, 130, 180}),
        numbers("idle-ms", &Temper::idleTime, {300, 450, 1000}),
    };
    return all;
}

std::vector<const Shape*> shapesFor(const Kind& kind) {
    std::vector<const Shape*> shapes;
    for (const Shape& shape : SHAPES) {
        if (shape.whole || !kind.packed) {
            shapes.push_back(&shape);
        }
    }
    return shapes;
}

std::vector<const Dimension*> dimensionsFor(const Kind& kind) {
    std::vector<const Dimension*> concerned;
    for (const Dimension& dimension : dimensions()) {
        if (dimension.concerns(kind)) {
            concerned.push_back(&dimension);
        }
    }
    return concerned;
}

template <class LIST>
const auto& pick(const LIST& list, std::mt19937_64& random) {
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
    std::string words = std::string(kind->name) + " " + shape->name;
    for (const Trait& trait : traits) {
        words += " " + trait.dimension->name + (trait.value->text.empty() ? "" : "=" + trait.value->text);
    }
    return words;
}

void Cell::apply(Temper& temper) const {
    for (const Trait& trait : traits) {
        trait.value->set(temper);
    }
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
    : seed(seedOfDrawn), together(traitsOfDrawn) {
    const auto add = [this](const Kind& kind, std::vector<Cell::Trait> traits) {
        for (const Shape* shape : shapesFor(kind)) {
            single.push_back({single.size(), &kind, shape, traits});
        }
    };
    for (const char* name : KINDS) {
        add(kindNamed(name), {});
    }
    for (const char* name : KINDS) {
        for (const Dimension* dimension : dimensionsFor(kindNamed(name))) {
            for (const Dimension::Value& value : dimension->values) {
                add(kindNamed(name), {{dimension, &value}});
            }
        }
    }
}

Cell MatrixCells::at(std::size_t number) const {
    return number < single.size() ? single[number] : drawn(number);
}

Cell MatrixCells::drawn(std::size_t number) const {
    std::mt19937_64 random(seed * 1'000'000'007 + number);
    const Kind& kind = kindNamed(pick(KINDS, random));
    Cell cell{number, &kind, pick(shapesFor(kind), random), {}};
    std::vector<const Dimension*> left = dimensionsFor(kind);
    while (cell.traits.size() < together && !left.empty()) {
        const auto at = left.begin() + static_cast<std::ptrdiff_t>(random() % left.size());
        cell.traits.push_back({*at, &pick((*at)->values, random)});
        left.erase(at);
    }
    return cell;
}
