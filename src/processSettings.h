#pragma once

/**
 * Makes the process independent of how it was started: what an init, a script or a console has closed,
 * blocked or ignored, and what becomes of them later. To be called first of all, before a file is opened.
 *
 * - Descriptors 0 to 2 are open, so that no device gets their numbers and no text goes onto the bus.
 * - Standard output and error hold nobody up (outputRelay.h), and tell the time of each line when the
 *   configuration has `output_times = 1`.
 * - Children are waited for, and a reader or a terminal that goes away ends nothing.
 * - SIGTERM and SIGINT are events (stopSignals.h).
 */
void settleProcess(const char* configuration);
