#include "processor.h"

#include <algorithm>
#include <stdexcept>

namespace sim {

namespace {

constexpr AddressRange none{0, 0};
constexpr AddressRange stm32{0x08000000, 0x0803E000};
constexpr AddressRange pic32{0x1D000000, 0x1D080000};
constexpr AddressRange everything{0, 0xFFFFFFFF};

// clang-format off
constexpr Processor processors[] = {
//   name           kind identifies wide   records erases units   bytes   ranges
    {"pic24-old",     1, false,     false, false,  true,  0x600,  0x600,  {{{0, 0x7FFFFE}, none}}},
    {"pic24",         1, true,      false, false,  true,  0x400,  0x600,  {{{0, 0x400}, {0x1000, 0x7FFFFE}}}},
    {"pic32-records", 2, true,      true,  true,   false, 0x1000, 0x1000, {{everything, none}}},
    {"stm32f3",       3, true,      true,  false,  true,  0x800,  0x800,  {{stm32, none}}},
    {"stm32f0",       4, true,      true,  false,  true,  0x800,  0x800,  {{stm32, none}}},
    {"pic32-pages",   5, true,      true,  false,  true,  0x1000, 0x1000, {{pic32, none}}},
    {"stm32f4",       6, true,      true,  false,  false, 0x800,  0x800,  {{stm32, none}}},
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
    const auto found = std::find_if(std::begin(processors), std::end(processors),
                                    [&name](const Processor& processor) { return processor.name == name; });
    if (found == std::end(processors))
        throw std::invalid_argument("unknown processor '" + name + "'");
    return *found;
}

} // namespace sim
