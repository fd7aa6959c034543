#pragma once

#include <array>
#include <cstdint>
#include <vector>

/**
 * Entry i: the CRC of byte i in the high half of a 16-bit register, most significant bit first,
 * polynomial 0x1021. Defines the check value; everything faster is derived from it.
 */
extern const std::array<std::uint32_t, 256> crc_table;

/**
 * CRC-16/CCITT-FALSE (polynomial 0x1021, start 0xFFFF, no reflection, no final XOR; "123456789" gives
 * 0x29B1) of bus messages and firmware pages. Holds no state: one instance may serve several threads.
 */
class crc16 {
public:
    /** The upper 16 bits of a result are zero. No bytes give 0xFFFF. */
    std::uint32_t crc16_calculate(const std::uint8_t* source, std::uint32_t length) const;

    /** With `rev` the bytes are taken from last to first. */
    std::uint32_t crc16_calculate(std::vector<std::uint8_t> source, bool rev) const;

    /** Compares all 32 bits of `crc`: anything set above bit 15 never matches. */
    bool crc16_check(const std::uint8_t* source, std::uint32_t length, std::uint32_t crc) const;
};
