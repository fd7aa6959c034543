#include "options.h"

#include "completion.h"
#include "fileType.h"
#include "findingKinds.h"
#include "suggest.h"
#include "version.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <map>

namespace package {

namespace {

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
constexpr const char* CONVERT_EXAMPLE = R"(Example:
  keldra-package convert build/slave.elf -o release/slave.hex --processor stm32f3 --crop)";
constexpr const char* SHOW_EXAMPLE = R"(Example:
  keldra-package show slave.hex --processor stm32f3)";

const Processor* processorNamed(const std::string& name) {
    const Processor* found = findProcessor(name);
    if (found == nullptr)
        throw CLI::ValidationError("--processor", "\"" + name + "\" is no kind of processor" +
                                                      suggest(name, processorNames()));
    return found;
}

// A firmware image; what is no package is taken for one, too, so that it is said what it is.
bool isImageFile(const std::filesystem::path& path) {
    const FileType type = natureOf(path).type;
    const std::filesystem::path name = path.filename();
    const bool isPart =
        name == DESCRIPTION || name == MANIFEST || name == ARCHIVE || path.extension() == ".tgz";
    return !isPart && type != FileType::Absent && type != FileType::Directory && type != FileType::Gzip &&
           type != FileType::Json;
}

// "KIND" for a single image, "ITEM=KIND,KIND..." by hardware revision for a package.
void readProcessors(Options& options) {
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
            throw CLI::ValidationError("--processor", "\"" + text + "\" is no ITEM=KIND of modules" +
                                                          suggest(item, itemNames()));
        for (const std::string& name : CLI::detail::split(text.substr(equals + 1), ','))
            options.rules.processors[item].push_back(processorNamed(name));
    }
}

// "NAME" or "NAME=FILE".
void readAllowances(Options& options) {
    std::vector<std::string> names;
    for (const Kind* each : kinds::ALL)
        names.push_back(each->id);
    for (const std::string& text : options.allow) {
        const std::size_t equals = text.find('=');
        const std::string name = text.substr(0, equals);
        if (std::find(names.begin(), names.end(), name) == names.end())
            throw CLI::ValidationError("--allow",
                                       "there is no finding \"" + name + "\"" + suggest(name, names));
        options.rules.allowances.push_back(
            {name, equals == text.npos ? "" : text.substr(equals + 1), "allowed on the command line"});
    }
}

void complete(Options& options) {
    options.isImage = options.command == Command::Convert || options.command == Command::Show ||
                      (options.command == Command::Check && isImageFile(options.path));
    if (options.isImage && !options.modules.empty())
        throw CLI::ValidationError("--modules", "it is for packages");
    if (options.isImage && !options.keys.empty())
        throw CLI::ValidationError("--keys", "it is for packages");
    if (!options.isImage && options.serial)
        throw CLI::ValidationError("--serial", "it is for a HEX image");
    readProcessors(options);
    readAllowances(options);
    options.format = options.json ? Format::Json : options.format;
    options.rules.anyKernel = options.kernel == "any";
    options.rules.machine = findMachine(options.machine);
    if (options.rules.machine == nullptr && options.machine != "any")
        throw CLI::ValidationError("--arch",
                                   "\"" + options.machine + "\" is none of " + machineNames() + ", any");
}

// How findings are told.
void addFormat(CLI::App& command, Options& options) {
    static const std::map<std::string, Format> FORMATS = {
        {"text", Format::Text}, {"json", Format::Json}, {"sarif", Format::Sarif}, {"github", Format::Github}};
    command
        .add_option("--format", options.format,
                    "text, json, sarif (for code reviews) or github (for its actions)")
        ->transform(CLI::CheckedTransformer(FORMATS));
    command.add_flag("--json", options.json, "for programs: --format json");
    command.add_flag("--strict", options.strict, "warnings count as errors");
}

void addRules(CLI::App& command, Options& options) {
    command.add_option("--arch", options.machine,
                       "machine that programs must be for (armhf): " + machineNames() + ", any");
    command.add_option("--kernel", options.kernel, "\"any\": take any file for a kernel")
        ->check(CLI::IsMember({"any", "arm"}));
    command
        .add_option("--card-size", options.rules.cardSize, "free space of the panel's card, as 512M or 2G")
        ->transform(CLI::AsSizeValue(true));
    command.add_option("--allow", options.allow, "NAME or NAME=FILE: a finding that is meant");
    command.add_option("--processor", options.processors,
                       "KIND of an image, or ITEM=KIND,... by hardware revision; else the most likely one");
}

CLI::App& addBuild(CLI::App& app, Options& options) {
    CLI::App& build = *app.add_subcommand("build", "Make the package that a description asks for");
    build.add_option("DIR", options.path, "directory with package.json")->required();
    build.add_option("-o,--output", options.output, "directory for the package")->required();
    build.add_option("--sign", options.key, "secret key of minisign, which asks for its password")
        ->check(CLI::ExistingFile);
    build.add_flag("--force", options.force, "build even what the checks refuse");
    addRules(build, options);
    addFormat(build, options);
    build.footer(BUILD_EXAMPLE);
    return build;
}

CLI::App& addCheck(CLI::App& app, Options& options) {
    CLI::App& check =
        *app.add_subcommand("check", "Find what the panel would refuse, and what it would accept in silence");
    check
        .add_option("PATH", options.path,
                    "package, directory with one, unpacked package, description or firmware image")
        ->required();
    addRules(check, options);
    check.add_option("--modules", options.modules, "JSON inventory of the modules that must find an image");
    check
        .add_option("--keys", options.keys, "directory of public keys: is the package signed by one of them?")
        ->check(CLI::ExistingDirectory);
    check.add_flag("--serial", options.serial, "the image is for the module on the serial bootloader");
    addFormat(check, options);
    check.footer(CHECK_EXAMPLE);
    return check;
}

// What an update would find.
void addPanel(CLI::App& command, Options& options) {
    command.add_option("--installed", options.installed,
                       "the panel's system.manifest; else everything is unknown");
    command.add_option("--modules", options.modules,
                       "inventory of the modules; else all are there, of revision 0 and unknown version");
    command.add_option("--baud", options.baud, "rate of the bus line (115200)")
        ->check(CLI::Range(300U, 4000000U));
}

CLI::App& addPlan(CLI::App& app, Options& options) {
    CLI::App& plan =
        *app.add_subcommand("plan", "Tell what the panel would do with a package, and how long on the bus");
    plan.add_option("PATH", options.path, "package, directory with one, unpacked package or description")
        ->required();
    addRules(plan, options);
    addPanel(plan, options);
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

CLI::App& addConvert(CLI::App& app, Options& options) {
    CLI::App& convert = *app.add_subcommand(
        "convert", "Make an Intel HEX image, as the panel reads it, of an ELF file, S-records or Intel HEX");
    convert.add_option("IN", options.path, "the linker's output")->required();
    convert.add_option("-o,--output", options.output, "HEX file to write; - for standard output")->required();
    convert.add_option("--processor", options.processors, "KIND of processor; else the most likely one");
    convert.add_flag("--serial", options.serial, "the image is for the module on the serial bootloader");
    convert.add_flag("!--no-fill", options.fill,
                     "leave used pages as they are, instead of filling gaps with FF");
    convert.add_flag("--crop", options.crop, "drop what lies outside of the processor's flash, and say what");
    convert.footer(CONVERT_EXAMPLE);
    return convert;
}

CLI::App& addInfo(CLI::App& app, Options& options) {
    CLI::App& info = *app.add_subcommand(
        "info", "List a package's items, versions, files, sizes, digests, processors, pages");
    info.add_option("PATH", options.path, "package, directory with one, unpacked package or description")
        ->required();
    info.add_option("--processor", options.processors, "ITEM=KIND,... by hardware revision");
    info.add_flag("--json", options.json, "for programs");
    return info;
}

CLI::App& addDiff(CLI::App& app, Options& options) {
    CLI::App& diff =
        *app.add_subcommand("diff", "List what is different in items, versions, files and pages");
    diff.add_option("OLD", options.old, "package in any form")->required();
    diff.add_option("NEW", options.path, "package in any form")->required();
    diff.add_option("--processor", options.processors, "ITEM=KIND,... by hardware revision");
    return diff;
}

CLI::App& addReport(CLI::App& app, Options& options) {
    CLI::App& report = *app.add_subcommand(
        "report", "Write a page about a package: content, findings, flash, the update in time");
    report.add_option("PATH", options.path, "package, directory with one, unpacked package or description")
        ->required();
    report.add_option("-o,--output", options.output, "HTML file to write; - for standard output")->required();
    report.add_option("--against", options.old, "package in any form to show the changes of");
    addRules(report, options);
    addPanel(report, options);
    return report;
}

CLI::App& addSupport(CLI::App& app, Options& options) {
    CLI::App& support = *app.add_subcommand(
        "support", "Tell what a panel has copied to a stick: updates, failures, the bus, what was installed");
    support.add_option("DIR", options.path, "a folder PANEL-TIME of the stick's keldra_logs")
        ->required()
        ->check(CLI::ExistingDirectory);
    support.add_option("-o,--output", options.output, "write an HTML page instead; - for standard output");
    return support;
}

CLI::App& addInit(CLI::App& app, Options& options) {
    CLI::App& init = *app.add_subcommand("init", "Write examples of package.json and inventory.json");
    init.add_option("DIR", options.path, "directory to write them to (the current one)");
    return init;
}

void addCompletion(CLI::App& app, std::string& shell) {
    CLI::App& completion =
        *app.add_subcommand("completion", "Write the script that completes command lines in a shell");
    completion.add_option("SHELL", shell, "bash, zsh or fish")
        ->required()
        ->check(CLI::IsMember({"bash", "zsh", "fish"}));
}

std::vector<std::string> namesOf(const std::vector<CLI::App*>& commands) {
    std::vector<std::string> names;
    for (const CLI::App* each : commands)
        names.push_back(each->get_name());
    return names;
}

// What the library would call an unexpected argument.
void requireCommand(int argc, char** argv, const std::vector<std::string>& names) {
    const std::string first = argc > 1 ? argv[1] : "-";
    if (!first.starts_with('-') && std::find(names.begin(), names.end(), first) == names.end())
        throw CLI::ValidationError("keldra-package",
                                   "there is no command \"" + first + "\"" + suggest(first, names));
}

} // namespace

std::optional<Options> parseOptions(int argc, char** argv, Status& status) {
    Options options;
    CLI::App app(
        "Builds, checks and predicts update packages for the control panel.\n"
        "Kinds of processors: pic24, pic24-old, pic32-records, pic32-pages, stm32f0, stm32f3, stm32f4.\n"
        "Exit status: 0 fine, 1 a bad package, 2 a wrong command line, 3 the work could not be done.",
        "keldra-package");
    app.require_subcommand(1);
    app.set_version_flag("--version", "keldra-package " KELDRA_VERSION);
    app.footer("keldra-package COMMAND --help shows its options and examples.");
    const std::vector<const CLI::App*> commands = {
        &addBuild(app, options),   &addCheck(app, options), &addPlan(app, options), &addShow(app, options),
        &addConvert(app, options), &addInfo(app, options),  &addDiff(app, options), &addReport(app, options),
        &addSupport(app, options), &addInit(app, options)};
    std::string shell;
    addCompletion(app, shell);
    try {
        requireCommand(argc, argv, namesOf(app.get_subcommands([](const CLI::App*) { return true; })));
        app.parse(argc, argv);
        if (!shell.empty()) {
            std::cout << completionScript(app, shell);
            return std::nullopt;
        }
        const auto chosen = std::find_if(commands.begin(), commands.end(),
                                         [](const CLI::App* each) { return each->parsed(); });
        options.command = static_cast<Command>(chosen - commands.begin());
        complete(options);
    } catch (const CLI::ParseError& error) {
        status = app.exit(error) == 0 ? Status::Fine : Status::Misuse;
        return std::nullopt;
    }
    return options;
}

} // namespace package
