#include "options.h"

namespace sim {

void declare(CLI::App& app, Options& options) {
    app.set_version_flag("--version", "bus-sim " KELDRA_VERSION);
    app.add_option("--link", options.link, "symbolic link to make to the serial port")->required();
    app.add_option("--inventory", options.inventory, "modules on the bus; without it there are none");
    app.add_option("--trace", options.trace, "every frame with its time; - for standard output");
    app.add_option("--baud", options.baud,
                   "pace of the line in bits a second; without it bytes take no time");
    app.add_option_function<unsigned>(
        "--delay-us", [&options](unsigned value) { options.relayDelay = std::chrono::microseconds(value); },
        "what relaying a request takes, microseconds (0)");
    app.add_option_function<unsigned>(
        "--status-ms",
        [&options](unsigned value) { options.statusPeriod = std::chrono::milliseconds(value); },
        "period of the messages 21 and 22, 0 for never (1000)");
    app.add_option("--faults", options.faultFiles, "faults, one a line; may be repeated")
        ->allow_extra_args(false);
    app.add_option("--fault", options.faults, "one fault; may be repeated")->allow_extra_args(false);
    app.add_option("--seed", options.seed, "of the random faults (1)");
    app.add_option("--report", options.report, "summary at SIGUSR1 and at the end; - for standard output");
    app.add_option("--dump", options.dump, "flash of the modules as HEX files at SIGUSR1 and at the end");
}

} // namespace sim
