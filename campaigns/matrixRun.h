#pragma once

#include "firmwareStore.h"
#include "matrixCells.h"
#include "virtualBus.h"

#include <array>
#include <chrono>
#include <string>
#include <vector>

// One dialogue against one module in virtual time, and what came of it.

enum class Dialogue { Plain, Panel };

enum class Verdict {
    Flashed, ///< it says that it is done, and the flash equals the image
    Refused, ///< it says that it failed, or found no module
    Wrong,   ///< it says that it is done, and the flash differs
    Endless, ///< it says nothing for longer than any update takes
};
constexpr std::array<const char*, 4> VERDICTS = {"flashed", "refused", "WRONG", "ENDLESS"};

struct MatrixResult {
    Verdict verdict = Verdict::Refused;
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
