#include "system/packageRules.h"

#include "build.h"
#include "findingKinds.h"
#include "plan.h"
#include "support/panel.h"
#include "system/actions/fileUpdate.h"
#include "system/actions/kernelUpdate.h"
#include "system/actions/packageFile.h"
#include "system/actions/updaterUpdate.h"

#include <filesystem>
#include <optional>

namespace fs = std::filesystem;

namespace {

const std::string STICK = "/mnt/usb";
const fs::path DATA = "/opt/test-data"; // in the sandbox

/** Puts what a folder holds, in whatever form, onto the stick in the form that the panel takes. */
void bringToStick(const fs::path& folder) {
    shell("rm -rf /keldra/tmp/* /tmp/installed " + STICK + "/*");
    if (fs::exists(folder / "package.json")) {
        package::Findings ignored; // nothing is built from what can't be read
        package::buildPackage({folder, STICK, true}, ignored);
    } else if (fs::exists(folder / packageRules::MANIFEST)) {
        shell("cd " + STICK + " && tar -C " + folder.string() +
              " -czf keldra_update.tgz . && sha1sum keldra_update.tgz >keldra_update.tgz.sha");
    } else {
        shell("cp -r " + folder.string() + "/. " + STICK);
    }
}

/** What keldra-package says of what lies on the stick. */
struct Forecast {
    std::optional<bool> loads; ///< nothing when a finding leaves it open
    std::vector<package::Step> steps;
};

Forecast forecast() {
    Forecast said;
    said.loads = true;
    package::Findings findings;
    try {
        const package::Package package(STICK, findings);
        if (findings.errors() == 0 && !package.items().empty()) {
            said.steps = package::makePlan(package, {}, true).steps;
        }
    } catch (const package::Failure&) {
        said.loads = false;
    }
    for (const package::Finding& each : findings.all()) {
        const std::string panel = each.kind->panel;
        if (panel.starts_with("refuses the package") || panel.starts_with("does not unpack it") ||
            panel.starts_with("does not read the manifest")) {
            said.loads = false;
        }
    }
    for (const package::Finding& each : findings.all()) {
        if (each.kind == &package::kinds::ARCHIVE_ENTRY || each.text == "nested too deeply") {
            said.loads.reset();
        }
    }
    return said;
}

class packageRulesTest : public Panel {
protected:
    packageRulesTest() { start(); }

    /**
     * What the panel makes of an item that it visits; of a firmware image, only whether it takes the file.
     */
    std::string visited(const package::Stop& stop) {
        for (const coreState::HOST_ITEM& each : core->hostItems()) {
            if (each.name == std::string(stop.item)) {
                return installed(*each.item, each.name);
            }
        }
        for (const modules::ROW& each : modules::VISITED) {
            const coreState::BASE_ITEM& item = core->module(each).base;
            if (each.item == std::string(stop.item) && !item.update.items.empty()) {
                return functs().isFile(packageFile::ofItem(item, 0)) ? "taken" : "fails";
            }
        }
        return "nothing";
    }
    std::string installed(coreState::BASE_ITEM& item, const std::string& name) {
        kernelUpdate kernel(core.get());
        updaterUpdate updater(core.get());
        fileUpdate files(core.get());
        files.setInstallPath("/tmp/installed");
        fs::create_directories("/tmp/installed");
        updater.setInstallPath("/tmp/installed");
        action& act = name == "kernel" ? static_cast<action&>(kernel) : name == "updater" ? updater : files;
        act.setBase(&item);
        return act.needsUpdate(true) != action::GOUPDATE ? "nothing" : act.run() ? "taken" : "fails";
    }
    static std::string planned(const package::Step& step) {
        const bool failsByContent =
            step.stop->module != nullptr && step.reason.find('"') == std::string::npos;
        return step.decision == package::Decision::Update  ? "taken"
               : step.decision != package::Decision::Fails ? "nothing"
               : failsByContent                            ? "taken"
                                                           : "fails";
    }
};

TEST_F(packageRulesTest, ThePanelDoesWhatThePackageToolSays) {
    std::size_t packages = 0;
    std::size_t steps = 0;
    for (const char* quality : {"good-packages", "bad-packages"}) {
        for (const fs::directory_entry& folder : fs::directory_iterator(DATA / quality)) {
            bringToStick(folder);
            const Forecast said = forecast();
            const bool loaded = load() == 0;
            EXPECT_EQ(loaded, said.loads.value_or(loaded)) << folder;
            ++packages;
            for (const package::Step& step : said.steps) {
                EXPECT_EQ(visited(*step.stop), planned(step)) << folder << ", " << step.stop->shown;
                ++steps;
                if (step.decision == package::Decision::Fails) {
                    break;
                }
            }
        }
    }
    EXPECT_GT(packages, 90U);
    EXPECT_GT(steps, 500U);
}

} // namespace
