#include "build.h"
#include "commandLine/run.h"
#include "completion.h"
#include "convert.h"
#include "examples.h"
#include "fileType.h"
#include "hexCheck.h"
#include "htmlReport.h"
#include "lib/format.h"
#include "options.h"
#include "packageInfo.h"
#include "plan.h"
#include "platform.h"
#include "report.h"
#include "show.h"
#include "signing.h"
#include "support.h"
#include "version.h"

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>

namespace {

using namespace package;
namespace fs = std::filesystem;

void print(const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), stdout); // a name may have a NUL in it
}

// Behind what was printed before.
void complain(const std::string& text) {
    std::fflush(stdout);
    std::fprintf(stderr, "keldra-package: %s\n", text.c_str());
}

bool isColoured() {
    return platform::isTerminal(platform::Stream::Output) && std::getenv("NO_COLOR") == nullptr;
}

// A choice that nothing in the package is checked with is a mistake.
void requireUse(const ProcessorChoice& choice, const Package& package) {
    for (const auto& [name, kinds] : choice) {
        const Item* item = findItem(package.items(), name);
        const std::size_t files = item != nullptr ? item->entries.size() : 0;
        if (kinds.size() > files)
            throw std::invalid_argument(format("--processor: %zu kinds for the %zu files of \"%s\"",
                                               kinds.size(), files, name.c_str()));
    }
}

Status build(const Options& options) {
    Findings findings;
    const bool built = buildPackage(
        {options.path, options.output, options.force, options.rules, options.strict, options.key}, findings);
    if (!findings.all().empty() || !findings.allowed().empty() || options.format != Format::Text)
        print(reportFindings(findings, options.format, options.path.string(), isColoured()));
    if (!built) {
        complain(findings.leavesOut()
                     ? "nothing was built; without what could not be read, it would be another package"
                     : "nothing was built (--force builds what only the checks refuse)");
        return Status::Bad;
    }
    if (options.format == Format::Text)
        print("built " + (options.output / ARCHIVE).string() + "\n");
    return Status::Fine;
}

Status verdict(const Findings& findings, bool strict) {
    return findings.errors() != 0 || (strict && findings.warnings() != 0) ? Status::Bad : Status::Fine;
}

std::string checkImage(const Options& options, Findings& findings) {
    const std::string name = options.path.lexically_normal().string();
    const Processor* processor = options.processor;
    if (processor == nullptr)
        processor = guessProcessor(options.path);
    const bool serial = options.serial || (processor != nullptr && !processor->onCan);
    checkHex(options.path, name, processor, serial, findings);
    if (processor == nullptr || options.processor != nullptr)
        return "";
    return name + ": judged for " + processor->name + (serial ? " on the serial line" : "") +
           ", the most likely processor (--processor names another)\n";
}

Status check(const Options& options) {
    Findings findings;
    std::string assumed;
    std::unique_ptr<Package> package;
    if (options.isImage) {
        assumed = checkImage(options, findings);
    } else {
        package = std::make_unique<Package>(options.path, findings);
        checkContents(*package, options.rules, findings);
        if (!options.keys.empty()) {
            checkSignature(options.path, options.keys, findings);
            if (findings.errors() == 0) // no link leads out of it
                hasVerifyingUpdater(*package, findings);
        }
        if (const Inventory inventory = readInventory({}, options.modules); inventory.modules)
            checkModules(*package, *inventory.modules, findings);
        findings.allow(package->allowances());
    }
    findings.allow(options.rules.allowances);
    print((options.format == Format::Text ? assumed : "") +
          reportFindings(findings, options.format, options.path.string(), isColoured()));
    if (findings.errors() == 0 && package)
        requireUse(options.rules.processors, *package);
    return verdict(findings, options.strict);
}

Status plan(const Options& options) {
    Findings findings;
    const Package package(options.path, findings);
    findings.allow(options.rules.allowances);
    if (findings.errors() != 0) { // it is refused as a whole, or read in ways that are not followed here
        print(reportFindings(findings, options.format, options.path.string(), isColoured()));
        complain("no plan for a package with such errors");
        return Status::Bad;
    }
    if (package.items().empty())
        throw Failure(options.path.string() + ": nothing in it to plan with (keldra-package check says why)");
    checkContents(package, options.rules, findings);
    findings.allow(options.rules.allowances);
    findings.allow(package.allowances());
    requireUse(options.rules.processors, package);
    const Plan plan = makePlan(package, readInventory(options.installed, options.modules), options.force,
                               options.rules.processors);
    const std::string more = findings.errors() != 0 ? " (keldra-package check tells them)\n" : "\n";
    print(options.json ? planJson(plan, findings, options.baud)
                       : counts(findings) + more + planText(plan, options.baud));
    const Decision last = plan.steps.back().decision;
    return findings.errors() != 0 || last == Decision::NotReached || last == Decision::Fails ? Status::Bad
                                                                                             : Status::Fine;
}

Status show(const Options& options) {
    const bool serial = options.serial || (options.processor != nullptr && !options.processor->onCan);
    print(drawImage(options.path, options.processor, serial, isColoured()));
    return Status::Fine;
}

// Puts a text where the command line wants it.
void deliver(const std::string& text, const fs::path& target) {
    if (target == "-") {
        print(text);
        return;
    }
    if (fs::exists(target) && !fs::is_regular_file(target))
        throw Failure(target.string() + ": is no plain file (- writes to standard output)");
    const fs::path place = fs::weakly_canonical(target); // behind a link, what it leads to
    const fs::path besides = place.string() + ".new";
    writeFile(besides, text);
    fs::rename(besides, place);
}

Status convert(const Options& options) {
    std::error_code different;
    if (fs::equivalent(options.path, options.output, different))
        throw std::invalid_argument(options.output.string() + ": would replace what it is made of");
    try {
        const Conversion conversion{options.processor, options.serial, options.fill, options.crop};
        const Converted made = convertImage(options.path, conversion);
        deliver(made.text, options.output);
        if (options.output != "-")
            print(options.output.string() + ": " + summaryOf(made, conversion) + "\n");
        else
            complain(summaryOf(made, conversion)); // the image alone goes to standard output
        return Status::Fine;
    } catch (const BadFile& error) {
        const std::string line = error.line() != 0 ? ":" + std::to_string(error.line()) : "";
        std::fprintf(stderr, "%s%s: error: %s\n", options.path.c_str(), line.c_str(), error.what());
        return Status::Bad;
    }
}

Status info(const Options& options) {
    Findings findings;
    const Package package(options.path, findings);
    const PackageInfo held = inspect(package, options.rules.processors);
    print(options.json ? infoJson(held) : infoText(held));
    if (held.entries.empty() && !options.json)
        print(reportFindings(findings, Format::Text, {}, isColoured()));
    else if (findings.errors() != 0)
        complain(counts(findings) + "; keldra-package check tells more");
    return verdict(findings, false);
}

// Says what can't be seen of a package that was not read, or not in whole.
Status wasRead(const Findings& findings, const fs::path& path) {
    if (findings.errors() != 0)
        complain(path.string() + ": " + counts(findings) + "; keldra-package check tells more");
    return verdict(findings, false);
}

Status diff(const Options& options) {
    Findings old;
    Findings found;
    const Package before(options.old, old);
    const Package after(options.path, found);
    print(diffText(inspect(before, options.rules.processors), inspect(after, options.rules.processors)));
    const Status status = wasRead(old, options.old);
    return wasRead(found, options.path) == Status::Fine ? status : Status::Bad;
}

Status report(const Options& options) {
    Findings findings;
    const Package package(options.path, findings);
    const bool followed = findings.errors() == 0 && !package.items().empty();
    checkContents(package, options.rules, findings);
    findings.allow(options.rules.allowances);
    findings.allow(package.allowances());
    std::optional<Plan> plan;
    if (followed)
        plan = makePlan(package, readInventory(options.installed, options.modules), options.force,
                        options.rules.processors);
    const PackageInfo held = inspect(package, options.rules.processors);
    std::optional<PackageInfo> old;
    Findings against;
    if (!options.old.empty())
        old = inspect(Package(options.old, against), options.rules.processors);
    deliver(htmlReport({options.path.filename().empty() ? options.path.parent_path().filename().string()
                                                        : options.path.filename().string(),
                        held, findings, plan ? &*plan : nullptr, options.baud, old ? &*old : nullptr,
                        options.old.string(), "keldra-package " KELDRA_VERSION}),
            options.output);
    const Status status = wasRead(against, options.old);
    return status == Status::Fine ? verdict(findings, false) : status;
}

Status support(const Options& options) {
    const SupportPage page = readEvidence(options.path);
    if (options.output.empty())
        print(supportText(page));
    else
        deliver(supportHtml(page, "keldra-package " KELDRA_VERSION), options.output);
    return Status::Fine;
}

Status init(const Options& options) {
    const fs::path directory = options.path.empty() ? "." : options.path;
    const std::pair<const char*, const char*> examples[] = {{"package.json", PACKAGE_EXAMPLE},
                                                            {"inventory.json", INVENTORY_EXAMPLE}};
    for (const auto& [name, text] : examples) {
        if (fs::exists(directory / name))
            throw Failure((directory / name).string() + ": is there already");
    }
    fs::create_directories(directory);
    for (const auto& [name, text] : examples) {
        writeFile(directory / name, text);
        print("wrote " + (directory / name).lexically_normal().string() + "\n");
    }
    return Status::Fine;
}

Status run(const Options& options, const CLI::App& app) {
    switch (options.command) {
    case Command::Build:
        return build(options);
    case Command::Check:
        return check(options);
    case Command::Plan:
        return plan(options);
    case Command::Show:
        return show(options);
    case Command::Convert:
        return convert(options);
    case Command::Info:
        return info(options);
    case Command::Diff:
        return diff(options);
    case Command::Report:
        return report(options);
    case Command::Support:
        return support(options);
    case Command::Init:
        return init(options);
    case Command::Completion:
        print(completionScript(app, options.shell));
        return Status::Fine;
    }
    return Status::Failed;
}

} // namespace

int main(int argc, char** argv) {
    std::setlocale(LC_CTYPE, "C.UTF-8"); // for names in archives that say them in it
    Options options;
    CLI::App app("", "keldra-package");
    declare(app, options);
    return commandLine::run(app, argc, argv, static_cast<int>(Status::Failed), [&] {
        complete(options);
        platform::watchInterrupts();
        return static_cast<int>(run(options, app));
    });
}
