#pragma once

#include <functional>
#include <string>
#include <sys/types.h>
#include <vector>

/**
 * Starts an updater and stays until it and whatever it has started anew have ended. One for the life of the
 * process, made before anything is started.
 */
class Watch {
public:
    struct End {
        bool onRequest = false; ///< somebody asked the starter to end, and the updater with it
        int status = 0;         ///< of the updater that ended last, as a shell has it
        double seconds = 0;     ///< how long that one ran
    };

    /** `patience`: seconds within which an updater on trial has to have its window up. */
    explicit Watch(double patience);

    /** `isOnTrial` tells of whichever updater runs by then. */
    End follow(const std::string& program, const std::vector<std::string>& arguments,
               const std::function<bool()>& isOnTrial);

private:
    void reap(End& end);
    void ask() const;
    void endBecause(const char* reason);
    double running() const;

    double limit_;
    pid_t first_ = -1; ///< what was started, and the group of all that comes of it
    double begun_ = 0;
    bool hasWindow_ = false;
    bool isEmpty_ = false; ///< nothing is left of it
};
