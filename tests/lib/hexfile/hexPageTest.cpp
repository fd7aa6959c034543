#include "lib/hexfile/hexPage.h"

#include "lib/crc16.h"
#include "lib/format.h"
#include "support/hexImage.h"
#include "support/panel.h"

#include <stdexcept>

namespace {

using Regions = std::vector<hexpage::MEMORY_REGION>;

// A data record behind the type 04 record of its address.
std::string record(std::uint32_t address, const std::vector<std::uint8_t>& bytes) {
    return hexUpper(address) + hexRecord(0, static_cast<std::uint16_t>(address), bytes);
}

bool parseText(hexpage& image, const std::string& text, bool rev = false) {
    put("/tmp/image.hex", text);
    return image.parse("/tmp/image.hex", rev);
}

// Every region in brackets, every page as "first-last data @address+length of the latest record;".
std::string pagesOf(const hexpage& image) {
    std::string text;
    for (const auto& region : image.getRegions()) {
        text += "[";
        for (const auto& page : region.pages) {
            text += format("%x-%x ", page.startAddress, page.endAddress);
            for (const std::uint8_t byte : page.data)
                text += format("%02x", byte);
            text += format(" @%x+%u;", page.lastAddress, page.lastLength);
        }
        text += "]";
    }
    return text;
}

TEST(hexpage, PlacesEveryRecord) {
    const Regions one = {{0x10, 0x30, 8, {}}};
    const Regions three = {{0x10, 0x30, 8, {}}, {0x18, 0x28, 4, {}}, {0x40, 0x50, 8, {}}};
    const Regions sizeless = {{0, 0x100, 0, {}}};
    const Regions last = {{0xFFFFFFF0, 0xFFFFFFFF, 12, {}}};
    const Regions upper = {{0x10010, 0x10020, 8, {}}};
    const Regions fourWords = {{0, 0x20, 6, {}}};
    const Regions onePage = {{0, 4, 6, {}}};
    const std::string overlap = "DATA SHOULD BE 0!!!!!!  This should never happen!\n";
    const struct {
        const char* name;
        bool pic24;
        Regions regions;
        std::string text;
        const char* pages;
        std::string printed{};
        std::size_t dropped = 0;
    } rows[] = {
        {"every page before the data", false, one, record(0x20, counting(4)),
         "[10-17  @10+0;18-1f  @18+0;20-27 00010203 @20+4;]"},
        {"gaps are not filled", false, one, record(0x12, counting(2)) + record(0x16, counting(2)),
         "[10-17 00010001 @16+2;]"},
        {"split at the page end", false, one, record(0x10, counting(12)),
         "[10-17 0001020304050607 @10+0;18-1f 08090a0b @18+12;]"},
        {"the next page takes all the rest", false, one, record(0x10, counting(18)),
         "[10-17 0001020304050607 @10+0;18-1f 08090a0b0c0d0e0f1011 @18+18;]"},
        {"back into a full page", false, one, record(0x10, counting(8)) + record(0x11, counting(2)),
         "[10-17 00010203040506070001 @11+2;]", "10 11\n" + overlap},
        {"over data that came first", false, one, record(0x18, counting(2)) + record(0x10, counting(9)),
         "[10-17 0001020304050607 @10+0;18-1f 000108 @18+9;]", "18 18\n" + overlap},
        {"the region added last", false, three, record(0x18, counting(2)) + record(0x1A, counting(2)),
         "[10-17  @10+0;18-1f  @18+0;][18-1b 00010001 @1a+2;][]"},
        {"around the region", false, one, record(0xF, counting(1)) + record(0x30, counting(3)), "[]", "", 4},
        {"over the region's end", false, one, record(0x28, counting(12)),
         "[10-17  @10+0;18-1f  @18+0;20-27  @20+0;28-2f 0001020304050607 @28+0;]",
         "Discarding extra data at Address 30\n", 4},
        {"a region without page size", false, sizeless, record(0, counting(2)), "", "", 2},
        {"the end of the address space", false, last, record(0xFFFFFFFC, counting(2)),
         "[fffffff0-fffffffb  @fffffff0+0;fffffffc-ffffffff 0001 @fffffffc+2;]"},
        {"lines that are none, and a carriage return", false, upper,
         ":020000040001F9\n:0000000000\n:0200100001027F\r\n", "[10010-10017 0102 @10010+2;]"},
        {"an entry address is no data", false, one, ":040000050000001CDB\n" + record(0x10, counting(2)),
         "[10-17 0001 @10+2;]"},
        {"PIC24: filled up, without phantom bytes", true, fourWords, record(8, counting(12)),
         "[0-3  @0+0;4-7 000102040506 @4+0;8-b 08090affffff @8+6;]"},
        {"PIC24: nothing but a phantom byte is left over", true, onePage, record(0, counting(8)),
         "[0-3 000102040506 @0+0;]", "Discarding extra data at Address 4\n"},
    };
    for (const auto& row : rows) {
        for (const bool rev : {false, true}) {
            hexpage image;
            if (row.pic24)
                image.setPIC24();
            for (const auto& region : row.regions)
                image.addRegion(region.startAddress, region.endAddress, region.blockSize);
            testing::internal::CaptureStdout();
            ASSERT_TRUE(parseText(image, row.text, rev)) << row.name;
            EXPECT_EQ(testing::internal::GetCapturedStdout(), row.printed) << row.name;
            EXPECT_EQ(pagesOf(image), row.pages) << row.name;
            EXPECT_EQ(image.droppedBytes(), row.dropped) << row.name;
            for (const auto& region : image.getRegions())
                for (const auto& page : region.pages)
                    EXPECT_EQ(page.checksum, crc16().crc16_calculate(page.data, rev)) << row.name;
        }
    }
}

TEST(hexpage, Pic24ShiftsOneRangeOfWords) {
    for (const auto& [byteAddress, word] :
         {std::pair{0x1FEU, 0xFFU}, {0x200U, 0x102U}, {0x400U, 0x202U}, {0x402U, 0x201U}}) {
        hexpage image;
        image.setPIC24();
        image.addRegion(0, 0x7FFFFE, 0x600);
        ASSERT_TRUE(parseText(image, record(byteAddress, counting(4))));
        EXPECT_EQ(image.getNextPage()->lastAddress, word);
    }
}

TEST(hexpage, NothingIsCarriedOver) {
    hexpage image;
    image.setPIC24();
    image.addRegion(0, 8, 12);
    ASSERT_TRUE(parseText(image, record(0x20000, counting(4))));
    EXPECT_EQ(image.droppedBytes(), 4U);
    ASSERT_TRUE(parseText(image, ":0400000001020304F2\n")); // the 04 record was the file's before
    EXPECT_EQ(pagesOf(image), "[0-7 010203ffffffffffffffffff @0+2;]");
    EXPECT_EQ(image.droppedBytes(), 0U);
    image.clear();
    image.addRegion(0, 8, 12);
    ASSERT_TRUE(parseText(image, record(0, counting(4))));
    EXPECT_EQ(pagesOf(image), "[0-b 00010203 @0+4;]") << "bytes again";
}

TEST(hexpage, WalkStopsAtARegionWithoutPages) {
    hexpage image;
    image.addRegion(0, 0x100, 64);
    image.addRegion(0x1000, 0x1100, 64);
    image.addRegion(0x2000, 0x2100, 64);
    ASSERT_TRUE(parseText(image, ""));
    EXPECT_FALSE(image.walkReachesAllData()) << "no data at all";

    ASSERT_TRUE(parseText(image, record(0x40, counting(4))));
    EXPECT_TRUE(image.walkReachesAllData());
    EXPECT_TRUE(image.getNextPage()->data.empty());
    EXPECT_EQ(image.getNextPage()->data, counting(4));
    EXPECT_EQ(image.getNextPage(), nullptr);

    ASSERT_TRUE(parseText(image, record(0x2000, counting(4))));
    EXPECT_FALSE(image.walkReachesAllData());
    for (int page = 0; page < 2; ++page)
        EXPECT_NE(image.getNextPage(), nullptr);
    EXPECT_EQ(image.getNextPage(), nullptr);
    ASSERT_TRUE(parseText(image, record(0x1000, counting(4))));
    EXPECT_TRUE(image.walkReachesAllData());
}

TEST(hexpage, TrustsTheByteCount) {
    hexpage image;
    image.addRegion(0, 0x100, 64);
    ASSERT_TRUE(parseText(image, ":03000000AABB"));
    EXPECT_EQ(image.getNextPage()->data, (std::vector<std::uint8_t>{0xAA, 0xBB, 0}))
        << "empty text behind the last character";
    EXPECT_THROW(parseText(image, ":04000000AABB"), std::out_of_range);
    EXPECT_FALSE(image.parse("/tmp", false));
}

TEST(hexpage, Dumps) {
    hexpage image;
    image.addRegion(0x20, 0x100, 0x20);
    ASSERT_TRUE(parseText(image, record(0x20, counting(22))));
    testing::internal::CaptureStdout();
    image.print();
    image.print(0, 0);
    image.print(9, 0); // the current region
    image.print(0, 1); // no such page
    const std::string page = "00000020        03020100        07060504        0b0a0908        0f0e0d0c\n"
                             "00000030        13121110        1514\n";
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "--------------\nREGION START 20 END 100 BLOCKSIZE 20\n0 PAGE START 20 END 3f DATA 22\n" +
                  page + page);

    image.setPIC24();
    testing::internal::CaptureStdout();
    image.print(image.getRegions()[0].pages[0], 0x20);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "00000020        020100        050403        080706        0b0a09\n"
              "00000028        0e0d0c        11100f        141312        15\n");
}

} // namespace
