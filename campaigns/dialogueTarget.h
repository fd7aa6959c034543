#pragma once

#include "system/actions/flashLayouts.h"
#include "system/busProtocol.h"

#include <cstdint>
#include <optional>
#include <string>

/** What a dialogue is asked to do: bring the image into the module. The module itself says what it is. */
struct DialogueTarget {
    std::uint8_t address; ///< on the bus
    bool serial;          ///< it is to sit on the serial bootloader, not on a CAN one
    std::string image;    ///< path of the HEX file

    /** Of this processor, or that of a module too old to name it; none where it can't be programmed. */
    std::optional<flashLayouts::LAYOUT> layout(std::optional<std::uint8_t> processor) const {
        switch (processor.value_or(busProtocol::UNKNOWN)) {
        case busProtocol::STM32F3:
        case busProtocol::STM32F0:
        case busProtocol::STM32F4:
            return flashLayouts::stm32(processor == busProtocol::STM32F4);
        case busProtocol::PIC24:
            return flashLayouts::pic24New(serial);
        case busProtocol::PIC32_MEM:
            return serial ? std::optional(flashLayouts::pic32()) : std::nullopt;
        default:
            return processor ? std::nullopt : std::optional(flashLayouts::pic24Old());
        }
    }
};
