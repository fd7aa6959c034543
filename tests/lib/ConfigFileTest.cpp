#include "lib/ConfigFile.h"

#include "support/panel.h"

#include <cstdint>
#include <sstream>

namespace {

ConfigFile parse(const std::string& text) {
    put("/tmp/test.cfg", text);
    return ConfigFile("/tmp/test.cfg", "=", "#", "EndConfigFile");
}

/** All of it, in key order. */
std::string entries(const ConfigFile& config) {
    std::ostringstream out;
    out << config;
    return out.str();
}

TEST(ConfigFile, Syntax) {
    const struct {
        const char* name;
        const char* text;
        const char* entries;
    } rows[] = {
        {"comment behind a value", "dir = /keldra  # where\n", "dir = /keldra\n"},
        {"last one wins", "a=1\nb=2\na=3\n", "a = 3\nb = 2\n"},
        {"later delimiters", "a=b=c\n", "a = b=c\n"},
        {"no newline at the end", "a=1", "a = 1\n"},
        {"CRLF", "a=1\r\nb=2\r\n", "a = 1\nb = 2\n"},
        {"sentry ends it", "a=1\n# x\nEndConfigFile\nb=2\n", "a = 1\n"},
        {"sentry anywhere in a line", "a=1\nb=EndConfigFile2\nc=3\n", "a = 1\n"},
        {"sentry in a comment", "a=1 # EndConfigFile\nb=2\n", "a = 1\nb = 2\n"},
        {"value over lines", "a=1\n  two\nb=3\n", "a = 1\n  two\nb = 3\n"},
        {"comment within a value over lines", "a=1\n# no\ntwo # x\n", "a = 1\ntwo\n"},
        {"blank line ends a value", "a=1\n\ntwo\nb=3\n", "a = 1\nb = 3\n"},
        {"line without delimiter", "nothing\na=1\n", "a = 1\n"},
        {"empty value and empty key", "a=\n=b\n", " = b\na = \n"},
        {"delimiter in a comment only", "a # = 1\n", ""},
        {"nothing", "", ""},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(entries(parse(row.text)), row.entries) << row.name;
    }
}

TEST(ConfigFile, NumbersEndWhereTheirTextCannotGoOn) {
    const struct {
        const char* text;
        std::uint32_t value;
    } rows[] = {{"12", 12}, {"12abc", 12}, {"0x10", 0}, {"abc", 0}, {"4294967295", 4294967295U}, {"007", 7}};
    for (const auto& row : rows) {
        std::uint32_t value = 99;
        EXPECT_TRUE(parse(std::string("a = ") + row.text).readInto(value, "a"));
        EXPECT_EQ(value, row.value) << row.text;
    }
}

TEST(ConfigFile, AnAbsentKeyLeavesTheVariable) {
    ConfigFile config = parse("a = 1 2\n");
    std::string text = "preset";
    std::uint32_t number = 99;
    EXPECT_FALSE(config.readInto(text, "b") || config.readInto(number, "b") || config.keyExists("b"));
    EXPECT_EQ(text, "preset");
    EXPECT_EQ(number, 99U);
    EXPECT_TRUE(config.readInto(text, "a"));
    EXPECT_EQ(text, "1 2");
    config.remove("a");
    EXPECT_FALSE(config.keyExists("a"));
}

TEST(ConfigFile, WithoutSentryItReadsToTheEnd) {
    ConfigFile config;
    config.setDelimiter("->");
    std::istringstream text("a -> 1\nEndConfigFile\nb->2 # x\n");
    text >> config;
    EXPECT_EQ(entries(config), "a -> 1\nEndConfigFile\nb -> 2\n");
}

TEST(ConfigFile, AMissingFileIsTold) {
    EXPECT_THROW(ConfigFile("/tmp/none.cfg", "=", "#", ""), ConfigFile::file_not_found);
}

} // namespace
