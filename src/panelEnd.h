#pragma once

class instanceLock;
class updateCore;

/** How the program leaves the panel, behind its last picture: nobody is left to tell what comes of it. */
namespace panelEnd {

/** Ends the bus, lets the card settle and halts the panel. */
void halt(updateCore& core);

/** Starts the new updater, which takes over the lock, and the standard output as this one has found it. */
void restart(const updateCore& core, const instanceLock& lock);

} // namespace panelEnd
