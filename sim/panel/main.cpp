// Makes what a simulated panel's update needs, and proves that it arrived. Starting things is for the
// scripts.
#include "bed.h"
#include "commandLine/run.h"
#include "content.h"
#include "proof.h"
#include "sim/text.h"

#include <algorithm>
#include <iostream>

namespace {

using namespace panel;

constexpr const char* ABOUT =
    "What a simulated panel's update consists of, and the proof that it arrived.\n"
    "Exit status: 0 fine; 1 when something is not as it is to be; 2 for a wrong command line.";

struct Options {
    std::string description;
    Places places;
    std::string folder;
    bool exchanged = false;
    bool brief = false;
    bool noHalves = false;
    std::string image;
    std::string other;
    std::vector<std::string> numbers;
    bool packed = false;
};

int content(const Options& options) {
    Description description = readDescription(options.description);
    const std::filesystem::path& folder = options.folder;
    writeContent(description, options.places.content);
    put(folder / "system.manifest", systemManifest(description));
    put(folder / "inventory", busInventory(description, options.places.content));
    description.exchange();
    put(folder / "exchanged-inventory", busInventory(description, options.places.content));
    return 0;
}

int verify(const Options& options) {
    Description description = readDescription(options.description);
    if (options.exchanged) {
        description.exchange();
        for (HostItem& item : description.items)
            if (!item.packed.empty())
                item.installed = item.packed;
    }
    int failures = 0;
    const bool brief = options.brief || options.noHalves;
    const panel::Asked asked = options.noHalves ? panel::Asked::NoHalves
                               : brief          ? panel::Asked::State
                                                : panel::Asked::History;
    for (const Proven& proven : prove(description, options.places, asked)) {
        failures += !proven.isRight;
        if (!brief)
            std::cout << sim::format("%-18s %-9s %-9s %s\n", proven.what.c_str(), proven.before.c_str(),
                                     proven.after.c_str(),
                                     proven.isRight ? ("yes, " + proven.evidence).c_str() : "NO");
        else if (!proven.isRight)
            std::cout << proven.what << '\n';
    }
    return failures > 0;
}

int image(const Options& options) {
    std::vector<std::pair<std::uint32_t, std::uint32_t>> pieces;
    for (std::size_t i = 0; i + 1 < options.numbers.size(); i += 2)
        pieces.emplace_back(sim::toNumber(options.numbers[i], 16), sim::toNumber(options.numbers[i + 1], 16));
    put(options.image, hexFile(randomImage(pieces, options.packed)));
    return 0;
}

int compare(const Options& options) {
    const std::string found =
        difference(readHexFile(options.other), readHexFile(options.image), options.packed);
    std::cout << found << (found.empty() ? "" : "\n");
    return !found.empty();
}

using Command = int (*)(const Options&);

// The command that was chosen.
std::vector<std::pair<CLI::App*, Command>> declare(CLI::App& app, Options& options) {
    app.require_subcommand(1);
    CLI::App* const make =
        app.add_subcommand("content", "make what a package is made from, and what it comes to");
    make->add_option("DESCRIPTION", options.description)->required();
    make->add_option("CONTENT", options.places.content, "folder for the package's files")->required();
    make->add_option("FOLDER", options.folder, "for inventories and the record of what is installed")
        ->required();

    CLI::App* const proof =
        app.add_subcommand("verify", "compare a panel with what its package was made from");
    proof->add_option("DESCRIPTION", options.description)->required();
    proof->add_option("CONTENT", options.places.content)->required();
    proof->add_option("PANEL", options.places.panel, "the panel's folder")->required();
    proof->add_option("BUS", options.places.bus, "folder with report.txt and flash")->required();
    proof->add_flag("--exchanged", options.exchanged, "once more, with the spare modules in their places");
    proof->add_flag("--brief", options.brief,
                    "only what is not as it is to be, however the panel came to it");
    proof->add_flag("--no-halves", options.noHalves,
                    "the same; what was not touched yet, by record and flash, is as it is to be");

    CLI::App* const draw = app.add_subcommand("image", "write a firmware image of random bytes");
    draw->add_option("FILE", options.image)->required();
    draw->add_option("ADDRESS SIZE", options.numbers, "pieces, in hexadecimal digits")->required();

    CLI::App* const same = app.add_subcommand("compare", "tell the first difference of flash and its image");
    same->add_option("IMAGE", options.image)->required();
    same->add_option("DUMP", options.other)->required();
    for (CLI::App* const command : {draw, same})
        command->add_flag("--packed", options.packed, "4 bytes of a file are 3 of the flash");
    return {{make, content}, {proof, verify}, {draw, image}, {same, compare}};
}

} // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app(ABOUT, "panel-kit");
    const auto commands = declare(app, options);
    return commandLine::run(app, argc, argv, 2, [&] {
        const auto chosen = std::find_if(commands.begin(), commands.end(),
                                         [](const auto& each) { return each.first->parsed(); });
        return chosen->second(options);
    });
}
