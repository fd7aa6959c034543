// Shows what happened on the bus, and plays it again.
#include "capture.h"
#include "commandLine/run.h"
#include "listing.h"
#include "replay.h"
#include "summary.h"
#include "version.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>

namespace {

constexpr const char* ABOUT = "Lists the frames of a recording, and what is wrong with them; or plays the "
                              "bus's part of it to an updater.\n"
                              "Exit status: 0 fine; 1 when a frame is damaged, or the updater did something "
                              "else than recorded; 2 when the\n"
                              "recording can't be read.";

struct Options {
    std::string file;
    bool replay = false;
    bool summary = false;
    std::string capture;
    std::string link;
    std::chrono::milliseconds gap{500};
    std::chrono::seconds patience{60};
};

void declare(CLI::App& app, Options& options) {
    app.set_version_flag("--version", "bus-trace " KELDRA_VERSION);
    app.add_option("FILE", options.file,
                   "what a panel or bus-sim --trace has written, or the raw bytes of a serial sniffer; - for "
                   "standard "
                   "input")
        ->required();
    app.add_option_function<unsigned>(
        "--gap-ms", [&options](unsigned value) { options.gap = std::chrono::milliseconds(value); },
        "point out pauses of more than N milliseconds (500)");
    auto* summary =
        app.add_flag("--summary", options.summary, "a line for each module instead: how the line to it was");
    app.add_option("--pcap", options.capture,
                   "write a capture for Wireshark, which wireshark.lua takes apart")
        ->excludes(summary);
    auto* replay = app.add_flag("--replay", options.replay, "play the bus's part to an updater");
    auto* link = app.add_option("--link", options.link, "symbolic link to make to the updater's serial port");
    replay->needs(link);
    link->needs(replay);
    app.add_option_function<unsigned>(
        "--patience", [&options](unsigned value) { options.patience = std::chrono::seconds(value); },
        "seconds after which a silent updater ends the replay (60)");
}

trace::Recording load(const std::string& file) {
    if (file == "-")
        return trace::read(std::cin);
    if (std::filesystem::is_directory(file))
        throw std::runtime_error(file + ": is a directory");
    std::ifstream in(file, std::ios::binary);
    if (!in)
        throw std::runtime_error(file + ": " + std::strerror(errno));
    return trace::read(in);
}

// Anything is noise to the one who looks for frames; without a single one it was never a recording.
void requireFrames(const std::vector<trace::Piece>& pieces, const trace::Recording& recording) {
    const bool hasFrame = std::any_of(pieces.begin(), pieces.end(), [](const trace::Piece& each) {
        return each.event.empty() && each.frame.kind != sim::Frame::Kind::Noise;
    });
    if (!recording.timed && !hasFrame)
        throw std::runtime_error("no recording of the bus: there is no frame in it");
}

int run(const Options& options) {
    const trace::Recording recording = load(options.file);
    if (recording.isCut)
        std::cerr << "bus-trace: the last line is not finished and left out\n";
    if (options.replay)
        return trace::replay(std::cout, recording, options.link, options.patience) ? 0 : 1;
    const std::vector<trace::Piece> pieces = trace::cut(recording);
    requireFrames(pieces, recording);
    if (options.summary) {
        trace::summarize(std::cout, recording);
        return 0;
    }
    if (!options.capture.empty()) {
        std::ofstream out(options.capture, std::ios::binary);
        trace::writeCapture(out, recording);
        if (!out.flush())
            throw std::runtime_error("cannot write " + options.capture);
        return 0;
    }
    const trace::Summary summary = trace::list(std::cout, pieces, recording.timed, options.gap);
    trace::print(std::cout, summary);
    return summary.damaged == 0 ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app(ABOUT, "bus-trace");
    declare(app, options);
    return commandLine::run(app, argc, argv, 2, [&] { return run(options); });
}
