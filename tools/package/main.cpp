#include "build.h"
#include "hexCheck.h"
#include "lib/format.h"
#include "options.h"
#include "plan.h"
#include "report.h"
#include "show.h"
#include "signing.h"

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <unistd.h>

namespace {

using namespace package;

enum Status { FINE = 0, WARNINGS = 1, ERRORS = 2 };

void print(const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), stdout); // a name may have a NUL in it
}

// A choice that nothing in the package is checked with is a mistake.
void requireUse(const ProcessorChoice& choice, const Package& package) {
    for (const auto& [name, kinds] : choice) {
        const Item* item = findItem(package.items(), name);
        const std::size_t files = item != nullptr ? item->entries.size() : 0;
        if (kinds.size() > files)
            throw Failure(format("--processor: %zu kinds for the %zu files of \"%s\"", kinds.size(), files,
                                 name.c_str()));
    }
}

int build(const Options& options) {
    Findings findings;
    const bool built = buildPackage(options.build, findings);
    if (!findings.all().empty())
        print(findingsText(findings));
    if (!built)
        throw Failure("nothing was built (--force builds all the same)");
    print("built " + (options.build.target / ARCHIVE).string() + "\n");
    return FINE;
}

int check(const Options& options) {
    Findings findings;
    std::unique_ptr<Package> package;
    if (options.isImage) {
        const bool serial = options.serial || (options.processor != nullptr && !options.processor->onCan);
        checkHex(options.path, options.path.filename().string(), options.processor, serial, findings);
    } else {
        package = std::make_unique<Package>(options.path, findings);
        checkContents(*package, options.choice, findings);
        if (!options.keys.empty())
            checkSignature(options.path, options.keys, findings);
        if (const Inventory inventory = readInventory({}, options.modules); inventory.modules)
            checkModules(*package, *inventory.modules, findings);
    }
    print(options.json ? findingsJson(findings, options.path.string()) : findingsText(findings));
    if (findings.errors() != 0)
        return ERRORS;
    if (package)
        requireUse(options.choice, *package);
    return options.strict && findings.warnings() != 0 ? WARNINGS : FINE;
}

int plan(const Options& options) {
    Findings findings;
    const Package package(options.path, findings);
    if (findings.errors() != 0) { // it is refused as a whole, or read in ways that are not followed here
        print(options.json ? findingsJson(findings, options.path.string()) : findingsText(findings));
        throw Failure("no plan for a package with such errors");
    }
    if (package.items().empty())
        throw Failure(options.path.string() + ": nothing in it to plan with (keldra-package check says why)");
    const Plan plan = makePlan(package, readInventory(options.installed, options.modules), options.force);
    print(options.json ? planJson(plan, options.baud) : planText(plan, options.baud));
    return plan.steps.back().decision == Decision::NotReached || plan.steps.back().decision == Decision::Fails
               ? ERRORS
               : FINE;
}

int show(const Options& options) {
    const bool serial = options.serial || (options.processor != nullptr && !options.processor->onCan);
    const bool colours = isatty(STDOUT_FILENO) != 0 && std::getenv("NO_COLOR") == nullptr;
    print(drawImage(options.path, options.processor, serial, colours));
    return FINE;
}

int run(const Options& options) {
    switch (options.command) {
    case Command::Build:
        return build(options);
    case Command::Check:
        return check(options);
    case Command::Plan:
        return plan(options);
    case Command::Show:
        return show(options);
    }
    return ERRORS;
}

} // namespace

int main(int argc, char** argv) {
    std::setlocale(LC_CTYPE, "C.UTF-8"); // for names in archives that say them in it
    int status = FINE;
    const auto options = parseOptions(argc, argv, status);
    if (!options)
        return status;
    try {
        watchInterrupts();
        status = run(*options);
        if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0)
            throw Failure("the output can't be written");
        return status;
    } catch (const std::filesystem::filesystem_error& error) {
        std::fprintf(stderr, "keldra-package: %s: %s\n", error.path1().c_str(),
                     error.code().message().c_str());
        return ERRORS;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "keldra-package: %s\n", error.what());
        return ERRORS;
    }
}
