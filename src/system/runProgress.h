#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

/**
 * How far an update run is and how long it still takes, by what its steps were expected to take and what has
 * been measured since. The update thread tells it; any thread may ask.
 */
class runProgress {
public:
    using clock = std::chrono::steady_clock;
    enum class KIND : std::uint8_t { BYTES, PAGES, RECORDS };

    struct STEP {
        std::string name;
        KIND kind;
        double seconds; ///< that it is expected to take; 0 when there is nothing to do
        /** Of steps of which each takes another of the same images, and which one is not known before. */
        std::string family = {};
    };
    struct STATE {
        std::string text; ///< one line for the operator; empty when no run goes on
        bool isWriting = false;
    };

    /** A run of these steps, in their order. */
    void start(std::vector<STEP> steps);
    /** This step comes next; what stands before it is done or passed over. */
    void check(const std::string& name, clock::time_point now = clock::now());
    /** The step is written from now on: so many units, which are expected to take so long. */
    void write(KIND kind, std::uint64_t total, double seconds, clock::time_point now = clock::now());
    void reached(std::uint64_t done, std::uint64_t total, clock::time_point now = clock::now());
    /** The file whose bytes come behind those that were reached. */
    void reading(const std::string& file);
    /** The run has ended; the name of the last step is kept. */
    void end();

    STATE state(clock::time_point now = clock::now());
    /** The step at hand or the last one; empty before the first. */
    std::string stepName() const;

private:
    /** How much longer things take than expected. The expectation counts like a first measurement. */
    struct PACE {
        double expected;
        double taken;
        double ratio() const { return taken / expected; }
    };

    PACE& paceOf(KIND kind) { return kind == KIND::BYTES ? files : modules; }
    double fraction() const;
    void settle();
    void leaveToFamily(double seconds);
    double secondsLeftOfStep(clock::time_point now);
    double secondsLeft(double ofStep, clock::time_point now);
    std::string unitsText() const;

    mutable std::mutex guard;
    std::vector<STEP> steps; ///< those behind the one at hand
    STEP current;
    bool running = false;
    bool writing = false;
    std::uint64_t done = 0;
    std::uint64_t total = 0;
    std::string file;
    clock::time_point began;
    clock::time_point latest; ///< when `done` was reached
    PACE files{};
    PACE modules{};
    double leastLeft = 0; ///< shown lately; negative before the first time
    clock::time_point asked;
};
