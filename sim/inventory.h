// The modules that stand on the simulated bus. The file format is told in README.md.
#pragma once

#include "flash.h"
#include "messages.h"
#include "processor.h"
#include "temper.h"

#include <optional>

namespace sim {

struct ModuleConfig {
    std::string name;
    std::uint8_t address = 0; // on the bus; 0: the module can't be addressed
    std::uint8_t number = 0;  // in message 22
    const Processor* processor = nullptr;
    bool serialBootloader = false;
    bool present = true;        // an absent module is silent, but counts in message 21
    bool lost = false;          // without power from the start
    bool shortIdentity = false; // message 22 without the hardware revision
    std::uint8_t hardware = 0;
    std::uint8_t mode = 0;
    Version version;
    std::optional<Version> next; // reported once it was programmed and restarted
    Bytes serialNumber = Bytes(6);
    std::vector<std::uint32_t> ignoredPages;
    Temper temper;
    Flash flash; // as it is at the start
};

// A line of an inventory, cut into words. Throws std::invalid_argument.
ModuleConfig parseModule(const std::vector<std::string>& line);

// Throws std::runtime_error, naming file and line, for anything it can't use. An empty name gives no modules.
std::vector<ModuleConfig> loadInventory(const std::string& file);

} // namespace sim
