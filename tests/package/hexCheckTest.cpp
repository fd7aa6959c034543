#include "hexCheck.h"

#include "files.h"
#include "support/hexImage.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>

namespace package {
namespace {

using ByAddress = std::map<std::uint32_t, std::uint8_t>; // of the HEX file

class hexCheckTest : public testing::Test {
protected:
    // The names of the findings, each with a blank behind it.
    std::string check(const std::string& text, const char* processor, bool serial = false) {
        writeFile(path(), text);
        Findings findings;
        checkHex(path(), "image.hex", findProcessor(processor), serial, findings);
        std::string names;
        for (const Finding& each : findings.all())
            names += each.kind->id + std::string(" ");
        return names;
    }
    std::filesystem::path path() const { return directory_.path() / "image.hex"; }

private:
    TemporaryDirectory directory_;
};

// Whatever single character is damaged, the image does not pass.
TEST_F(hexCheckTest, NoDamagedCharacterPasses) {
    const std::string image = hexUpper(0x08000000) + hexRecord(0, 0, {1, 2, 3, 0xFF}) +
                              hexRecord(0, 4, {4, 0x5A}) + hexRecord(1, 0, {});
    ASSERT_EQ(check(image, "stm32f3"), "");
    for (std::size_t at = 0; at + 1 < image.size(); ++at) { // the last line may do without its end
        for (const char damaged : {'0', '1', '7', 'A', 'F', 'G', ':', ' ', '\n', '\r', '\0'}) {
            std::string text = image;
            text[at] = damaged;
            EXPECT_EQ(damaged == image[at], check(text, "stm32f3").empty())
                << "character " << at << " as " << static_cast<int>(damaged);
        }
    }
}

// Wherever a copy ends too early, it does not pass.
TEST_F(hexCheckTest, NoCutImagePasses) {
    const std::string image = hexUpper(0x08000000) + hexRecord(0, 0, {1, 2, 3, 4}) + hexRecord(1, 0, {});
    for (std::size_t size = 0; size + 1 < image.size(); ++size)
        EXPECT_NE(check(image.substr(0, size), "stm32f3"), "") << size;
}

// What the panel objects to nothing of is programmed byte for byte at its address, and nothing else is:
// images of random pieces, most of which break some rule. What the check passes is among it.
class cleanImageTest : public hexCheckTest {
protected:
    // Records of a few pieces, and the bytes they mean.
    std::string draw(std::uint32_t base, bool pic24, ByAddress& meant) {
        std::string text = hexUpper(base);
        std::uint32_t at = 0;
        const unsigned pieces = below(4) + 1;
        for (unsigned piece = 0; piece < pieces; ++piece) {
            for (unsigned count = below(200) + 1; count > 0 && at < 0xFF00; --count) {
                std::vector<std::uint8_t> bytes(4 * std::size_t{below(30) == 0 ? below(4) + 1 : 4});
                for (std::size_t i = 0; i < bytes.size(); ++i) {
                    bytes[i] = static_cast<std::uint8_t>(pic24 && i % 4 == 3 ? 0 : below(256));
                    meant[base + at + static_cast<std::uint32_t>(i)] = bytes[i];
                }
                text += hexRecord(0, static_cast<std::uint16_t>(at), bytes);
                at += static_cast<std::uint32_t>(bytes.size());
            }
            const bool smallGap = below(5) == 0;
            at = smallGap ? at + 4 : (at + 0x7FF) / 0x800 * 0x800 + below(3) * 0x800;
            if (pic24 && at > 0x800 && at < 0x2000 && below(4) != 0)
                at = 0x2000;
        }
        return text + hexRecord(1, 0, {});
    }
    unsigned below(unsigned end) { return static_cast<unsigned>(random_() % end); }

    // The bytes as the panel's pages have them, at the addresses that they are programmed to.
    static ByAddress programmed(hexpage& image, bool pic24) {
        ByAddress bytes;
        image.resetIterator();
        while (const hexpage::MEMORY_PAGE* page = image.getNextPage()) {
            for (std::uint32_t i = 0; i < page->data.size(); ++i)
                bytes[pic24 ? page->startAddress * 2 + i / 3 * 4 + i % 3 : page->startAddress + i] =
                    page->data[i];
        }
        return bytes;
    }

    static bool isInside(const flashLayouts::LAYOUT& layout, std::uint32_t address) {
        return std::any_of(layout.regions.begin(), layout.regions.end(), [&](const auto& region) {
            const flashLayouts::BOUNDS bounds = boundsOf(layout, region);
            return address >= bounds.start && address < bounds.end;
        });
    }

private:
    std::minstd_rand random_;
};

TEST_F(cleanImageTest, IsProgrammedAsItStands) {
    const struct {
        const char* processor;
        std::uint32_t base;
        bool serial;
    } rows[] = {{"stm32f3", 0x08000000, false}, {"pic24", 0, false}, {"pic32-pages", 0x1D000000, true}};
    for (const auto& row : rows) {
        const bool pic24 = row.base == 0;
        unsigned clean = 0;
        for (unsigned round = 0; round < 150; ++round) {
            ByAddress meant;
            const std::string findings = check(draw(row.base, pic24, meant), row.processor, row.serial);
            const flashLayouts::LAYOUT layout = findProcessor(row.processor)->layout(row.serial);
            hexpage image;
            if (!acceptedByPanel(path(), layout, image)) {
                EXPECT_NE(findings, "") << row.processor << " round " << round;
                continue;
            }
            clean += findings.empty() ? 1 : 0;
            std::erase_if(meant, [&](const auto& each) { return !isInside(layout, each.first); });
            ByAddress found = programmed(image, pic24);
            if (pic24) { // the fourth bytes have no place, and used pages are filled up
                std::erase_if(meant, [](const auto& each) { return each.first % 4 == 3; });
                std::erase_if(found, [&](const auto& each) {
                    return meant.count(each.first) == 0 && each.second == 0xFF;
                });
            }
            EXPECT_EQ(found, meant) << row.processor << " round " << round;
        }
        EXPECT_GT(clean, 15U) << row.processor;
        EXPECT_LT(clean, 150U) << row.processor;
    }
}

} // namespace
} // namespace package
