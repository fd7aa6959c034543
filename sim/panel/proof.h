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

// Everything that the package brings or is to leave alone. `history` asks for what the update did, too: which
// modules it wrote and what it said. Without, only the state counts, however the panel came to it.
std::vector<Proven> prove(const Description& description, const Places& places, bool history);

} // namespace panel
