// The flash of one module: cells of one byte, counted from 0. Erased cells hold 0xFF; cells never touched are
// erased.
#pragma once

#include "protocol.h"

#include <map>
#include <span>

namespace sim {

class Flash {
public:
    static constexpr std::uint8_t ERASED_BYTE = 0xFF;
    // Storage is held in blocks: a multiple of 16 and of 12 cells, so that a row of a dump lies within one.
    static constexpr std::uint32_t CELLS_PER_BLOCK = 0x1800;

    enum class Result {
        Done,
        NotErased, // nothing was changed
        Refused,   // as refuseProgram asked; nothing was changed
    };

    Result program(std::uint32_t first, std::span<const std::uint8_t> bytes);
    void erase(std::uint32_t first, std::uint32_t count);
    void eraseAll() { blocks_.clear(); }
    // Puts bytes in without any rule: what was there before the module was switched on.
    void preload(std::uint32_t first, std::span<const std::uint8_t> bytes);
    Bytes read(std::uint32_t first, std::uint32_t count) const;
    bool isErased(std::uint32_t first, std::uint32_t count) const;

    // Makes the next program fail.
    void refuseProgram() { refuseProgram_ = true; }

    // By block number, each of CELLS_PER_BLOCK cells, ascending.
    const std::map<std::uint32_t, Bytes>& blocks() const { return blocks_; }

private:
    std::uint8_t& cell(std::uint32_t index);
    std::uint8_t value(std::uint32_t index) const;

    std::map<std::uint32_t, Bytes> blocks_;
    bool refuseProgram_ = false;
};

} // namespace sim
