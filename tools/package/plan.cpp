#include "plan.h"

#include "hexCheck.h"

#include <algorithm>
#include <utility>

namespace package {

namespace fs = std::filesystem;

namespace {

class Planner {
public:
    Planner(const Package& package, const Inventory& inventory, bool force, const ProcessorChoice& choice)
        : package_(package), inventory_(inventory), force_(force), choice_(choice) {}

    Step visit(const Stop& stop);

private:
    const std::vector<Entry>& entriesOf(const Stop& stop) const {
        static const std::vector<Entry> none;
        const Item* item = findItem(package_.items(), stop.item);
        return item != nullptr ? item->entries : none;
    }
    Module moduleOf(const Stop& stop) const;
    bool compare(Step& step, const std::vector<Entry>& entries);
    void visitHost(Step& step);
    void visitModule(Step& step, const Module& module);
    void useEntry(Step& step, const Entry& entry);
    void programModule(Step& step, const Module& module, const fs::path& path);
    static void fail(Step& step, const std::string& reason) {
        step.decision = Decision::Fails;
        step.reason = reason;
    }

    const Package& package_;
    const Inventory& inventory_;
    const bool force_;
    const ProcessorChoice& choice_;
    bool askedInVain_ = false; // the module before
};

Step Planner::visit(const Stop& stop) {
    Step step;
    step.stop = &stop;
    step.offered = !entriesOf(stop).empty();
    if (stop.module == nullptr)
        visitHost(step);
    else
        visitModule(step, moduleOf(stop));
    return step;
}

// The version test that all items share; true for an update.
bool Planner::compare(Step& step, const std::vector<Entry>& entries) {
    if (step.revision >= entries.size()) {
        step.decision = Decision::NoImage;
        return false;
    }
    step.to = entries[step.revision].version;
    step.decision = force_ || step.from != step.to ? Decision::Update : Decision::UpToDate;
    return step.decision == Decision::Update;
}

void Planner::useEntry(Step& step, const Entry& entry) {
    const fs::path path = package_.pathOf(entry);
    const Content content = findItem(step.stop->item)->content;
    std::error_code broken;
    step.file = entry.file;
    if (content != Content::Firmware && packageRules::standsForNoFile(entry.file))
        return; // counts as done
    if (packageRules::leadsOutside(entry.file) ||
        (content == Content::Image && !packageRules::isHarmless(entry.file)))
        fail(step, "the panel refuses the name \"" + entry.file + "\"");
    else if (fs::is_regular_file(path, broken) ||
             (content == Content::Files && fs::is_directory(path, broken)))
        step.bytes = sizeOf(path);
    else
        fail(step, "\"" + entry.file + "\" is not in the package");
}

void Planner::visitHost(Step& step) {
    const auto known = inventory_.installed.find(step.stop->item);
    if (known != inventory_.installed.end())
        step.from = known->second;
    const std::vector<Entry>& entries = entriesOf(*step.stop);
    if (compare(step, entries))
        useEntry(step, entries[step.revision]);
}

// Without an inventory: present, of hardware revision 0 and unknown version, if there is something for it.
Module Planner::moduleOf(const Stop& stop) const {
    Module module;
    module.serial = findItem(stop.item)->serial;
    const std::vector<Entry>& entries = entriesOf(stop);
    if (!entries.empty() && !choice_.contains(stop.item))
        module.processor = findProcessor(entries.front().processor);
    if (inventory_.modules) {
        const auto known = inventory_.modules->find(stop.module->name);
        module.silent = known == inventory_.modules->end();
        if (!module.silent)
            module = known->second;
    }
    if (const auto chosen = choice_.find(stop.item); module.processor == nullptr && chosen != choice_.end())
        module.processor =
            chosen->second[std::min<std::size_t>(pickedRevision(module), chosen->second.size() - 1)];
    return module;
}

void Planner::visitModule(Step& step, const Module& module) {
    const std::vector<Entry>& entries = entriesOf(*step.stop);
    const bool serialItem = findItem(step.stop->item)->serial;
    if (std::exchange(askedInVain_, module.silent))
        step.bus.afterAbsentModule();
    if (module.silent) {
        step.decision = Decision::NotFound;
        step.bus.absentModule();
        return;
    }
    const bool identifies = module.processor == nullptr || module.processor->identifies;
    step.bus.enterBootloader(identifies);
    if (module.serial != serialItem || (serialItem && !identifies)) {
        step.decision = Decision::NotFound;
        return;
    }
    step.from = module.version;
    step.revision = pickedRevision(module);
    if (!identifies && !module.knownVersion) {
        step.decision = entries.empty() ? Decision::NotOffered : Decision::Update;
        step.to = entries.empty() ? "" : entries[0].version;
    } else {
        compare(step, entries);
    }
    if (step.decision == Decision::Update) {
        useEntry(step, entries[step.revision]);
        if (step.decision == Decision::Update)
            programModule(step, module, package_.pathOf(entries[step.revision]));
    }
    if (step.stop->module->resetAfterUpdate && step.decision != Decision::Fails &&
        step.decision != Decision::NotOffered)
        step.bus.systemCommand();
}

void Planner::programModule(Step& step, const Module& module, const fs::path& path) {
    const Processor* processor = module.processor;
    try {
        if (processor == nullptr) {
            processor = guessProcessor(path);
            step.assumed = processor;
        }
        if (processor == nullptr || sizeOf(path) > LARGEST_IMAGE)
            fail(step, "no Intel HEX, or far too large");
        else if (!module.serial && !processor->onCan)
            fail(step, std::string("unsupported processor ") + processor->name);
        else
            step.bus += costOfImage(path, *processor, module.serial);
    } catch (const Failure& failure) {
        fail(step, failure.what());
    }
}

} // namespace

Plan makePlan(const Package& package, const Inventory& inventory, bool force, const ProcessorChoice& choice) {
    Plan plan;
    Planner planner(package, inventory, force, choice);
    plan.bus.systemCommand(); // the whole system into update mode
    bool failed = false;
    for (const Stop& stop : visitingOrder()) {
        if (failed) {
            plan.steps.push_back({&stop, Decision::NotReached, {}, {}, {}, {}, 0, false, 0, {}, nullptr});
            continue;
        }
        const Step& step = plan.steps.emplace_back(planner.visit(stop));
        failed = step.decision == Decision::Fails;
        plan.restarts =
            plan.restarts || (stop.item == std::string("updater") && step.decision == Decision::Update);
        plan.bus += step.bus;
    }
    return plan;
}

} // namespace package
