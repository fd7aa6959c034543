#pragma once

#include "shared.h"

#include <functional>
#include <string>

/**
 * Work in a process of its own, for what may take longer than anybody wants to wait. With `unless`, the work
 * ends when that is set: it is killed within half a second, and what can't be killed, since it waits for a
 * device that does not answer, is left behind. It also ends with this process then.
 */
namespace childProcess {

constexpr int NOT_DONE = -1; ///< not started, killed or left behind

/**
 * Does the work in a copy of this process, which has nothing but the calling thread; its result, 0 to 255.
 * With `unless` and a limit, the work also ends when it is not done by then.
 */
int run(const std::function<int()>& work, const shared<bool>* unless = nullptr, int limitMs = 0);
/** Runs a shell command, out of reach of the terminal's ^C; its exit status. */
int shell(const std::string& command, const shared<bool>* unless = nullptr);
/** The same; `complaint` gets the last line of its standard error, all of which is passed on at its end. */
int shell(const std::string& command, const shared<bool>* unless, std::string& complaint);
/** Within such work: goes on as a shell command. Returns only when there is no shell. */
int runInstead(const std::string& command);

} // namespace childProcess
