#include "processor.h"

#include "text.h"

#include <algorithm>

namespace sim {

namespace {

constexpr AddressRange NONE{0, 0};
constexpr AddressRange STM32{0x08000000, 0x0803E000};
constexpr AddressRange PIC32{0x1D000000, 0x1D080000};
constexpr AddressRange EVERYTHING{0, 0xFFFFFFFF};

// clang-format off
constexpr Processor PROCESSORS[] = {
//   name           kind identifies wide   records erases units   bytes   ranges
    {"pic24-old",     1, false,     false, false,  true,  0x600,  0x600,  {{{0, 0x7FFFFE}, NONE}}},
    {"pic24",         1, true,      false, false,  true,  0x400,  0x600,  {{{0, 0x400}, {0x1000, 0x7FFFFE}}}},
    {"pic32-records", 2, true,      true,  true,   false, 0x1000, 0x1000, {{EVERYTHING, NONE}}},
    {"stm32f3",       3, true,      true,  false,  true,  0x800,  0x800,  {{STM32, NONE}}},
    {"stm32f0",       4, true,      true,  false,  true,  0x800,  0x800,  {{STM32, NONE}}},
    {"pic32-pages",   5, true,      true,  false,  true,  0x1000, 0x1000, {{PIC32, NONE}}},
    {"stm32f4",       6, true,      true,  false,  false, 0x800,  0x800,  {{STM32, NONE}}},
};
// clang-format on

} // namespace

std::uint32_t Processor::cellOf(std::uint32_t address) const {
    return static_cast<std::uint32_t>(std::uint64_t{address} * pageBytes / pageUnits);
}

bool Processor::isPageStart(std::uint32_t address) const {
    return std::any_of(ranges.begin(), ranges.end(), [this, address](const AddressRange& range) {
        return address >= range.start && address < range.end && (address - range.start) % pageUnits == 0;
    });
}

const Processor& processorNamed(const std::string& name) {
    return named(PROCESSORS, name, "processor");
}

} // namespace sim
