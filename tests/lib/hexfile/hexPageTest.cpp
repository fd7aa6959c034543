#include "lib/hexfile/hexPage.h"

#include "hexFile.h"
#include "lib/crc16.h"

#include <random>
#include <stdexcept>

namespace {

using Bytes = std::vector<std::uint8_t>;
using Regions = std::vector<hexpage::MEMORY_REGION>;

std::string format(const char* text, std::uint32_t first, std::uint32_t second = 0) {
    char out[80];
    std::snprintf(out, sizeof out, text, first, second);
    return out;
}

// A data record behind the type 04 record of its address.
std::string record(std::uint32_t address, const Bytes& bytes) {
    std::string text = format(":02000004%04X00\n", address >> 16);
    text += format(":%02X%04X00", static_cast<std::uint32_t>(bytes.size()), address & 0xFFFF);
    for (const std::uint8_t byte : bytes)
        text += format("%02X", byte);
    return text + "00\n";
}

Bytes counting(std::size_t size, std::uint8_t from = 0) {
    Bytes bytes(size);
    for (std::uint8_t& byte : bytes)
        byte = from++;
    return bytes;
}

bool parseText(hexpage& image, const std::string& text, bool rev = false) {
    return image.parse(HexFile(text).path, rev);
}

// The placement rule walked page by page, to compare with.
struct SlowImage {
    Regions regions;
    bool pic24;
    std::string printed;
    hexpage::MEMORY_REGION* rg = nullptr;
    hexpage::MEMORY_PAGE* pg = nullptr;

    void search(std::uint32_t address) {
        rg = nullptr;
        pg = nullptr;
        for (auto& region : regions) {
            if (address < region.startAddress || address >= region.endAddress)
                continue;
            rg = &region;
            pg = nullptr;
            for (auto& page : region.pages)
                if (!pg && page.startAddress <= address && address <= page.endAddress)
                    pg = &page;
            while (!pg || pg->endAddress < address) {
                const std::uint32_t start =
                    region.pages.empty() ? region.startAddress : region.pages.back().endAddress + 1;
                const std::uint32_t end = start + region.blockSize - 1 - (pic24 ? region.blockSize / 3 : 0);
                region.pages.push_back({start, end, start, 0, {}, 0, 0, 0});
                pg = &region.pages.back();
            }
        }
    }

    void place(std::uint32_t byteAddress, const Bytes& bytes) {
        std::uint32_t address = pic24 ? byteAddress / 2 : byteAddress;
        if (pic24 && address >= 0x100 && address <= 0x200)
            address += 2;
        search(address);
        if (!pg)
            return;
        bool moved = false;
        for (std::size_t i = 0; i <= bytes.size(); ++i) {
            const bool full = pg->data.size() >= rg->blockSize;
            if (!moved && full && (i < bytes.size() || i == 0)) {
                moved = true;
                i += pic24 && i % 4 == 3;
                address += static_cast<std::uint32_t>(pic24 ? i - i / 2 : i);
                search(address);
                if (!pg) {
                    printed += format("Discarding extra data at Address %x\n", address);
                    return;
                }
                if (!pg->data.empty())
                    printed += format("%x %x\n", pg->startAddress, address) +
                               "DATA SHOULD BE 0!!!!!!  This should never happen!\n";
            }
            if (i < bytes.size() && !(pic24 && i % 4 == 3))
                pg->data.push_back(bytes[i]);
        }
        pg->lastAddress = address;
        pg->lastLength = static_cast<std::uint32_t>(pic24 ? bytes.size() / 2 : bytes.size());
    }

    void finish(bool rev) {
        for (auto& region : regions)
            for (auto& page : region.pages) {
                while (pic24 && !page.data.empty() && page.data.size() < region.blockSize)
                    page.data.push_back(0xFF);
                page.checksum = crc16().crc16_calculate(page.data, rev);
            }
    }
};

TEST(hexpage, PlacesRandomFilesAsTheSlowRuleDoes) {
    constexpr std::uint32_t SPACE = 0x12000; // bytes; a type 04 step is inside
    constexpr std::uint32_t BLOCKS[] = {1, 2, 7, 48, 64, 0x600};
    for (unsigned seed = 0; seed < 300; ++seed) {
        std::mt19937 random(seed);
        const auto below = [&](std::uint32_t limit) { return static_cast<std::uint32_t>(random() % limit); };
        hexpage image;
        SlowImage slow{{}, seed % 2 == 1, {}};
        if (slow.pic24)
            image.setPIC24();
        const std::uint32_t base = below(2) ? 0 : below(SPACE - 0x2000);
        for (int i = 0; i < 3; ++i) {
            const std::uint32_t start = base / 2 + below(0x400), end = start + below(0x1000),
                                size = BLOCKS[below(6)];
            image.addRegion(start, end, size);
            slow.regions.push_back({start, end, size, {}});
        }
        std::string text;
        std::uint32_t address = base;
        for (int i = 0; i < 200; ++i) {
            if (below(8) == 0) // a gap or a step back
                address = base + below(0x1000);
            const Bytes bytes = counting(below(4) ? 16 : below(40), static_cast<std::uint8_t>(random()));
            text += record(address, bytes);
            slow.place(address, bytes);
            address += static_cast<std::uint32_t>(bytes.size());
        }
        slow.finish(seed % 4 < 2);

        testing::internal::CaptureStdout();
        ASSERT_TRUE(parseText(image, text, seed % 4 < 2));
        ASSERT_EQ(testing::internal::GetCapturedStdout(), slow.printed) << "seed " << seed;
        ASSERT_TRUE(image.getRegions() == slow.regions) << "seed " << seed;
    }
}

TEST(hexpage, SplitsARecordAtThePageEnd) {
    hexpage image;
    image.addRegion(0x10000, 0x10080, 64);
    std::string text = ":020000040001F9\n:0000000000\n"; // the second is too short for a record
    for (std::uint32_t at = 0; at < 80; at += 20)
        text += format(":14%04X00", at) + std::string(40, '1') + "00\r\n";
    ASSERT_TRUE(parseText(image, text + record(0x20000, counting(5))));
    ASSERT_EQ(image.getTotalPages(), 2U);
    EXPECT_EQ(image.getNextPage()->data, Bytes(64, 0x11));
    const auto* second = image.getNextPage();
    EXPECT_EQ(second->data, Bytes(16, 0x11));
    EXPECT_EQ(second->endAddress, 0x1007FU);
    EXPECT_EQ(second->lastAddress, 0x10040U);
    EXPECT_EQ(second->lastLength, 20U);
    EXPECT_EQ(image.droppedBytes(), 5U);

    const HexFile file(":14007800" + std::string(40, '1') +
                       "00\n"); // at 0x78, were the 04 record still heeded
    image.addRegion(0x40, 0x80, 64);
    testing::internal::CaptureStdout();
    ASSERT_TRUE(image.parse(file.path, false));
    ASSERT_TRUE(parseText(image, record(0x70, counting(64))));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Discarding extra data at Address 9c\n");
    EXPECT_EQ(image.getRegions()[1].pages[0].data.size(), 64U);
    EXPECT_EQ(image.droppedBytes(), 20U);
}

TEST(hexpage, Pic24DropsPhantomBytesAndShiftsOneRange) {
    hexpage image;
    image.setPIC24();
    image.addRegion(0, 0x7FFFFE, 0x600);
    ASSERT_TRUE(parseText(image, record(0x400, counting(16))));
    const auto* page = image.getNextPage();
    EXPECT_EQ(page->endAddress, 0x3FFU);
    EXPECT_EQ(page->lastAddress, 0x202U);
    EXPECT_EQ(page->lastLength, 8U);
    EXPECT_EQ(Bytes(page->data.begin(), page->data.begin() + 13),
              (Bytes{0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, 0xFF}));
    EXPECT_EQ(page->data.size(), 0x600U);

    for (const auto& [byteAddress, word] : {std::pair{0x1FEU, 0xFFU}, {0x200U, 0x102U}, {0x402U, 0x201U}}) {
        image.clear();
        image.setPIC24();
        image.addRegion(0, 0x7FFFFE, 0x600);
        ASSERT_TRUE(parseText(image, record(byteAddress, counting(4))));
        EXPECT_EQ(image.getNextPage()->lastAddress, word);
    }
    ASSERT_TRUE(parseText(image, record(0xFFFFF0, counting(4))));
    EXPECT_EQ(image.getTotalPages(), 0x2000U) << "every page before the data";

    image.clear();
    image.addRegion(0, 8, 12);
    ASSERT_TRUE(parseText(image, record(0, counting(4))));
    EXPECT_EQ(image.getNextPage()->data, counting(4)) << "bytes again";
    image.clear();
    image.setPIC24();
    image.addRegion(0, 8, 12);
    testing::internal::CaptureStdout();
    ASSERT_TRUE(parseText(image, record(0, counting(16))));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Discarding extra data at Address 8\n");
    EXPECT_EQ(image.droppedBytes(), 0U) << "nothing but a phantom byte was left";
}

TEST(hexpage, EndsWithTheAddressSpace) {
    hexpage image;
    image.addRegion(0, 0x100, 0); // ignored
    image.addRegion(0xFFFFF000, 0xFFFFFFFF, 0x600);
    ASSERT_TRUE(parseText(image, record(0xFFFFFFF0, counting(4)) + record(0xFFFFF000, counting(4))));
    ASSERT_EQ(image.getTotalPages(), 3U);
    EXPECT_EQ(image.getRegions()[0].pages[2].endAddress, 0xFFFFFFFFU);
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
    EXPECT_EQ(image.getNextPage()->data, (Bytes{0xAA, 0xBB, 0})) << "empty text behind the last character";
    EXPECT_THROW(parseText(image, ":04000000AABB"), std::out_of_range);
    EXPECT_FALSE(image.parse("/tmp", false));
}

TEST(hexpage, Dumps) {
    hexpage image;
    image.addRegion(0x20, 0x100, 0x20);
    image.addRegion(0x1000, 0x1100, 0x20);
    ASSERT_TRUE(parseText(image, record(0x20, counting(22))));
    testing::internal::CaptureStdout();
    image.print();
    image.print(0, 0);
    image.print(9, 0); // the current region
    image.print(0, 1); // no such page
    const std::string page = "00000020        03020100        07060504        0b0a0908        0f0e0d0c\n"
                             "00000030        13121110        1514\n";
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "--------------\nREGION START 20 END 100 BLOCKSIZE 20\n0 PAGE START 20 END 3f DATA 22\n"
              "--------------\nREGION START 1000 END 1100 BLOCKSIZE 20\n" +
                  page + page);

    image.setPIC24();
    testing::internal::CaptureStdout();
    image.print(image.getRegions()[0].pages[0], 0x20);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "00000020        020100        050403        080706        0b0a09\n"
              "00000028        0e0d0c        11100f        141312        15\n");
}

} // namespace
