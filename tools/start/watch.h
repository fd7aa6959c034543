#pragma once

#include <functional>
#include <string>
#include <sys/types.h>
#include <vector>

/**
 * Starts an updater and stays until it and whatever it has started anew have ended. One for the life of the
 * process, made before anything is started.
 */
class watch {
public:
    struct END {
        bool onRequest = false; ///< somebody asked the starter to end, and the updater with it
        int status = 0;         ///< of the updater that ended last, as a shell has it
        double seconds = 0;     ///< how long that one ran
    };

    /** `patience`: seconds within which an updater on trial has to have its window up. */
    explicit watch(double patience);

    /** `isOnTrial` tells of whichever updater runs by then. */
    END follow(const std::string& program, const std::vector<std::string>& arguments,
               const std::function<bool()>& isOnTrial);

private:
    void reap(END& end);
    void ask() const;
    void endBecause(const char* reason);
    double running() const;

    double limit;
    pid_t first = -1; ///< what was started, and the group of all that comes of it
    double begun = 0;
    bool hasWindow = false;
    bool isEmpty = false; ///< nothing is left of it
};
