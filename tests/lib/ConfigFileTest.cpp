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
    for (const auto& [text, number] : {std::pair{"12", 12U},
                                       {"12abc", 12U},
                                       {"0x10", 0U},
                                       {"abc", 0U},
                                       {"4294967295", 4294967295U},
                                       {"007", 7U}}) {
        std::uint32_t value = 99;
        EXPECT_TRUE(parse(std::string("a = ") + text).readInto(value, "a"));
        EXPECT_EQ(value, number) << text;
    }
}

TEST(ConfigFile, AnAbsentKeyLeavesTheVariable) {
    ConfigFile config = parse("a = 1 2\n");
    std::string text = "preset";
    EXPECT_FALSE(config.readInto(text, "b") || config.keyExists("b"));
    EXPECT_EQ(text, "preset");
    EXPECT_TRUE(config.readInto(text, "a"));
    EXPECT_EQ(text, "1 2");
    config.remove("a");
    EXPECT_FALSE(config.keyExists("a"));
    EXPECT_THROW(ConfigFile("/tmp/none.cfg", "=", "#", ""), ConfigFile::file_not_found);
}

TEST(ConfigFile, WithoutSentryItReadsToTheEnd) {
    ConfigFile config;
    config.setDelimiter("->");
    std::istringstream text("a -> 1\nEndConfigFile\nb->2 # x\n");
    text >> config;
    EXPECT_EQ(entries(config), "a -> 1\nEndConfigFile\nb -> 2\n");
}

} // namespace
