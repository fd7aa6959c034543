#include "flash.h"

#include <utility>

namespace sim {

Flash::Result Flash::program(std::uint32_t first, std::span<const std::uint8_t> bytes) {
    if (std::exchange(refuseProgram_, false))
        return Result::Refused;
    if (!isErased(first, static_cast<std::uint32_t>(bytes.size())))
        return Result::NotErased;
    preload(first, bytes);
    return Result::Done;
}

void Flash::erase(std::uint32_t first, std::uint32_t count) {
    for (std::uint32_t i = 0; i < count; ++i)
        if (value(first + i) != ERASED_BYTE)
            cell(first + i) = ERASED_BYTE;
}

void Flash::preload(std::uint32_t first, std::span<const std::uint8_t> bytes) {
    for (const std::uint8_t byte : bytes)
        cell(first++) = byte;
}

Bytes Flash::read(std::uint32_t first, std::uint32_t count) const {
    Bytes bytes(count);
    for (std::uint8_t& byte : bytes)
        byte = value(first++);
    return bytes;
}

bool Flash::isErased(std::uint32_t first, std::uint32_t count) const {
    for (std::uint32_t i = 0; i < count; ++i)
        if (value(first + i) != ERASED_BYTE)
            return false;
    return true;
}

std::uint8_t& Flash::cell(std::uint32_t index) {
    Bytes& block = blocks_[index / CELLS_PER_BLOCK];
    block.resize(CELLS_PER_BLOCK, ERASED_BYTE);
    return block[index % CELLS_PER_BLOCK];
}

std::uint8_t Flash::value(std::uint32_t index) const {
    const auto block = blocks_.find(index / CELLS_PER_BLOCK);
    return block == blocks_.end() ? ERASED_BYTE : block->second[index % CELLS_PER_BLOCK];
}

} // namespace sim
