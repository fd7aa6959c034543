#include "crc16.h"

#include <algorithm>

namespace {

constexpr std::uint32_t POLYNOMIAL = 0x1021;
constexpr std::uint32_t START = 0xFFFF;
constexpr std::uint32_t SLICES = 8; // bytes taken per step of the fast path

constexpr std::array<std::uint32_t, 256> makeTable() {
    std::array<std::uint32_t, 256> table{};
    for (std::uint32_t byte = 0; byte < table.size(); ++byte) {
        std::uint32_t accum = byte << 8;
        for (int bit = 0; bit < 8; ++bit) {
            accum = (accum & 0x8000) ? (accum << 1) ^ POLYNOMIAL : accum << 1;
        }
        table[byte] = accum & 0xFFFF;
    }
    return table;
}

} // namespace

constexpr std::array<std::uint32_t, 256> crc_table = makeTable();

namespace {

constexpr std::uint32_t step(std::uint32_t accum, std::uint32_t byte) {
    return crc_table[((accum >> 8) ^ byte) & 0xFF] ^ ((accum & 0xFF) << 8);
}

// SHARES[k][i]: the contribution of byte i when k more bytes follow it. The CRC is linear, so the
// contributions of eight bytes can be looked up side by side instead of one after the other.
constexpr auto SHARES = [] {
    std::array<std::array<std::uint16_t, 256>, SLICES> made{};
    for (std::uint32_t byte = 0; byte < 256; ++byte) {
        std::uint32_t accum = crc_table[byte];
        for (auto& slice : made) {
            slice[byte] = static_cast<std::uint16_t>(accum);
            accum = step(accum, 0);
        }
    }
    return made;
}();

} // namespace

std::uint32_t crc16::crc16_calculate(const std::uint8_t* source, std::uint32_t length) const {
    std::uint32_t accum = START;
    for (; length >= SLICES; length -= SLICES, source += SLICES) {
        const std::uint32_t first = source[0] ^ (accum >> 8);
        const std::uint32_t second = source[1] ^ (accum & 0xFF);
        accum = static_cast<std::uint32_t>(
            SHARES[7][first] ^ SHARES[6][second] ^ SHARES[5][source[2]] ^ SHARES[4][source[3]] ^
            SHARES[3][source[4]] ^ SHARES[2][source[5]] ^ SHARES[1][source[6]] ^ SHARES[0][source[7]]);
    }
    for (; length > 0; --length) {
        accum = step(accum, *source++);
    }
    return accum;
}

std::uint32_t crc16::crc16_calculate(std::vector<std::uint8_t> source, bool rev) const {
    if (rev) {
        std::reverse(source.begin(), source.end());
    }
    return crc16_calculate(source.data(), static_cast<std::uint32_t>(source.size()));
}

bool crc16::crc16_check(const std::uint8_t* source, std::uint32_t length, std::uint32_t crc) const {
    return crc16_calculate(source, length) == crc;
}
