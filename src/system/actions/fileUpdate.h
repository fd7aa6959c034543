#pragma once

#include "../../lib/functs.h"
#include "action.prototype.h"

#include <cstdint>
#include <map>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

/**
 * Installs a file or the contents of a directory from the unpacked package. Each old file is removed before
 * the new one is written, but not before that was looked at; hidden files and directories of the package are
 * left out. What was installed is forced onto the card and read back.
 */
class fileUpdate : public action {
public:
    explicit fileUpdate(coreState* core) : action(core) {}
    /** The directory that the item is installed into, "/" until set. */
    void setInstallPath(std::string path) { configInstallPath = path; }

    STATUS needsUpdate(bool force) override;
    /**
     * Copies, and carries each file's executable bits (only those) over, so that an installed program can be
     * started. A single file that fails in either fails the item. In a directory only the top directory's
     * failure does, or that of every file; what else fails in the tree is logged and counted in the core's
     * `notInstalled`, and the walk goes on. A name of 2 characters or
     * fewer stands for no file and is done at once.
     */
    bool run() override;
    bool copyOneFile(std::string source, std::string destination, functs& f);
    bool copyDirectory(std::string source, std::string destination, functs& f);

protected:
    /** Counts and logs it. */
    bool copyFailed(const std::string& destination);

private:
    bool mayReplace(const std::string& source, const std::string& destination);
    void keepWhatArrived();
    bool carryExecutableBits(const std::string& source, const std::string& destination);

    std::string configInstallPath = "/";
    std::uint64_t totalBytes = 0; ///< of the item
    std::uint64_t copiedBytes = 0;
    std::map<std::string, std::string> copies; ///< destinations, each with its source
    unsigned failures = 0;                     ///< of files and folders of the item
    std::vector<std::pair<dev_t, ino_t>>
        walked; ///< the directories that the walk is in: links must not lead back
};
