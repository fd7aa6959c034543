#include "system/actions/imageCheck.h"

#include "support/hexImage.h"
#include "support/panel.h"

#include <sstream>

namespace {

using flashLayouts::LAYOUT;
using imageCheck::FINDING;

const std::string PATH = "/tmp/image.hex";

/** One a line: its kind's letter, page, addresses, bytes and line. */
std::string shown(const std::vector<FINDING>& findings) {
    std::ostringstream text;
    for (const FINDING& each : findings) {
        text << std::hex << "MISDGCNUEO"[static_cast<std::size_t>(each.what)] << ' ' << each.page << ' '
             << each.from << '-' << each.to << std::dec << " *" << each.bytes << " @" << each.line << '\n';
    }
    return text.str();
}

std::string data(std::uint16_t address, std::size_t count) {
    return hexRecord(0, address, counting(count));
}

TEST(imageCheck, FindsWhatWouldNotArrive) {
    const LAYOUT stm32 = flashLayouts::stm32(false);
    const LAYOUT pic24 = flashLayouts::pic24New(true);
    const LAYOUT narrow = flashLayouts::pic24New(false);
    const LAYOUT old = flashLayouts::pic24Old();
    const std::string flash = hexUpper(0x08000000);
    const struct {
        const char* name;
        LAYOUT layout;
        std::string image;
        const char* found;
    } rows[] = {
        {"nothing", stm32, flash + data(0, 4) + data(4, 16) + hexImage({{0x08000800, 2060}}), ""},
        {"lower case, carriage returns, remarks", stm32, flash + ":040000000a0b0c0dce\r\n\r\n\n; good\n", ""},
        {"before the page's first byte", stm32, flash + data(0x810, 4), "G 8000800 8000800-800080f *16 @2\n"},
        {"two gaps in a page", stm32, flash + data(0, 1) + data(4, 1) + data(8, 1),
         "G 8000000 8000001-8000003 *3 @3\nG 8000000 8000005-8000007 *3 @4\n"},
        {"the same twice", stm32, flash + data(0, 8) + data(4, 4), "D 8000000 8000004-8000007 *4 @3\n"},
        {"out of order in a page", stm32, flash + data(4, 4) + data(0, 4),
         "D 8000000 8000000-8000003 *4 @3\n"},
        {"into a page that has data", stm32,
         hexImage({{0x08000800, 4}, {0x08000000, 2047}}) + flash + data(0x7FF, 2),
         "D 8000800 8000800-8000800 *1 @134\n"},
        {"out of order between pages", stm32, flash + data(0x800, 4) + data(0, 4), ""},
        {"from outside into the flash", stm32, hexUpper(0x07FF0000) + data(0xFFFE, 4),
         "E 8000000 8000000-803dfff *0 @0\nC 8000000 8000000-8000001 *2 @2\nO 7fffffe 7fffffe-7ffffff *2 "
         "@2\n"},
        {"runs on behind the flash", stm32, hexImage({{0x0803D800, 2060}}) + hexImage({{0x0803E00C, 4}}),
         "C 803e000 803e000-803e00f *16 @130\n"},
        {"a letter that reads as 0", stm32, flash + ":0100000G00FF\n", "M 8000000 8000000-8000000 *1 @2\n"},
        {"a record that is cut", stm32, flash + data(0, 1) + ":04\n", "M 8000000 8000000-8000000 *0 @3\n"},
        {"too long", stm32, flash + ":0100000001FE00\n", "M 8000000 8000000-8000000 *1 @2\n"},
        {"segment", stm32, flash + data(0, 1) + hexRecord(2, 0, {0, 0}) + hexRecord(2, 0, {0x10, 0}),
         "I 8000000 8000000-8000001 *2 @4\n"},
        {"PIC24: pages and shifted words", pic24,
         hexImage({{0, 0x800}}) + hexImage({{0x2000, 0x810}}) + hexUpper(0x01000000) + data(0, 2),
         "O 800000 800000-800000 *2 @263\n"},
        {"PIC24: inside an instruction", pic24, data(0, 2) + data(2, 6), "S 0 1-3 *6 @2\n"},
        {"PIC24: the bootloader's own range", pic24, hexImage({{0, 0x810}, {0x1FF0, 0x20}}),
         "C 400 400-407 *16 @130\nO ff8 ff8-fff *16 @132\n"},
        {"PIC24: nothing in the first region", pic24, hexImage({{0x2000, 8}, {0x3000, 8}}),
         "U 1000 1000-1803 *16 @2\n"},
        {"PIC24: 16 address bits", narrow, hexImage({{0, 4}, {0x1F800, 0x800}, {0x20000, 8}}),
         "N 10000 10000-10003 *8 @133\n"},
        {"old PIC24: up to the last address", old, hexImage({{0, 0x10000}}), ""},
        {"old PIC24: behind it", old, hexImage({{0xFC00, 0x400}, {0x10000, 2}}),
         "N fc00 10000-10001 *2 @67\n"},
    };
    for (const auto& row : rows) {
        put(PATH, row.image);
        hexpage image;
        ASSERT_TRUE(flashLayouts::readImage(PATH, row.layout, image)) << row.name;
        const std::vector<FINDING> found = imageCheck::ofPages(PATH, row.layout, image);
        EXPECT_EQ(shown(found), row.found) << row.name;
        EXPECT_EQ(imageCheck::hasError(found), row.found[0] != '\0' && row.found[0] != 'O') << row.name;
    }
}

TEST(imageCheck, RecordsMayLieAnywhere) {
    put(PATH,
        hexUpper(0x1D000000) + data(8, 4) + hexRecord(5, 0, {0, 0, 0, 0}) + data(0, 4) + ":0200000001FFFE\n");
    EXPECT_EQ(shown(imageCheck::ofRecords(PATH)), "");
    put(PATH, hexUpper(0x1D000000) + ":0200000001FFFF\n:00\n" + hexRecord(2, 0, {1, 0}));
    EXPECT_EQ(shown(imageCheck::ofRecords(PATH)),
              "M 1d000000 1d000000-1d000001 *2 @2\nM 1d000000 1d000000-1d000000 *0 @3\n"
              "I 1d000000 1d000000-1d000001 *2 @4\n");
    put(PATH, hexUpper(0x1D000000) + hexRecord(1, 0, {}));
    EXPECT_EQ(shown(imageCheck::ofRecords(PATH)), "E 0 0-0 *0 @0\n");
}

} // namespace
