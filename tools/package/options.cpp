#include "options.h"

#include "version.h"

#include <CLI/CLI.hpp>
#include <algorithm>

namespace package {

namespace {

constexpr int USAGE_ERROR = 2;

constexpr const char* BUILD_EXAMPLE = R"(Example:
  keldra-package build release -o /media/stick
    with release/package.json:
      {"slave": [{"file": "slave-r0.hex", "version": "1.3.0", "processor": "stm32f3"},
                 {"file": "slave-r1.hex", "version": "1.3.0", "processor": "stm32f4"}]})";
constexpr const char* CHECK_EXAMPLE = R"(Examples:
  keldra-package check /media/stick/keldra_update.tgz
  keldra-package check --strict --json release
  keldra-package check --processor slave=pic24,stm32f0 keldra_update.tgz
  keldra-package check --processor pic24-old motor.hex)";
constexpr const char* PLAN_EXAMPLE = R"(Example:
  keldra-package plan keldra_update.tgz --installed system.manifest --modules inventory.json
    with inventory.json:
      {"ctrl": {"kind": "pic32-pages", "version": "3.0.0"}, "s1": {"kind": "stm32f3", "hw": 1}})";
constexpr const char* SHOW_EXAMPLE = R"(Example:
  keldra-package show slave.hex --processor stm32f3)";

const Processor* processorNamed(const std::string& name) {
    const Processor* found = findProcessor(name);
    if (found == nullptr)
        throw CLI::ValidationError("--processor", "\"" + name + "\" is no kind of processor");
    return found;
}

// "KIND" for a single image, "ITEM=KIND,KIND..." by hardware revision for a package.
void readProcessors(Options& options) {
    const std::string extension = options.path.extension().string();
    options.isImage = options.command == Command::Show || extension == ".hex" || extension == ".HEX";
    if (options.isImage && !options.modules.empty())
        throw CLI::ValidationError("--modules", "it is for packages");
    if (options.isImage && !options.keys.empty())
        throw CLI::ValidationError("--keys", "it is for packages");
    if (!options.isImage && options.serial)
        throw CLI::ValidationError("--serial", "it is for a HEX image");
    for (const std::string& text : options.processors) {
        const std::size_t equals = text.find('=');
        if (options.isImage) {
            if (options.processor != nullptr)
                throw CLI::ValidationError("--processor", "an image is for one kind");
            options.processor = processorNamed(text);
            continue;
        }
        const std::string item = text.substr(0, equals);
        const ItemKind* kind = findItem(item);
        if (equals == std::string::npos || kind == nullptr || kind->content != Content::Firmware)
            throw CLI::ValidationError("--processor", "\"" + text + "\" is no ITEM=KIND of modules");
        for (const std::string& name : CLI::detail::split(text.substr(equals + 1), ','))
            options.choice[item].push_back(processorNamed(name));
    }
}

CLI::App& addBuild(CLI::App& app, Options& options) {
    CLI::App& build = *app.add_subcommand("build", "Make the package that a description asks for");
    build.add_option("DIR", options.build.source, "directory with package.json")->required();
    build.add_option("-o,--output", options.build.target, "directory for the package")->required();
    build.add_option("--sign", options.build.key, "secret key of minisign, which asks for its password")
        ->check(CLI::ExistingFile);
    build.add_flag("--force", options.build.force, "build even what the checks refuse");
    build.footer(BUILD_EXAMPLE);
    return build;
}

CLI::App& addCheck(CLI::App& app, Options& options) {
    CLI::App& check =
        *app.add_subcommand("check", "Find what the panel would refuse, and what it would accept in silence");
    check
        .add_option("PATH", options.path,
                    "package, directory with one, unpacked package, description or HEX image")
        ->required();
    check.add_option("--processor", options.processors,
                     "KIND of a HEX image, or ITEM=KIND,... by hardware revision; else the most likely one");
    check.add_option("--modules", options.modules, "JSON inventory of the modules that must find an image");
    check
        .add_option("--keys", options.keys, "directory of public keys: is the package signed by one of them?")
        ->check(CLI::ExistingDirectory);
    check.add_flag("--serial", options.serial, "the image is for the module on the serial bootloader");
    check.add_flag("--strict", options.strict, "exit with 1 when there are warnings");
    check.add_flag("--json", options.json, "for programs");
    check.footer(CHECK_EXAMPLE);
    return check;
}

CLI::App& addPlan(CLI::App& app, Options& options) {
    CLI::App& plan =
        *app.add_subcommand("plan", "Tell what the panel would do with a package, and how long on the bus");
    plan.add_option("PATH", options.path, "package, directory with one, unpacked package or description")
        ->required();
    plan.add_option("--installed", options.installed,
                    "the panel's system.manifest; else everything is unknown");
    plan.add_option("--modules", options.modules,
                    "JSON inventory of the modules; else all are there, of revision 0 and unknown version");
    plan.add_option("--baud", options.baud, "rate of the bus line (115200)")
        ->check(CLI::Range(300U, 4000000U));
    plan.add_flag("--force", options.force, "update equal versions, too");
    plan.add_flag("--json", options.json, "for programs");
    plan.footer(PLAN_EXAMPLE);
    return plan;
}

CLI::App& addShow(CLI::App& app, Options& options) {
    CLI::App& show = *app.add_subcommand("show", "Draw an image's pages");
    show.add_option("IMAGE", options.path, "HEX file")->required();
    show.add_option("--processor", options.processors, "KIND of processor; else the most likely one");
    show.add_flag("--serial", options.serial, "the image is for the module on the serial bootloader");
    show.footer(SHOW_EXAMPLE);
    return show;
}

} // namespace

std::optional<Options> parseOptions(int argc, char** argv, int& status) {
    Options options;
    CLI::App app(
        "Builds, checks and predicts update packages for the control panel.\n"
        "Kinds of processors: pic24, pic24-old, pic32-records, pic32-pages, stm32f0, stm32f3, stm32f4.\n"
        "Exit status: 0 fine, 1 warnings (check --strict), 2 errors.",
        "keldra-package");
    app.require_subcommand(1);
    app.set_version_flag("--version", "keldra-package " KELDRA_VERSION);
    app.footer("keldra-package COMMAND --help shows its options and examples.");
    const CLI::App* const commands[] = {&addBuild(app, options), &addCheck(app, options),
                                        &addPlan(app, options), &addShow(app, options)};
    try {
        app.parse(argc, argv);
        const auto chosen = std::find_if(std::begin(commands), std::end(commands),
                                         [](const CLI::App* each) { return each->parsed(); });
        options.command = static_cast<Command>(chosen - std::begin(commands));
        readProcessors(options);
    } catch (const CLI::ParseError& error) {
        status = app.exit(error) == 0 ? 0 : USAGE_ERROR;
        return std::nullopt;
    }
    return options;
}

} // namespace package
