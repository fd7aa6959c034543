#include "options.h"

#include "commandLine/suggest.h"
#include "fileType.h"
#include "findingKinds.h"
#include "tarball.h"
#include "version.h"

#include <algorithm>
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
constexpr const char* KINDS = "ITEM=KIND,... by hardware revision";
constexpr const char* SHOW_EXAMPLE = R"(Example:
  keldra-package show slave.hex --processor stm32f3)";

const Processor* processorNamed(const std::string& name) {
    const Processor* found = findProcessor(name);
    if (found == nullptr)
        throw CLI::ValidationError("--processor", "\"" + name + "\" is no kind of processor" +
                                                      commandLine::suggest(name, processorNames()));
    return found;
}

// A firmware image; what is no package is taken for one, too, so that it is said what it is.
bool isImageFile(const std::filesystem::path& path) {
    const FileType type = natureOf(path).type;
    const std::filesystem::path name = path.filename();
    const bool isPart =
        name == DESCRIPTION || name == MANIFEST || name == ARCHIVE || path.extension() == ".tgz";
    return !isPart && type != FileType::Absent && type != FileType::Directory && type != FileType::Json &&
           !isArchive(path);
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
                                                          commandLine::suggest(item, itemNames()));
        for (const std::string& name : CLI::detail::split(text.substr(equals + 1), ','))
            options.rules.processors[item].push_back(processorNamed(name));
    }
}

// "NAME" or "NAME=FILE".
void readAllowances(Options& options) {
    for (const std::string& text : options.allow) {
        const std::size_t equals = text.find('=');
        const std::string name = text.substr(0, equals);
        if (const std::string objection = kinds::objectionToAllowing(name); !objection.empty())
            throw CLI::ValidationError("--allow", objection);
        if (equals + 1 == text.size())
            throw CLI::ValidationError("--allow", "\"" + text + "\" names no file");
        options.rules.allowances.push_back(
            {name, equals == text.npos ? "" : text.substr(equals + 1), "allowed on the command line"});
    }
}

// How findings are told.
void addFormat(CLI::App& command, Options& options) {
    static const std::map<std::string, Format> FORMATS = {
        {"text", Format::Text}, {"json", Format::Json}, {"sarif", Format::Sarif}, {"github", Format::Github}};
    command
        .add_option_function<std::string>(
            "--format", [&options](const std::string& name) { options.format = FORMATS.at(name); },
            "how findings are told: sarif is for code reviews, github for its actions")
        ->check(CLI::IsMember(&FORMATS));
    command.add_flag("--json", options.json, "for programs: --format json");
    command.add_flag("--strict", options.strict, "warnings count as errors");
}

void addRules(CLI::App& command, Options& options, const std::string& kinds) {
    std::vector<std::string> machines = machineNames();
    machines.push_back("any");
    command.add_option("--arch", options.machine, "machine that programs must be for (armhf)")
        ->check(CLI::IsMember(machines));
    command.add_option("--kernel", options.kernel, "\"any\": take any file for a kernel")
        ->check(CLI::IsMember({"any", "arm"}));
    command
        .add_option("--card-size", options.rules.cardSize, "free space of the panel's card, as 512M or 2G")
        ->transform(CLI::AsSizeValue(true));
    command.add_option("--allow", options.allow, "NAME or NAME=FILE: a finding that is meant");
    command.add_option("--processor", options.processors, kinds + "; else the most likely one");
}

CLI::App& addCommand(CLI::App& app, Options& options, const char* name, Command command, const char* text) {
    CLI::App& added = *app.add_subcommand(name, text);
    added.callback([&options, command] { options.command = command; });
    return added;
}

void addPackage(CLI::App& command, Options& options) {
    command.add_option("PATH", options.path, "package, directory with one, unpacked package or description")
        ->required();
}

// What only the modules of a package need to be judged by.
void addKinds(CLI::App& command, Options& options) {
    command.add_option("--processor", options.processors, KINDS);
}

// What a single image is judged by.
void addKind(CLI::App& command, Options& options) {
    command.add_option("--processor", options.processors, "KIND of processor; else the most likely one");
    command.add_flag("--serial", options.serial, "the image is for the module on the serial bootloader");
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

void addBuild(CLI::App& app, Options& options) {
    CLI::App& build =
        addCommand(app, options, "build", Command::Build, "Make the package that a description asks for");
    build.add_option("DIR", options.path, "directory with package.json")->required();
    build.add_option("-o,--output", options.output, "directory for the package")->required();
    build.add_option("--sign", options.key, "secret key of minisign, which asks for its password")
        ->check(CLI::ExistingFile);
    build.add_flag("--force", options.force, "build even what the checks refuse");
    addRules(build, options, KINDS);
    addFormat(build, options);
    build.footer(BUILD_EXAMPLE);
}

void addCheck(CLI::App& app, Options& options) {
    CLI::App& check = addCommand(app, options, "check", Command::Check,
                                 "Find what the panel would refuse, and what it would accept in silence");
    check
        .add_option("PATH", options.path,
                    "package, directory with one, unpacked package, description or firmware image")
        ->required();
    addRules(check, options, std::string("KIND of an image, or ") + KINDS);
    check.add_option("--modules", options.modules, "inventory of the modules that must find an image");
    check
        .add_option("--keys", options.keys, "directory of public keys: is the package signed by one of them?")
        ->check(CLI::ExistingDirectory);
    check.add_flag("--serial", options.serial, "the image is for the module on the serial bootloader");
    addFormat(check, options);
    check.footer(CHECK_EXAMPLE);
}

void addPlan(CLI::App& app, Options& options) {
    CLI::App& plan = addCommand(app, options, "plan", Command::Plan,
                                "Tell what the panel would do with a package, and how long on the bus");
    addPackage(plan, options);
    addRules(plan, options, KINDS);
    addPanel(plan, options);
    plan.add_flag("--force", options.force, "update equal versions, too");
    plan.add_flag("--json", options.json, "for programs");
    plan.footer(PLAN_EXAMPLE);
}

void addShow(CLI::App& app, Options& options) {
    CLI::App& show = addCommand(app, options, "show", Command::Show, "Draw an image's pages");
    show.add_option("IMAGE", options.path, "HEX file")->required();
    addKind(show, options);
    show.footer(SHOW_EXAMPLE);
}

void addConvert(CLI::App& app, Options& options) {
    CLI::App& convert =
        addCommand(app, options, "convert", Command::Convert,
                   "Make an Intel HEX image, as the panel reads it, of an ELF file, S-records or Intel HEX");
    convert.add_option("IN", options.path, "the linker's output")->required();
    convert.add_option("-o,--output", options.output, "HEX file to write; - for standard output")->required();
    addKind(convert, options);
    convert.add_flag("!--no-fill", options.fill,
                     "leave used pages as they are, instead of filling gaps with FF");
    convert.add_flag("--crop", options.crop, "drop what lies outside of the processor's flash, and say what");
    convert.footer(CONVERT_EXAMPLE);
}

void addInfo(CLI::App& app, Options& options) {
    CLI::App& info = addCommand(app, options, "info", Command::Info,
                                "List a package's items, versions, files, sizes, digests, processors, pages");
    addPackage(info, options);
    addKinds(info, options);
    info.add_flag("--json", options.json, "for programs");
}

void addDiff(CLI::App& app, Options& options) {
    CLI::App& diff = addCommand(app, options, "diff", Command::Diff,
                                "List what is different in items, versions, files and pages");
    diff.add_option("OLD", options.old, "package in any form")->required();
    diff.add_option("NEW", options.path, "package in any form")->required();
    addKinds(diff, options);
}

void addReport(CLI::App& app, Options& options) {
    CLI::App& report =
        addCommand(app, options, "report", Command::Report,
                   "Write a page about a package: content, findings, flash, the update in time");
    addPackage(report, options);
    report.add_option("-o,--output", options.output, "HTML file to write; - for standard output")->required();
    report.add_option("--against", options.old, "package in any form to show the changes of");
    addRules(report, options, KINDS);
    addPanel(report, options);
}

void addSupport(CLI::App& app, Options& options) {
    CLI::App& support =
        addCommand(app, options, "support", Command::Support,
                   "Tell what a panel has copied to a stick: updates, failures, the bus, what was installed");
    support.add_option("DIR", options.path, "a folder PANEL-TIME of the stick's keldra_logs")
        ->required()
        ->check(CLI::ExistingDirectory);
    support.add_option("-o,--output", options.output, "write an HTML page instead; - for standard output");
}

void addInit(CLI::App& app, Options& options) {
    CLI::App& init =
        addCommand(app, options, "init", Command::Init, "Write examples of package.json and inventory.json");
    init.add_option("DIR", options.path, "directory to write them to (the current one)");
}

void addCompletion(CLI::App& app, Options& options) {
    CLI::App& completion = addCommand(app, options, "completion", Command::Completion,
                                      "Write the script that completes command lines in a shell");
    completion.add_option("SHELL", options.shell, "bash, zsh or fish")
        ->required()
        ->check(CLI::IsMember({"bash", "zsh", "fish"}));
}

} // namespace

void declare(CLI::App& app, Options& options) {
    app.description(
        "Builds, checks and predicts update packages for the control panel.\n"
        "Kinds of processors: " +
        CLI::detail::join(processorNames(), ", ") +
        ".\n"
        "Exit status: 0 fine, 1 a bad package, 2 a wrong command line, 3 the work could not be done.");
    app.require_subcommand(1);
    app.set_version_flag("--version", "keldra-package " KELDRA_VERSION);
    app.footer("keldra-package COMMAND --help shows its options and examples.");
    for (const auto add : {addBuild, addCheck, addPlan, addShow, addConvert, addInfo, addDiff, addReport,
                           addSupport, addInit, addCompletion})
        add(app, options);
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
}

} // namespace package
