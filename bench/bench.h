#pragma once

#include <string>
#include <vector>

/** The measurements. Each is one run of the program: it does its work once and reports what that took. */
namespace bench {

using Arguments = std::vector<std::string>;

/** Seconds since some fixed moment, on a clock that never steps. */
double now();
/**
 * Prints a result, one number a line, on what was standard output before the updater's own texts were muted.
 */
void report(double value);
/** Most memory that this process has had resident so far, in MB. */
double peakMemory();
/** The lines of an inventory of all modules, each of this kind. */
std::string inventoryOf(const std::string& kind);

// Each throws std::runtime_error when what it is to measure did not succeed.

/** COMMAND...: seconds from starting the command to its end. */
void timeCommand(const Arguments& arguments);
/** IMAGE...: seconds to parse them into pages, one after the other. */
void parseHex(const Arguments& arguments);
/** updater, table or boost: MB/s of the CRC over 1 MB. */
void checkCrc(const Arguments& arguments);
/** SOURCE DESTINATION: seconds of functs::copyFile. */
void copyFile(const Arguments& arguments);
/** FILE: seconds to prove it intact, and the bytes read meanwhile for each byte of the file. */
void checkPackage(const Arguments& arguments);

// These need a panel's paths: tests/in-sandbox.

/**
 * SIMULATOR IMAGE KIND MODULES BAUD TRACE: flashes an image into so many modules of a kind. Reports the
 * seconds and the peak memory.
 */
void flash(const Arguments& arguments);
/** updater, unrecorded (without its recorder) or bare: share of a core, in %, that taking in a line of 921600
 * baud without gaps costs. */
void receiveShare(const Arguments& arguments);
/** The same three: MB/s that can be taken in. */
void receiveRate(const Arguments& arguments);
/**
 * SIMULATOR PACKAGE: seconds from starting the loader to its mode byte, then those of tar and sha1sum alone.
 */
void loadPackage(const Arguments& arguments);
/**
 * STARTED updater|bare: seconds from STARTED (since 1970) to the first painted window, and the peak memory.
 */
void paintWindow(const Arguments& arguments);
/** FILE: share of a core, in %, that the line of progress costs while this file is copied. */
void progressLine(const Arguments& arguments);
/** SIMULATOR PACKAGE: seconds and peak memory of a whole update with the window. */
void updatePanel(const Arguments& arguments);

} // namespace bench
