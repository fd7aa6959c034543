#pragma once

#include <cstdio>

// Standard output of a campaign, on which an image's reader and a dialogue print, too.

/** Where results go. */
std::FILE* results();
/** What others print goes into a file from now on. Throws std::runtime_error. */
void silenceOthers(const char* file = "/dev/null");
