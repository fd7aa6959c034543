// What a panel's log tells of its update runs.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace package {

// A line of the log: "MM-DD-YYYY HH:MM:SS ZONE [LEVEL]: TEXT".
struct LogLine {
    std::string when;
    std::string level;
    std::string text;

    bool isError() const;
    bool isTrouble() const { return isError() || level == "Warning"; }
};

// Lines that are none are left out, and long ones cut.
std::vector<LogLine> logLines(std::string_view log);

struct VisitedItem {
    std::string name;
    std::string versions; // "from -> to", if it was to be updated
    std::string outcome;
};

struct UpdateRun {
    std::string begin;
    std::vector<VisitedItem> items;
    std::string outcome;
    std::string reason; // the error that ended it, as logged; empty when none did
};

// In their order. The log does not say how a run ended: that is told by how far it came, and by its last
// error.
std::vector<UpdateRun> updateRuns(const std::vector<LogLine>& log);

} // namespace package
