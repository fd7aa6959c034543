#pragma once

#include <cstdint>
#include <string>

/** What a dialogue is asked to do: bring the image into the module. The module itself says what it is. */
struct DialogueTarget {
    std::uint8_t address; ///< on the bus
    bool serial;          ///< it is to sit on the serial bootloader, not on a CAN one
    std::string image;    ///< path of the HEX file
};
