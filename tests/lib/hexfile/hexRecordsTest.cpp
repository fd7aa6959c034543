#include "lib/hexfile/hexRecords.h"

#include "support/panel.h"

#include <sstream>

namespace {

const char* const FILE_NAME = "/tmp/image.hex";

/** The next record: type, address, size and checksum; the data. */
std::string next(hexrecords& image) {
    const hexrecords::HEX_RECORD* record = image.getNextRecord();
    if (record == nullptr) {
        return "none";
    }
    std::ostringstream text;
    text << std::hex << int{record->type} << " " << record->address << " " << int{record->size} << " "
         << int{record->checksum} << ":";
    for (const std::uint32_t value : record->data) {
        text << " " << value;
    }
    return text.str();
}

TEST(hexrecords, KeepsEveryRecordAsWritten) {
    put(FILE_NAME, ":020000040001F9\n"
                   ":0400100001020304E2\r\n"
                   ":000000010\n\n00000001FFFF\n"
                   ":FF00200005 7G1\n"
                   ":00000001FF");
    testing::internal::CaptureStdout();
    hexrecords image(FILE_NAME);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "discarded line\ndiscarded line\ndiscarded line\n");
    ASSERT_TRUE(image.getFileOK());
    EXPECT_EQ(image.getTotal(), 4U);
    for (int pass = 0; pass < 2; ++pass, image.resetIterator()) {
        EXPECT_EQ(next(image), "4 0 2 f9: 0 1");
        EXPECT_EQ(next(image), "0 10 4 2: 1 2 3 4") << "the last digit and the carriage return";
        EXPECT_EQ(next(image), "0 20 ff 0: 5 7") << "the size does not bound the data";
        EXPECT_EQ(next(image), "1 0 0 ff:");
        EXPECT_EQ(next(image) + next(image), "nonenone");
    }
    for (const char* path : {"/nonexistent.hex", "/tmp"}) {
        hexrecords unreadable(path);
        EXPECT_FALSE(unreadable.getFileOK());
        EXPECT_EQ(next(unreadable), "none");
    }
}

} // namespace
