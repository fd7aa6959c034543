#pragma once

#include "firmwareStore.h"
#include "plans.h"

#include <string>

// One update by the panel's dialogues in virtual time, under the faults of a plan, and what came of it.

/**
 * Of the modules that are up to date only those are there that a fault names. `trace` takes the frames: a
 * file,
 * "-" for standard output, or nothing.
 */
Outcome attack(const Plan& plan, FirmwareStore& store, const std::string& trace);
