#pragma once

#include "firmwareStore.h"
#include "matrixCells.h"
#include "results.h"
#include "virtualBus.h"

#include <chrono>
#include <string>
#include <vector>

// One dialogue against one module in virtual time, and what came of it.

enum class Dialogue { Plain, Panel };

struct MatrixResult {
    Outcome outcome = Outcome::Failed;
    std::chrono::duration<double> time{0};          ///< virtual
    std::vector<std::string> log;                   ///< of the dialogue
    std::vector<busMessages::PROCBUS_MSG> requests; ///< all that it sent
};

/** Runs cells; owns their images. */
class MatrixRuns {
public:
    struct Settings {
        double lose = 0;   ///< share of requests, and of replies, that are lost
        std::string trace; ///< "-" for standard output
    };

    explicit MatrixRuns(Settings requested) : settings_(std::move(requested)) {}
    MatrixRuns(const MatrixRuns&) = delete;
    MatrixRuns& operator=(const MatrixRuns&) = delete;

    MatrixResult run(const Cell& cell, Dialogue dialogue);

private:
    VirtualBus::Settings busFor(const Cell& cell, const Firmware& firmware) const;

    Settings settings_;
    FirmwareStore firmware_;
};
