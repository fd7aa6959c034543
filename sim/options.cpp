#include "options.h"

#include "text.h"

#include <algorithm>
#include <stdexcept>

namespace sim {

namespace {

using Setter = void (*)(Options&, const std::string&);

struct Option {
    const char* name;
    Setter set;
};

constexpr Option table[] = {
    {"--link", [](Options& o, const std::string& v) { o.link = v; }},
    {"--inventory", [](Options& o, const std::string& v) { o.inventory = v; }},
    {"--trace", [](Options& o, const std::string& v) { o.trace = v; }},
    {"--report", [](Options& o, const std::string& v) { o.report = v; }},
    {"--dump", [](Options& o, const std::string& v) { o.dump = v; }},
    {"--baud", [](Options& o, const std::string& v) { o.baud = toNumber(v); }},
    {"--delay-us",
     [](Options& o, const std::string& v) { o.relayDelay = std::chrono::microseconds(toNumber(v)); }},
    {"--status-ms",
     [](Options& o, const std::string& v) { o.statusPeriod = std::chrono::milliseconds(toNumber(v)); }},
    {"--seed", [](Options& o, const std::string& v) { o.seed = toNumber(v); }},
    {"--faults", [](Options& o, const std::string& v) { o.faultFiles.push_back(v); }},
    {"--fault", [](Options& o, const std::string& v) { o.faults.push_back(v); }},
};

} // namespace

const char* const usage = R"(usage: bus-sim --link PATH [options]
  --link PATH       symbolic link to make to the serial port
  --inventory FILE  modules on the bus; without it there are none
  --trace FILE      every frame with its time; - for standard output
  --baud N          pace of the line in bits a second; without it bytes take no time
  --delay-us N      what relaying a request takes, microseconds (0)
  --status-ms N     period of the messages 21 and 22, 0 for never (1000)
  --faults FILE     faults, one a line; may be repeated
  --fault TEXT      one fault; may be repeated
  --seed N          of the random faults (1)
  --report FILE     summary at SIGUSR1 and at the end; - for standard output
  --dump DIR        flash of the modules as HEX files at SIGUSR1 and at the end
)";

Options parseOptions(const std::vector<std::string>& arguments) {
    Options options;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        if (arguments[i] == "--help" || arguments[i] == "--version") {
            options.answer = arguments[i] == "--help" ? usage : "bus-sim " KELDRA_VERSION "\n";
            return options;
        }
        const auto option = std::find_if(std::begin(table), std::end(table),
                                         [&](const Option& known) { return known.name == arguments[i]; });
        if (option == std::end(table))
            throw std::invalid_argument("unknown option " + arguments[i]);
        if (++i == arguments.size())
            throw std::invalid_argument(std::string(option->name) + " needs a value");
        option->set(options, arguments[i]);
    }
    if (options.link.empty())
        throw std::invalid_argument("--link is missing");
    return options;
}

} // namespace sim
