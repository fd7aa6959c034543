// The proof that a panel holds what its package brings.
#pragma once

#include "description.h"

#include <filesystem>
#include <string>
#include <vector>

namespace panel {

struct Places {
    std::filesystem::path content; // what the package was made from
    std::filesystem::path panel;   // the panel's folder
    std::filesystem::path bus;     // with the bus's report.txt and flash
};

// One thing that was looked at.
struct Proven {
    std::string what;
    std::string before; // versions
    std::string after;
    std::string evidence;
    bool isRight = false;
};

enum class Asked {
    History, // what the update did, too: which modules it wrote and what it said
    State,   // only what is there now, however the panel came to it
    NoHalves // the same, but what nobody has touched is right as well: the recorded version, the module's
             // flash
};

// Everything that the package brings or is to leave alone.
std::vector<Proven> prove(const Description& description, const Places& places, Asked asked);

} // namespace panel
