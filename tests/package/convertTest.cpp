#include "convert.h"

#include "build.h"
#include "busModel.h"
#include "campaigns/panelVisits.h"
#include "support/moduleBus.h"

#include <gtest/gtest.h>

namespace package {
namespace {

// A real program, from what its linker wrote to what a module has in its flash: bytes that objcopy makes of
// it.
TEST(convertTest, AModuleGetsWhatTheLinkerWrote) {
    if (std::string(STM32_ELF).empty())
        GTEST_SKIP() << "no compiler for the modules' processors";
    const TemporaryDirectory directory;
    const auto source = directory.path() / "release";
    std::filesystem::create_directory(source);
    std::filesystem::copy(STM32_ELF, source / "fw.elf");
    writeFile(source / DESCRIPTION,
              R"({"slave": [{"file": "fw.elf", "version": "1.3.0", "processor": "stm32f3",
        "fill": true}]})");
    Findings findings;
    ASSERT_TRUE(buildPackage({source, directory.path() / "stick"}, findings));
    const Package package(directory.path() / "stick", findings);
    checkContents(package, {}, findings);
    EXPECT_TRUE(findings.all().empty());

    Bus bus("s1 kind=stm32f3");
    const auto image = package.pathOf(package.items().front().entries.front());
    ASSERT_EQ(PanelVisits(bus.host).flash({9, false, image}), PanelVisits::Result::Done);
    const sim::ModuleConfig& module = bus.carrier.modules().front()->config();
    const std::string expected = readFile(STM32_BINARY);
    const sim::Bytes found =
        module.flash.read(module.processor->cellOf(0x08000000), static_cast<std::uint32_t>(expected.size()));
    EXPECT_TRUE(std::string(found.begin(), found.end()) == expected);
    EXPECT_LT(costOfImage(image, *findProcessor("stm32f3"), false).pages, 30U) << "the gap is filled";
}

} // namespace
} // namespace package
