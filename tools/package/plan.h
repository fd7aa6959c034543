// What the panel would do with a package, item by item in the order in which it visits them.
#pragma once

#include "busModel.h"
#include "inventory.h"
#include "package.h"

#include <string>
#include <vector>

namespace package {

enum class Decision {
    Update,
    UpToDate,   // the versions are equal
    NoImage,    // nothing for this hardware revision; the panel says "up-to-date"
    NotFound,   // the module does not answer, or not as the panel expects it to
    NotOffered, // an unidentified module that the package has nothing for; the panel says nothing
    Fails,      // the update ends here
    NotReached, // an earlier item failed
};

struct Step {
    const Stop* stop;
    Decision decision = Decision::NoImage;
    std::string from; // installed version
    std::string to;
    std::string file;
    std::string reason; // of a failure
    unsigned revision = 0;
    bool offered = false;    // the package has something for it, of whatever revision
    std::uint64_t bytes = 0; // of the file or tree
    BusCost bus;
    const Processor* assumed = nullptr; // nobody said which the module has
};

struct Plan {
    std::vector<Step> steps;
    bool restarts = false; // the updater replaces itself and starts anew before the rest
    BusCost bus;           // of the whole run, the switch to update mode included
};

// `force` as in the panel's "auto force": equal versions are updated, too.
Plan makePlan(const Package& package, const Inventory& inventory, bool force,
              const ProcessorChoice& choice = {});

} // namespace package
