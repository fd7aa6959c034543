#pragma once

#include <array>
#include <cstdio>
#include <string>

// How an update may end, and where that is told.

enum class Outcome {
    Equal,   ///< every module is programmed, and its flash equals its image
    Failed,  ///< the run ended with an error, and the operator was told
    Missing, ///< the run ended well, but said that it did not find a module
    Wrong,   ///< it said that it was done, and some flash differs; or anything else
    Endless, ///< it did not end
    Untold,  ///< it failed, and the log does not say why
};
constexpr std::array<const char*, 6> OUTCOMES = {"equal", "failed", "missing", "WRONG", "ENDLESS", "UNTOLD"};
constexpr const char* nameOf(Outcome outcome) {
    return OUTCOMES[static_cast<std::size_t>(outcome)];
}
/** Outcomes have commas between them; these are right when the faults were drawn. */
constexpr const char* RIGHT_IF_DRAWN = "equal,failed,missing";
bool isAmong(const std::string& outcomes, const std::string& outcome);

// Standard output of a campaign, on which an image's reader and a dialogue print, too.

/** Where results go. */
std::FILE* results();
/** What others print goes into a file from now on. Throws std::runtime_error. */
void silenceOthers(const char* file = "/dev/null");
