#include "faultDraw.h"

#include <cstdio>

namespace {

using Engine = std::mt19937_64;

// A late reply is at most this late: the panel counts on half a second.
constexpr unsigned LATEST_MS = 400;

unsigned draw(Engine& random, unsigned from, unsigned to) {
    return from + static_cast<unsigned>(random() % (to - from + 1));
}

std::size_t choose(Engine& random, std::size_t count) {
    return static_cast<std::size_t>(random() % count);
}

std::string number(unsigned value) {
    return std::to_string(value);
}

std::string shareText(double share) {
    char text[32];
    std::snprintf(text, sizeof text, " share=%.5f", share);
    return text;
}

/** What a fault may do: its words, and the requests on which it makes sense ("" for all). */
struct FaultKind {
    std::string (*words)(Engine&);
    std::vector<std::string> requests;
    bool lasting; ///< strikes once, not again and again
};

const std::vector<std::string> ANY = {"",    "",    "enter",  "leave", "start",
                                      "row", "row", "status", "write", "erase"};
const std::vector<std::string> STATUS_BEARERS = {"start", "row", "write", "erase", "erase-all", "leave"};

const FaultKind KINDS[] = {
    {[](Engine&) -> std::string { return "lost-request"; }, ANY, false},
    {[](Engine&) -> std::string { return "silent"; }, ANY, true},
    {[](Engine& r) { return "power-cycle ms=" + number(draw(r, 1, 4000)); }, ANY, true},
    {[](Engine& r) { return "power-cycle requests=" + number(draw(r, 1, 40)); }, ANY, true},
    {[](Engine&) -> std::string { return "write-error"; }, {""}, false},
    {[](Engine&) -> std::string { return "erase-error"; }, {""}, false},
    {[](Engine&) -> std::string { return "ignore-page"; }, {""}, true},
    {[](Engine&) -> std::string { return "lost"; }, ANY, false},
    {[](Engine& r) { return "late ms=" + number(draw(r, 1, LATEST_MS)); }, ANY, false},
    {[](Engine& r) { return "late ms=" + number(draw(r, 40, 120)); }, ANY, false},
    {[](Engine&) -> std::string { return "double"; }, ANY, false},
    {[](Engine& r) { return "noise bytes=" + number(draw(r, 1, 40)); }, ANY, false},
    {[](Engine&) -> std::string { return "noise hex=4B2B4D4203040000"; }, ANY, false},
    {[](Engine& r) { return "wrong-module value=" + number(draw(r, 2, 16)); }, ANY, false},
    {[](Engine& r) { return "wrong-row value=" + number(draw(r, 1, 300)); }, ANY, false},
    // Neither 0 nor 6: a module that says it did what it did not can't be found out.
    {[](Engine& r) { return "wrong-status value=" + number(draw(r, 1, 5)); }, STATUS_BEARERS, false},
    {[](Engine&) -> std::string { return "old-protocol"; }, ANY, false},
    {[](Engine&) -> std::string { return "sync"; }, ANY, false},
    {[](Engine&) -> std::string { return "flip"; }, ANY, false},
    {[](Engine& r) { return "flip at=" + number(draw(r, 1, 13)); }, ANY, false},
    {[](Engine&) -> std::string { return "cut"; }, ANY, false},
};

/** Once, a few times in a row, now and then, or by chance; rows are many, the other requests few. */
std::string drawOccasion(Engine& random, bool once, bool rare) {
    std::string nth = " nth=" + number(draw(random, 1, rare || random() % 2 == 0 ? 4 : 200));
    switch (once ? 0 : draw(random, 0, 3)) {
    case 0:
        return nth;
    case 1:
        return nth + " count=" + number(draw(random, 2, 20));
    case 2:
        return " every=" + number(draw(random, 2, rare ? 5 : 60));
    default:
        return shareText(draw(random, 1, rare ? 60 : 15) / 100.0);
    }
}

} // namespace

Lines drawReplyFaults(std::uint8_t module, double share, Engine& random) {
    const std::string kinds[] = {
        "lost", "late ms=" + number(draw(random, 40, LATEST_MS)), "double", "flip", "cut", "sync"};
    Lines lines;
    for (const std::string& kind : kinds) {
        lines.push_back(kind + " module=" + number(module) + shareText(share / std::size(kinds)));
    }
    return lines;
}

Lines drawMixedFaults(const std::vector<std::uint8_t>& modules, Engine& random) {
    Lines lines;
    for (unsigned n = draw(random, 1, 4); n > 0; --n) {
        const FaultKind& kind = KINDS[choose(random, std::size(KINDS))];
        const std::string& request = kind.requests[choose(random, kind.requests.size())];
        std::string line = kind.words(random);
        if (!request.empty()) {
            line += " on=" + request;
        }
        if (request == "status") {
            lines.push_back("lost-request every=" + number(draw(random, 10, 40))); // else there are none
        }
        if (kind.lasting || random() % 4 != 0) {
            line += " module=" + number(modules[choose(random, modules.size())]);
        }
        lines.push_back(line + drawOccasion(random, kind.lasting, !request.empty() && request != "row"));
    }
    return lines;
}
