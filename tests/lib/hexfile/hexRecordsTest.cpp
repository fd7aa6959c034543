#include "lib/hexfile/hexRecords.h"

#include "hexFile.h"

namespace {

using Data = std::vector<std::uint32_t>;

TEST(hexrecords, KeepsEveryRecordAsWritten) {
    const HexFile file(":020000040001F9\n"
                       ":0400100001020304E2\r\n"
                       ":FF00200005 7G1\n"
                       ":00000001FF");
    hexrecords image(file.path);
    ASSERT_TRUE(image.getFileOK());
    ASSERT_EQ(image.getTotal(), 4U);

    const auto* extended = image.getNextRecord();
    EXPECT_EQ(extended->type, 4);
    EXPECT_EQ(extended->data, (Data{0, 1}));

    const auto* data = image.getNextRecord();
    EXPECT_EQ(data->address, 0x0010U) << "the extended address is not applied";
    EXPECT_EQ(data->size, 4);
    EXPECT_EQ(data->type, 0);
    EXPECT_EQ(data->data, (Data{1, 2, 3, 4}));
    EXPECT_EQ(data->checksum, 2) << "the last digit and the carriage return";

    const auto* odd = image.getNextRecord();
    EXPECT_EQ(odd->size, 0xFF) << "does not bound the data";
    EXPECT_EQ(odd->data, (Data{5, 7}));

    const auto* end = image.getNextRecord();
    EXPECT_EQ(end->type, 1);
    EXPECT_EQ(end->checksum, 0xFF);
    EXPECT_TRUE(end->data.empty());

    EXPECT_EQ(image.getNextRecord(), nullptr);
    EXPECT_EQ(image.getNextRecord(), nullptr);
    image.resetIterator();
    EXPECT_EQ(image.getNextRecord(), extended);
}

TEST(hexrecords, ReportsLinesThatAreNoRecords) {
    const HexFile file(":000000010\n\n00000001FFFF\n:00000001FF\n");
    testing::internal::CaptureStdout();
    const hexrecords image(file.path);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "discarded line\ndiscarded line\ndiscarded line\n");
    EXPECT_EQ(image.getTotal(), 1U);
}

TEST(hexrecords, UnreadableFileHasNoRecords) {
    for (const char* path : {"/nonexistent.hex", "/tmp"}) {
        hexrecords image(path);
        EXPECT_FALSE(image.getFileOK());
        EXPECT_EQ(image.getTotal(), 0U);
        EXPECT_EQ(image.getNextRecord(), nullptr);
    }
}

} // namespace
