#include "panelRun.h"

#include "sim/panel/bed.h"
#include "system/updateCore.h"

#include <QCoreApplication>
#include <algorithm>
#include <fstream>
#include <memory>
#include <sstream>
#include <unistd.h>

namespace {

const char* const PACKAGE = "/keldra/tmp/keldra_update/";
constexpr unsigned long LONGEST_RUN_MS = 1'200'000; // a line that loses every seventh row costs 9 minutes
constexpr unsigned BETWEEN_STARTS = 5;              // seconds

/** What only a module that did not answer, or refused, explains. */
const char* const REASONS[] = {"Could not erase range", "Page retry count exceeded",
                               "Mem Erase Tries Exceeded", "Program retry count exceeded",
                               "Could not switch system to update mode"};

/** What the panel may do against the protocol only when it was led to by a fault, or by a slow machine. */
const char* const CONSEQUENCES[] = {
    "without an open page", "was to come", "write page before any page", "announced with",
    "without being erased", "bad record",  "bytes outside a frame",      "damaged frame"};

bool containsOneOf(const std::string& text, const auto& parts) {
    return std::any_of(std::begin(parts), std::end(parts),
                       [&](const char* part) { return text.find(part) != std::string::npos; });
}

class Run {
public:
    Run(Plan requested, const std::string& program) : plan_(std::move(requested)) {
        // Not strict, a module whose identification was damaged may pass for one with an old bootloader.
        panel::configure(panel::SimulatedBus::PORT, 115200,
                         "log_max_size = 10000000\nstrict_bootloaders = 1\n");
        std::mt19937_64 random(plan_.seed);
        for (Target& target : plan_.targets) {
            target.image = makeImage(*target.kind, random, target.smallPages);
            panel::put(PACKAGE + target.name + ".hex", hexFile(*target.kind, target.image, random));
            if (target.inventory.find("identity-ms") != std::string::npos) {
                target.secondImage = makeImage(*target.kind, random, target.smallPages);
                panel::put(PACKAGE + target.name + "-1.hex",
                           hexFile(*target.kind, target.secondImage, random));
            }
        }
        std::string inventory;
        for (const std::string& line : inventoryOf(plan_)) {
            inventory += line + "\n";
        }
        bus_ = std::make_unique<panel::SimulatedBus>(program, inventory, busOptions());
        core_ = std::make_unique<updateCore>();
        offerPackage();
        QObject::connect(
            core_.get(), &updateCore::sendStatusMessage, core_.get(),
            [this](const QString& text) { shown_.push_back(text.toStdString()); }, Qt::DirectConnection);
        QObject::connect(
            core_.get(), &updateCore::sendUpdateDone, core_.get(),
            [this](bool success) { done_ = success ? 1 : 0; }, Qt::DirectConnection);
    }

    Result execute() {
        for (int n = 1; done_ != 1 && n <= plan_.starts; ++n) {
            if (n > 1) {
                sleep(BETWEEN_STARTS);
            }
            shown_.clear();
            done_ = -1;
            core_->startUpdate();
            if (!core_->wait(LONGEST_RUN_MS)) {
                return {Outcome::Endless, "no end after " + std::to_string(LONGEST_RUN_MS / 1000) + " s"};
            }
        }
        bus_->stop();
        return judge();
    }

private:
    std::vector<std::string> busOptions() const {
        std::vector<std::string> options = {
            "--report", "/tmp/report.txt", "--dump", "/tmp/dump",
            "--trace",  "/tmp/trace.txt",  "--seed", std::to_string(plan_.seed)};
        for (const std::string& fault : plan_.faults) {
            options.insert(options.end(), {"--fault", fault});
        }
        return options;
    }

    void offerPackage() {
        for (const Target& target : plan_.targets) {
            auto& items = core_->module(*modules::find(target.name)).base.update.items;
            items.assign(3, {target.name + ".hex", PACKAGE_VERSION}); // whatever its hardware revision
            if (!target.secondImage.empty()) {
                items[1] = {target.name + "-1.hex", SECOND_VERSION};
            }
        }
        for (const std::string& name : plan_.upToDate) {
            core_->module(*modules::find(name)).base.update.items = {{"none", PACKAGE_VERSION}};
        }
        core_->loaded = true;
    }

    Result judge() const {
        const std::string log = panel::contents("/tmp/update.log");
        if (done_ < 0) {
            return {Outcome::Wrong, "the run ended without a word"};
        }
        if (done_ == 0 && !containsOneOf(log, REASONS)) {
            return {Outcome::Untold, "failed without a reason"};
        }
        bool missing = false;
        for (const Target& target : plan_.targets) {
            const std::string name = modules::find(target.name)->shown;
            if (says(name + " not found")) {
                missing = true;
            } else if (isFinished(name)) {
                if (const std::string fault = flashFault(target); !fault.empty()) {
                    return {Outcome::Wrong, target.name + ": " + fault};
                }
            } else if (done_ == 1) {
                return {Outcome::Wrong, target.name + " was passed over"};
            }
        }
        if (const std::string fault = protocolFault(); !fault.empty()) {
            return {Outcome::Wrong, fault};
        }
        if (done_ == 0) {
            return {Outcome::Failed, shown_.back()};
        }
        return missing ? Result{Outcome::Missing, ""} : Result{Outcome::Equal, ""};
    }

    bool says(const std::string& text) const { return std::count(shown_.begin(), shown_.end(), text) > 0; }

    /** The panel went on behind this module as if it were right. */
    bool isFinished(const std::string& name) const {
        const auto last = std::find(shown_.begin(), shown_.end(), "Checking " + name + " for update");
        const bool failedHere = done_ == 0 && std::distance(last, shown_.end()) <= 2;
        return last != shown_.end() && !failedHere;
    }

    /** The image of the version that the panel said it would update to. */
    const Memory& promisedImage(const Target& target) const {
        const std::string text = std::string("Updating ") + modules::find(target.name)->shown + ": ";
        const bool isSecond = std::any_of(shown_.begin(), shown_.end(), [&](const std::string& line) {
            return line.starts_with(text) && line.ends_with(std::string("-> ") + SECOND_VERSION);
        });
        return isSecond ? target.secondImage : target.image;
    }

    std::string flashFault(const Target& target) const {
        std::set<std::uint32_t> ignored = ignoredByFault(target);
        if (!target.ignored.empty()) {
            const auto page = static_cast<std::uint32_t>(std::stoul(target.ignored, nullptr, 16));
            ignored.insert(target.kind->packed ? page * 2 : page);
        }
        return panel::difference(panel::readHexFile("/tmp/dump/" + target.name + ".hex"),
                                 flashAfter(*target.kind, promisedImage(target), ignored),
                                 target.kind->packed);
    }

    /** Pages that a fault, by the simulator's own account, made the bootloader ignore. */
    static std::set<std::uint32_t> ignoredByFault(const Target& target) {
        std::set<std::uint32_t> pages;
        std::ifstream trace("/tmp/trace.txt");
        std::string start; // the latest start of page
        for (std::string line; std::getline(trace, line);) {
            if (line.find(" start module=") != std::string::npos) {
                start = line;
            }
            if (line.find("! fault ignore-page") != std::string::npos &&
                start.find("module=" + std::to_string(modules::find(target.name)->address) + " ") !=
                    std::string::npos) {
                const auto unit = std::stoul(start.substr(start.find("address=") + 8), nullptr, 16);
                pages.insert(static_cast<std::uint32_t>(target.kind->packed ? unit * 2 : unit));
            }
        }
        return pages;
    }

    std::string protocolFault() const {
        std::istringstream report(panel::contents("/tmp/report.txt"));
        std::vector<std::string> faults;
        // A status is asked for when a reply is late.
        bool isLed = panel::contents("/tmp/trace.txt").find(" status module=") != std::string::npos;
        for (std::string line; std::getline(report, line);) {
            if (line.find("  protocol ") == 0) {
                faults.push_back(line.substr(2));
            }
            isLed =
                isLed || (line.find("injected count=") == 0 && line.find("count=0 ") == std::string::npos);
        }
        for (const std::string& fault : faults) {
            if (!isLed || !containsOneOf(fault, CONSEQUENCES)) {
                return fault;
            }
        }
        return {};
    }

    Plan plan_;
    std::unique_ptr<panel::SimulatedBus> bus_;
    std::unique_ptr<updateCore> core_;
    std::vector<std::string> shown_; ///< of the latest run; written by its thread, read when it has ended
    int done_ = -1;                  ///< -1: nothing was said; likewise
};

} // namespace

Result runPanel(const Plan& plan, const std::string& simulator) {
    return Run(plan, simulator).execute();
}
