#pragma once

#include "firmware.h"

#include <cstdint>
#include <string>
#include <vector>

// What modules there may be: kinds, what their image looks like, and how they behave. A cell is one of them.

/** An image: so many bytes of each of these pages, counted from the start of flash. */
struct Shape {
    struct Part {
        std::uint32_t page;
        std::uint32_t bytes; ///< of flash; those of a page at most
    };
    std::string name;
    std::vector<Part> parts;
    bool (*suits)(const Kind& kind); ///< it is no other shape's twin with this kind
};

/**
 * One thing in which modules behave differently, and the ways in which they do; the usual one is left out.
 */
struct Dimension {
    const char* name;                ///< key in an inventory of the simulator
    std::vector<const char*> values; ///< an empty one is for a mere key
    bool (*suits)(const Kind& kind); ///< it makes a difference with modules of this kind
};

struct Cell {
    struct Trait {
        const Dimension* dimension;
        const char* value;
    };
    std::size_t number;
    const Kind* kind;
    const Shape* shape;
    std::vector<Trait> traits;

    /** "stm32f4 gaps row-ms=60 busy=drop" */
    std::string text() const;
    /** What an inventory says of the module: " row-ms=60 busy=drop" */
    std::string temper() const;
};

Memory imageOf(const Kind& kind, const Shape& shape, std::mt19937_64& random);

/**
 * The cells, counted from 0: each way of each dimension alone with each kind and shape, before them no way at
 * all, and behind them without end those with `together` ways drawn from `seed`.
 */
class MatrixCells {
public:
    MatrixCells(std::uint64_t seed, unsigned together);

    std::size_t singles() const { return single_.size(); }
    Cell at(std::size_t number) const;

private:
    Cell drawn(std::size_t number) const;

    std::uint64_t seed_;
    unsigned together_;
    std::vector<Cell> single_;
};
