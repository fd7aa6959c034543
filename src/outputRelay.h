#pragma once

/**
 * Keeps whoever reads standard output and error from holding the updater up. A pipe, a socket or a terminal
 * is written by a process of its own, "K+Output", which takes the text at once and passes it on as fast as it
 * is read; what does not fit into its memory meanwhile (256 KiB) is lost. It outlives a crash, so that the
 * last words arrive, too. Files are written directly, unless times are asked for.
 */
namespace outputRelay {

/**
 * Begins; what was written until the end of the process is awaited there, while it is being read. Standard
 * output goes line by line. `withTimes` puts "YYYY-MM-DD HH:MM:SS.mmm " in front of each line of both.
 */
void begin(bool withTimes);
/** In a child process that outlives this one: its standard output and error are this one's as they were. */
void giveBack();

} // namespace outputRelay
