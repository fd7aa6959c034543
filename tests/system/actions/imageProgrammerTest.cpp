#include "system/actions/imageProgrammer.h"

#include "scriptedHost.h"
#include "support/hexImage.h"

#include <fstream>
#include <gtest/gtest.h>

namespace {

using LAYOUT = imageProgrammer::LAYOUT;
using milliseconds = std::chrono::milliseconds;

/** Two pages of 16 bytes, three rows, with an empty one between them; the second has one row. */
const std::string TWO_PAGES = hexImage({{0, 16}, {0x20, 3}});

/** How an image is programmed: "plain", "erased" before, "emptied" where it has no data, or by "records". */
class imageProgrammerTest : public testing::Test {
protected:
    bool program(const std::string& how, const std::string& text, const std::string& script,
                 bool strict = true, milliseconds cancel = milliseconds::max()) {
        const std::string path = testing::TempDir() + "programmed.hex";
        std::ofstream(path) << text;
        host = ScriptedHost(script);
        host.cancelTime = cancel;
        bootloadDialogue dialogue(host);
        imageProgrammer programmer(host, dialogue, "X: ");
        programmer.setTarget(ScriptedHost::MODULE, true);
        dialogue.enter(ScriptedHost::MODULE, true, true);
        host.sent.clear();
        if (how == "records") {
            hexrecords image(path);
            return programmer.programRecords(image);
        }
        hexpage image;
        const LAYOUT layout{{{0, 0x10000, 16}}, false, how == "erased", how == "emptied", true};
        EXPECT_TRUE(flashLayouts::readImage(path, layout, image));
        return programmer.programImage(layout, image, strict);
    }
    long linesWith(const std::string& text) const {
        return std::count_if(host.logged.begin(), host.logged.end(), [&text](const std::string& line) {
            return line.find(text) != std::string::npos;
        });
    }

    ScriptedHost host;
};

TEST_F(imageProgrammerTest, WhatGoesWrongIsTriedAgainAndLogged) {
    // Image | script | result | lines of the log, with this text | what is sent
    const char* const table = R"(
        plain   |                   | done   | 2 | [Notice]: X: Page written successfully | S R0 R1 R2 W S R0 W
        erased  |                   | done   | 2 | [Notice]: X: Page written successfully | A S R0 R1 R2 W S R0 W
        emptied |                   | done   | 1 | [Notice]: X: Blocks Erased | S R0 R1 R2 W E S R0 W
        plain   | S: =4 =4 =4 ok =4 =4 =4 ok | done | 6 | [Warning]: X: Could not send SOH.  Retrying. | S S S S R0 R1 R2 W S S S S R0 W
        plain   | S: =4             | failed | 1 | [Error]: X: Page retry count exceeded.  Exiting. | S S S S
        plain   | S: =6 ok          | done   | 1 | [Notice]: X: Page ignored | S S R0 W
        plain   | S: =6 ok          | done   | 0 | Nothing written | S S R0 W
        plain   | S: =6             | done   | 1 | [Warning]: X: Nothing written: the module ignored every page | S S
        plain   | S: ok =6; W: =4   | failed | 0 | Page ignored | S R0 R1 R2 W W W W S S S
        plain   | S: =4 =6 ok       | done   | 1 | Page ignored | S S S R0 W
        plain   | R: =1 ok          | done   | 1 | [Warning]: X: Data TX error...retrying... | S R0 S R0 R1 R2 W S R0 W
        plain   | R: =1             | failed | 4 | Data TX error | S R0 S R0 S R0 S R0
        plain   | R: deaf; ?: deaf  | failed | 4 | [Warning]: X: No response from data send...retrying page | S R0 ? R0 ? R0 ? R0 ? S ? R0 ? R0 ? R0 ? R0 ? S ? R0 ? R0 ? R0 ? R0 ? S ? R0 ? R0 ? R0 ? R0 ?
        plain   | W: =4 =4 =4 ok    | done   | 0 | [Warning] | S R0 R1 R2 W W W W S R0 W
        plain   | W: =4 =4 =4 =4 ok | done   | 1 | [Warning]: X: Could not write page to internal flash...retrying... | S R0 R1 R2 W W W W S R0 R1 R2 W S R0 W
        plain   | W: =4             | failed | 4 | Could not write | S R0 R1 R2 W W W W S R0 R1 R2 W W W W S R0 R1 R2 W W W W S R0 R1 R2 W W W W
        erased  | A: =5             | failed | 1 | [Error]: X: Could not erase range (all) | A
        emptied | E: =5             | failed | 1 | [Error]: X: Could not erase range | S R0 R1 R2 W E
        emptied | E: =6             | done   | 1 | Blocks Erased | S R0 R1 R2 W E S R0 W
        records |                   | done   | 0 | [Warning] | A R0 W R0 R1 R2 W R0 W R0 R1 W R0 W
        records | A: =5 =5 =5 ok    | done   | 3 | [Warning]: Serial: Flash Mem Erase Fail: Internal Error | A M A M A M A R0 W R0 R1 R2 W R0 W R0 R1 W R0 W
        records | A: =5             | failed | 1 | [Error]: Serial: Mem Erase Tries Exceeded....Exiting... | A M A M A M A
        records | A: deaf; ?: deaf; M: deaf | failed | 4 | [Warning]: Serial: Flash Mem Erase Fail: No response | A M A M A M A ?
        records | R: ok =1 ok       | done   | 1 | [Warning]: Serial: Could not write page to memory | A R0 W R0 R0 R1 R2 W R0 W R0 R1 W R0 W
        records | R: =1             | failed | 1 | [Error]: Serial: Program retry count exceeded...Exiting... | A R0 R0 R0 R0
        records | ,: twice          | done   | 0 | anew | A R0 W R0 R1 R2 W R0 W R0 R1 W R0 W
        one row | W: deaf           | failed | 0 | X: Page written successfully | S R0 W M W M W M W M S R0 W M W M W M W M S R0 M R0 M W M W M W M W M S R0 W M W M W M W ?
        records | W: ok&id9         | failed | 1 | [Error]: Serial: The module started its bootloader anew | A R0 W R0 R1 R2 W
        records | W: ok&id8 ok      | done   | 0 | anew | A R0 W R0 R1 R2 W R0 W R0 R1 W R0 W)";
    for (const auto& row : rowsOf(table)) {
        EXPECT_EQ(program(row[0], row[0] == "one row" ? hexImage({{0, 3}}) : TWO_PAGES, row[1]),
                  row[2] == "done")
            << row[1];
        EXPECT_EQ(linesWith(row[4]), std::stoi(row[3])) << row[1] << row[4];
        EXPECT_EQ(host.transcript(), row[5]) << row[1];
    }
}

TEST_F(imageProgrammerTest, ALongRunOfEmptyPagesIsErasedInParts) {
    // Empty pages | how | first address and count of each request | what a line of the log says is left
    for (const auto& row : rowsOf(R"(
          1 | strict | 10 1;                          |
        255 |        | 10 255;                        |
        255 | strict | 10 255;                        |
        256 |        | 10 0;                          |
        256 | strict | 10 255; 1000 1;                |
        300 |        | 10 44;                         | 0x2d0 to 0x12cf
        300 | strict | 10 255; 1000 45;               |
        512 |        | 10 0;                          | 0x1010 to 0x200f
        600 | strict | 10 255; 1000 255; 1ff0 90;     |)")) {
        const auto pages = static_cast<std::uint32_t>(std::stoi(row[0]));
        EXPECT_TRUE(program("emptied", hexImage({{0, 16}, {16 * (pages + 1), 3}}), "", row[1] == "strict"));
        std::ostringstream erased;
        for (const auto& [when, msg] : host.sent) {
            if (msg.id == busProtocol::BOOTLOADER_COMMAND && msg.data[1] == busProtocol::ERASE_BLOCKS) {
                erased << (erased.str().empty() ? "" : " ") << std::hex << msg.data[2] * 256 + msg.data[3]
                       << std::dec << ' ' << int{msg.data[4]} << ';';
            }
        }
        EXPECT_EQ(erased.str(), row[2]) << row[0] << row[1];
        EXPECT_EQ(linesWith("Not erased, since a request names at most 256 blocks: " + row[3]),
                  row[3].empty() ? 0 : 1)
            << row[0] << row[1];
    }
}

TEST_F(imageProgrammerTest, ACancelledRunEndsAtOnceAndLogsNoError) {
    for (const char* how : {"erased", "emptied", "records"}) {
        for (milliseconds cancel{1020}; cancel.count() < 2000; cancel += milliseconds(7)) {
            EXPECT_FALSE(program(how, TWO_PAGES, "S: lost ok; R: late60; W: late90; E: lost ok; A: lost ok",
                                 true, cancel));
            EXPECT_LE(host.time, cancel + bootloadTiming::PAUSE) << cancel.count();
            EXPECT_EQ(linesWith("[Error]"), 0) << cancel.count();
        }
    }
}

} // namespace
