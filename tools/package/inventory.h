// What a panel and its modules have now.
#pragma once

#include "processors.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>

namespace package {

struct Module {
    const Processor* processor = nullptr; // null: judge by the image
    bool serial = false;                  // bootloader on the serial line, else on CAN
    std::uint8_t hardware = 0;
    std::string version;
    bool knownVersion = false; // the module tells its version
    bool silent = false;       // it answers nothing
    bool absent = false;
};

// The hardware revision that the panel picks the module's image by.
unsigned pickedRevision(const Module& module);

struct Inventory {
    std::map<std::string, std::string> installed;         // versions of the panel's own items
    std::optional<std::map<std::string, Module>> modules; // none: nobody said; then all are taken as present
};

// `installed` is a system manifest. `modules` is an object with a member for each module that is there:
//   "s1": {"kind": "stm32f3", "link": "can", "hw": 0, "version": "1.2.3", "lost": false, "absent": false}
// all of them optional; or lines with the same: "s1 kind=stm32f3 hw=0 lost". The simulated bus takes both,
// too. An empty path stands for none. Throws Failure for what can't be read or understood.
Inventory readInventory(const std::filesystem::path& installed, const std::filesystem::path& modules);

} // namespace package
