// The update of a simulated panel, as a text file describes it: update.txt shows the words.
#pragma once

#include "hexImage.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace panel {

// What the panel itself has.
struct HostItem {
    std::string name;      // in the manifests
    std::string installed; // versions
    std::string packed;    // empty: not in the package
    std::string file;      // of the package
};

struct ContentFile {
    std::string name;
    std::string content; // a number of random bytes, or "script"
};

struct ModuleUpdate {
    // What is to happen.
    enum class Fate { Flash, Current, Absent };

    std::string name;  // in the inventory
    std::string shown; // on the display
    std::string item;  // in the manifests
    std::string kind;
    std::string hardware;
    std::string version; // empty when it is absent
    std::string next;
    std::string words;                                           // the whole line of the bus's inventory
    std::vector<std::pair<std::uint32_t, std::uint32_t>> pieces; // of the image: address and size
    Fate fate = Fate::Flash;

    bool isPacked() const { return kind == "pic24"; } // its files have 4 bytes for an instruction of 3
    std::string image() const { return "firmware/" + name + "-r" + hardware + ".hex"; }
};

struct Description {
    std::vector<HostItem> items;
    std::vector<ContentFile> files;
    std::vector<ModuleUpdate> modules; // as they are visited
    std::vector<ModuleUpdate> spares;

    // The spares are in their places, and everything else is as the update leaves it.
    void exchange();
};

// Throws std::runtime_error for what can't be read or understood.
Description readDescription(const std::string& file);

} // namespace panel
