#pragma once

#include "firmwareStore.h"
#include "plans.h"
#include "virtualBus.h"

#include <string>

// One update by the panel's dialogues in virtual time, under the faults of a plan, and what came of it.

class AttackRuns {
public:
    /** `trace` takes the frames of all runs: a file, "-" for standard output, or nothing. */
    explicit AttackRuns(std::string trace) : traceFile_(std::move(trace)) {}

    /** Of the modules that are up to date only those are there that a fault names. */
    Outcome run(const Plan& plan);

private:
    const Firmware& firmwareOf(const Target& target, std::uint64_t seed);

    std::string traceFile_;
    FirmwareStore store_;
};
