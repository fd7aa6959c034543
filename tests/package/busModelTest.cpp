#include "busModel.h"

#include "campaigns/panelVisits.h"
#include "files.h"
#include "support/hexImage.h"
#include "support/moduleBus.h"

#include <gtest/gtest.h>

namespace package {
namespace {

constexpr unsigned BAUD = Bus::BAUD;
constexpr double SURE = 0.001; // s

// What is predicted is what the panel's own dialogue takes with a module that answers at once.
TEST(busModelTest, PredictsThePanelsDialogue) {
    const struct {
        const char* processor;
        std::vector<std::pair<std::uint32_t, std::size_t>> image; // from an address, so many bytes
        std::uint32_t pages;
        std::uint32_t erases;
    } rows[] = {
        {"stm32f3", {{0x08000000, 2048}, {0x08000800, 5}}, 2, 0},
        {"stm32f0", {{0x08000000, 5}, {0x08001000, 7}, {0x08002000, 1}}, 3, 0}, // all of one row
        {"stm32f4", {{0x08000800, 2048}, {0x08002000, 50}}, 2, 3},              // two gaps, and everything
        {"pic24", {{0, 0x40}, {0x2800, 0x800}}, 2, 2}, // a gap, and what a full page leaves behind it
        {"pic24-old", {{0, 0x600}, {0x1800, 20}}, 2, 0},
        {"pic32-pages", {{0x1D000000, 4096}, {0x1D003000, 4}}, 2, 0},
        {"pic32-records", {{0x1D000000, 40}, {0x1D003000, 2}, {0x1D004000, 1}}, 9, 1}, // six of one row
    };
    const TemporaryDirectory directory;
    const auto path = directory.path() / "image.hex";
    for (const auto& row : rows) {
        SCOPED_TRACE(row.processor);
        writeFile(path, hexImage(row.image));
        const Processor& processor = *findProcessor(row.processor);
        Bus bus(std::string(processor.onCan ? "s1" : "ctrl") + " kind=" + row.processor);
        const sim::ModuleConfig& module = bus.carrier.modules().front()->config();
        const DialogueTarget target{module.address, module.serialBootloader, path};
        ASSERT_EQ(PanelVisits(bus.host).flash(target), PanelVisits::Result::Done);

        BusCost cost;
        cost.enterBootloader(processor.identifies);
        cost += costOfImage(path, processor, module.serialBootloader);
        cost.systemCommand();
        EXPECT_EQ(cost.pages, row.pages);
        EXPECT_EQ(cost.erases, row.erases);
        EXPECT_EQ(cost.messages, 2 * bus.host.sent.size());
        EXPECT_NEAR(cost.seconds(BAUD), bus.seconds(), SURE);
    }
}

TEST(busModelTest, PredictsWhatAbsentModulesCost) {
    Bus bus("s1 lost");
    PanelVisits panel(bus.host);
    EXPECT_EQ(panel.flash({9, false, ""}), PanelVisits::Result::Missing);
    BusCost cost;
    cost.absentModule();
    EXPECT_EQ(cost.messages, bus.host.sent.size());
    EXPECT_NEAR(cost.seconds(BAUD), bus.seconds(), SURE);

    EXPECT_EQ(panel.flash({10, false, ""}), PanelVisits::Result::Missing);
    cost.afterAbsentModule();
    cost.absentModule();
    EXPECT_NEAR(cost.seconds(BAUD), bus.seconds(), SURE);
}

} // namespace
} // namespace package
