#pragma once

#include "action.prototype.h"

/**
 * Writes the package's kernel image onto the first partition of the internal memory card, in place, and reads
 * it back.
 */
class kernelUpdate : public action {
public:
    using action::action;
    STATUS needsUpdate(bool force) override;
    /**
     * Blocks while `dd` runs. A name of 2 characters or fewer stands for no image and is done at once; one
     * that a shell or the file system could take for more than a name fails as a failing `dd` does.
     */
    bool run() override;

private:
    bool fits(std::uint64_t bytes);
    bool writeImage(const std::string& name);
    bool hasArrived(const std::string& path);
};
