// Shows what happened on the bus, and plays it again.
#include "listing.h"
#include "replay.h"
#include "version.h"

#include <cstring>
#include <fstream>
#include <iostream>
#include <stdexcept>

namespace {

const char* const usage = R"(usage: bus-trace [--gap-ms N] FILE
       bus-trace --replay --link PATH [--patience S] FILE
Lists the frames of a recording, and what is wrong with them; or plays the bus's part of it to an updater.
  FILE          what bus-sim --trace has written, or the raw bytes of a serial sniffer; - for standard input
  --gap-ms N    point out pauses of more than N milliseconds (500)
  --link PATH   symbolic link to make to the updater's serial port
  --patience S  seconds after which a silent updater ends the replay (60)
  --version     print the version
The exit status is 0; 1 when a frame is damaged, or the updater did something else than recorded; 2 when the
recording can't be read.
)";

struct Options {
    std::string file;
    bool replay = false;
    std::string link;
    std::chrono::milliseconds gap{500};
    std::chrono::seconds patience{60};
};

Options parse(const std::vector<std::string>& arguments) {
    Options options;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& name = arguments[i];
        const auto value = [&]() -> const std::string& {
            if (++i == arguments.size())
                throw std::invalid_argument(name + " needs a value");
            return arguments[i];
        };
        if (name == "--gap-ms")
            options.gap = std::chrono::milliseconds(sim::toNumber(value()));
        else if (name == "--replay")
            options.replay = true;
        else if (name == "--link")
            options.link = value();
        else if (name == "--patience")
            options.patience = std::chrono::seconds(sim::toNumber(value()));
        else if (options.file.empty() && (name == "-" || name[0] != '-'))
            options.file = name;
        else
            throw std::invalid_argument("unknown option " + name);
    }
    if (options.file.empty())
        throw std::invalid_argument("no recording given");
    if (options.replay == options.link.empty())
        throw std::invalid_argument("--replay and --link belong together");
    return options;
}

trace::Recording load(const std::string& file) {
    if (file == "-")
        return trace::read(std::cin);
    std::ifstream in(file, std::ios::binary);
    if (!in)
        throw std::runtime_error("cannot read " + file);
    return trace::read(in);
}

int run(const Options& options) {
    const trace::Recording recording = load(options.file);
    if (recording.isCut)
        std::cerr << "bus-trace: the last line is not finished and left out\n";
    if (options.replay)
        return trace::replay(std::cout, recording, options.link, options.patience) ? 0 : 1;
    const trace::Summary summary =
        trace::list(std::cout, trace::cut(recording), recording.timed, options.gap);
    trace::print(std::cout, summary);
    return summary.damaged == 0 ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
    try {
        if (argc == 2 && std::strcmp(argv[1], "--help") == 0) {
            std::cout << usage;
            return 0;
        }
        if (argc == 2 && std::strcmp(argv[1], "--version") == 0) {
            std::cout << "bus-trace " KELDRA_VERSION "\n";
            return 0;
        }
        return run(parse({argv + 1, argv + argc}));
    } catch (const std::invalid_argument& error) {
        std::cerr << "bus-trace: " << error.what() << '\n' << usage;
    } catch (const std::exception& error) {
        std::cerr << "bus-trace: " << error.what() << '\n';
    }
    return 2;
}
