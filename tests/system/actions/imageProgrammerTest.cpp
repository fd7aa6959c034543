#include "system/actions/imageProgrammer.h"

#include "scriptedHost.h"
#include "support/hexImage.h"

#include <fstream>
#include <gtest/gtest.h>

namespace {

using LAYOUT = imageProgrammer::LAYOUT;

/** Pages of 16 bytes, which are three rows. */
LAYOUT layout(bool eraseAllFirst = false, bool eraseEmptyPages = false) {
    return {{{0, 0x10000, 16}}, false, eraseAllFirst, eraseEmptyPages, true};
}
const LAYOUT PLAIN = layout();
const LAYOUT ERASED = layout(true);
const LAYOUT EMPTIED = layout(false, true);
const LAYOUT* const RECORDS = nullptr;

// What is in an image: two pages with one empty between them, the second of one row.
const std::string TWO_PAGES = hexImage({{0, 16}, {0x20, 3}});

/** The module is in its bootloader; the script begins with what it answered to the request for that. */
class imageProgrammerTest : public testing::Test {
protected:
    bool program(const LAYOUT* pages, const std::string& text, const std::string& script, bool strict = true,
                 std::chrono::milliseconds cancel = std::chrono::milliseconds::max()) {
        const std::string path = testing::TempDir() + "programmed.hex";
        std::ofstream(path) << text;
        host = scriptedHost(script);
        host.cancelTime = cancel;
        bootloadDialogue dialogue(host);
        imageProgrammer programmer(host, dialogue, "X: ");
        programmer.setTarget(scriptedHost::MODULE, true);
        dialogue.enter(scriptedHost::MODULE, true);
        host.sent.clear();
        if (pages == RECORDS) {
            hexrecords image(path);
            return programmer.programRecords(image);
        }
        hexpage image;
        EXPECT_TRUE(flashLayouts::readImage(path, *pages, image));
        return programmer.programImage(*pages, image, strict);
    }
    long linesWith(const std::string& text) const {
        return std::count_if(host.logged.begin(), host.logged.end(), [&text](const std::string& line) {
            return line.find(text) != std::string::npos;
        });
    }

    scriptedHost host;
};

TEST_F(imageProgrammerTest, WhatGoesWrongIsTriedAgainAndLogged) {
    const std::string exceeded = "[Error]: X: Page retry count exceeded.  Exiting.";
    const std::string noStart = "[Warning]: X: Could not send SOH.  Retrying.";
    const std::string badRow = "[Warning]: X: Data TX error...retrying...";
    const std::string unwritten = "[Warning]: X: Could not write page to internal flash...retrying...";
    const std::string written = "[Notice]: X: Page written successfully";
    const std::string ignored = "[Notice]: X: Page ignored";
    const std::string nothing = "[Warning]: X: Nothing written: the module ignored every page";
    const std::string unerased = "[Warning]: Serial: Flash Mem Erase Fail: ";
    const struct {
        const LAYOUT* pages;
        const char* script;
        bool result;
        long lines; ///< with this text
        std::string text;
        const char* sent;
    } rows[] = {
        {&PLAIN, "", true, 2, written, "S R0 R1 R2 W S R0 W"},
        {&ERASED, "", true, 2, written, "A S R0 R1 R2 W S R0 W"},
        {&EMPTIED, "", true, 1, "Blocks Erased", "S R0 R1 R2 W E S R0 W"},
        {&PLAIN, "S: =4 =4 =4 ok =4 =4 =4 ok", true, 6, noStart,
         "S S S S R0 R1 R2 W S S S S R0 W"}, // of each page
        {&PLAIN, "S: =4", false, 1, exceeded, "S S S S"},
        {&PLAIN, "S: =6 ok", true, 1, ignored, "S S R0 W"},
        {&PLAIN, "S: =6 ok", true, 0, nothing, "S S R0 W"},
        {&PLAIN, "S: =6", true, 1, nothing, "S S"},
        {&PLAIN, "S: ok =6; W: =4", false, 0, ignored, "S R0 R1 R2 W W W W S S S"}, // it was begun before
        {&PLAIN, "S: =4 =6 ok", true, 1, ignored, "S S S R0 W"},
        {&PLAIN, "R: =1 ok", true, 1, badRow, "S R0 S R0 R1 R2 W S R0 W"},
        {&PLAIN, "R: =1", false, 4, badRow, "S R0 S R0 S R0 S R0"},
        {&PLAIN, "R: deaf deaf deaf deaf ok; ?: deaf", true, 1,
         "X: No response from data send...retrying page",
         "S R0 ?+ R0 ?+ R0 ?+ R0 ?+ S ?+ R0 ?+ R1 ?+ R2 ?+ W S R0 W"},
        {&PLAIN, "W: =4 =4 =4 ok", true, 0, unwritten, "S R0 R1 R2 W W W W S R0 W"},
        {&PLAIN, "W: =4 =4 =4 =4 ok", true, 1, unwritten, "S R0 R1 R2 W W W W S R0 R1 R2 W S R0 W"},
        {&PLAIN, "W: =4", false, 4, unwritten,
         "S R0 R1 R2 W W W W S R0 R1 R2 W W W W S R0 R1 R2 W W W W S R0 R1 R2 W W W W"},
        {&ERASED, "A: =5", false, 1, "[Error]: X: Could not erase range (all)", "A"},
        {&EMPTIED, "E: =5", false, 1, "[Error]: X: Could not erase range", "S R0 R1 R2 W E"},
        {&EMPTIED, "E: =6", true, 1, "Blocks Erased", "S R0 R1 R2 W E S R0 W"},
        {&PLAIN, ",: plain", true, 2, written, "S R0 R1 R2 W S R0 W"},
        {RECORDS, "", true, 0, "[Warning]", "A R0 W R0 R1 R2 W R0 W R0 R1 W R0 W"},
        {RECORDS, "A: =5 =5 =5 ok", true, 3, unerased + "Internal Error",
         "A M ? A M ? A M ? A R0 W R0 R1 R2 W R0 W R0 R1 W R0 W"},
        {RECORDS, "A: =5", false, 1, "[Error]: Serial: Mem Erase Tries Exceeded....Exiting...",
         "A M ? A M ? A M ? A"},
        {RECORDS, "A: deaf; ?: deaf; M: deaf", false, 4, unerased + "No response",
         "A ?+ M A ?+ M A ?+ M A ?+"},
        {RECORDS, "W: =4 =4 =4 =4 ok", true, 1, "[Warning]: Serial: Could not write page to memory",
         "A R0 W W W W R0 W R0 R1 R2 W R0 W R0 R1 W R0 W"},
        {RECORDS, "R: =1", false, 1, "[Error]: Serial: Program retry count exceeded...Exiting...",
         "A R0 R0 R0 R0"},
        {RECORDS, "W: ok&id9", false, 1, "[Error]: Serial: The module started its bootloader anew",
         "A R0 W R0 R1 R2 W"},
        {RECORDS, "W: ok&id8 ok", true, 0, "anew", "A R0 W R0 R1 R2 W R0 W R0 R1 W R0 W"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(program(row.pages, TWO_PAGES, row.script), row.result) << row.script;
        EXPECT_EQ(linesWith(row.text), row.lines) << row.text << " " << row.script;
        EXPECT_EQ(host.transcript(), row.sent) << row.script;
    }
}

TEST_F(imageProgrammerTest, ALongRunOfEmptyPagesIsErasedInParts) {
    const struct {
        std::uint32_t pages;
        bool strict;
        const char* erased; ///< first address and count
        const char* warning;
    } rows[] = {
        {1, true, "10 1, ", ""},
        {255, false, "10 255, ", ""},
        {255, true, "10 255, ", ""},
        {256, false, "10 0, ", ""},
        {256, true, "10 255, 1000 1, ", ""},
        {300, false, "10 44, ", "0x2d0 to 0x12cf"},
        {300, true, "10 255, 1000 45, ", ""},
        {512, false, "10 0, ", "0x1010 to 0x200f"},
        {600, true, "10 255, 1000 255, 1ff0 90, ", ""},
    };
    for (const auto& row : rows) {
        EXPECT_TRUE(program(&EMPTIED, hexImage({{0, 16}, {16 * (row.pages + 1), 3}}), "", row.strict));
        std::ostringstream erased;
        for (const auto& [when, msg] : host.sent) {
            if (msg.id == busProtocol::BOOTLOADER_COMMAND && msg.data[1] == busProtocol::ERASE_BLOCKS) {
                erased << std::hex << msg.data[2] * 256 + msg.data[3] << std::dec << ' ' << int{msg.data[4]}
                       << ", ";
            }
        }
        EXPECT_EQ(erased.str(), row.erased) << row.pages;
        EXPECT_EQ(
            linesWith("Not erased, since a request names at most 256 blocks: " + std::string(row.warning)),
            *row.warning != '\0' ? 1 : 0)
            << row.pages;
    }
}

TEST_F(imageProgrammerTest, ACancelledRunEndsAtOnceAndLogsNoError) {
    for (const LAYOUT* pages : {&ERASED, &EMPTIED, RECORDS}) {
        for (std::chrono::milliseconds cancel{1020}; cancel.count() < 2000;
             cancel += std::chrono::milliseconds(7)) {
            EXPECT_FALSE(program(pages, TWO_PAGES, "S: lost ok; R: late60; W: late90; E: lost ok; A: lost ok",
                                 true, cancel));
            EXPECT_LE(host.time, cancel + std::chrono::milliseconds(10)) << cancel.count();
            EXPECT_EQ(linesWith("[Error]"), 0) << cancel.count();
        }
    }
}

} // namespace
