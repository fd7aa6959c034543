#include "lib/functs.h"

#include "support/panel.h"

#include <algorithm>
#include <filesystem>
#include <sys/stat.h>
#include <tuple>

namespace fs = std::filesystem;

namespace {

const std::string HERE = "/tmp/functs/";

class functsTest : public testing::Test {
protected:
    functsTest() { fs::create_directory(HERE); }
    ~functsTest() override { fs::remove_all(HERE); }
    functs f;
};

TEST_F(functsTest, SplitGivesEveryPieceOrNone) {
    const std::tuple<std::string, std::string, Texts> rows[] = {{"abc", ",", {}},
                                                                {"", ",", {}},
                                                                {"a,b,", ",", {"a", "b", ""}},
                                                                {",,", ",", {"", "", ""}},
                                                                {"a, b,c, ", ", ", {"a", "b,c", ""}},
                                                                {"aaa", "aa", {"", "a"}},
                                                                {"abc", "", {}}};
    for (const auto& [text, separator, pieces] : rows) {
        EXPECT_EQ(f.split(text, separator), pieces) << text;
        if (separator.size() == 1) {
            EXPECT_EQ(f.split(text, separator[0]), pieces) << text;
        }
    }
}

TEST_F(functsTest, Texts) {
    EXPECT_EQ(f.join({"a", "b"}, ','), "a,b,");
    EXPECT_EQ(f.join({}, ','), "");
    EXPECT_EQ(f.strip_characters("a--b-", '-'), "ab");
    std::string text = " \t\v\r\n\fa b\n ";
    EXPECT_EQ(&f.ltrim(text), &text);
    EXPECT_EQ(text, "a b\n ");
    EXPECT_EQ(f.rtrim(text), "a b");
    std::string blank = " \n";
    EXPECT_EQ(f.trim(blank), "");
    std::string mixed = "MiXeD-9@[`{\xC4\xE4";
    f.strCase(mixed, true);
    EXPECT_EQ(mixed, "MIXED-9@[`{\xC4\xE4");
    f.strCase(mixed, false);
    EXPECT_EQ(mixed, "mixed-9@[`{\xC4\xE4");
}

TEST_F(functsTest, PathsAreTestedMadeAndRemoved) {
    umask(0);
    EXPECT_TRUE(f.makeDir(HERE + "one"));
    EXPECT_EQ(fs::status(HERE + "one").permissions(), static_cast<fs::perms>(0755));
    umask(022);
    EXPECT_FALSE(f.makeDir(HERE + "one") || f.makeDir(HERE + "two/three"));
    put(HERE + "one/file", "12345");
    fs::create_symlink(HERE, HERE + "link");
    EXPECT_TRUE(f.isDirectory(HERE + "one") && f.isDirectory(HERE + "link") && !f.isFile(HERE));
    EXPECT_TRUE(f.isFile(HERE + "one/file") && !f.isDirectory(HERE + "one/file"));
    EXPECT_FALSE(f.isFile("/dev/null") || f.isFile(HERE + "none") || f.isDirectory(HERE + "none"));
    EXPECT_EQ(f.getFileSize(HERE + "one/file"), 5);
    EXPECT_EQ(f.getFileSize(HERE + "none"), 0);
    EXPECT_FALSE(f.removeFile(HERE + "one"));
    EXPECT_TRUE(f.removeFile(HERE + "one/file") && f.removeFile(HERE + "one"));
}

TEST_F(functsTest, ContentsEndWithANewlineWhenRead) {
    for (const auto& [content, read] :
         {std::pair{"", ""}, {"a", "a\n"}, {"a\r\n\nb", "a\r\n\nb\n"}, {"a\n", "a\n"}, {"\n", "\n"}}) {
        put(HERE + "file", content);
        EXPECT_EQ(f.getFileContents(HERE + "file"), read);
    }
    EXPECT_EQ(f.getFileContents(HERE + "none"), "");
    EXPECT_EQ(f.getFileContents(HERE), ""); // a directory
    EXPECT_TRUE(f.writeFileContents(HERE + "file", "a"));
    EXPECT_TRUE(f.writeFileContents(HERE + "file", "b", true));
    EXPECT_EQ(contents(HERE + "file"), "ab");
    EXPECT_FALSE(f.writeFileContents(HERE + "none/file", "a"));
}

TEST_F(functsTest, CopiesReplaceOrAppend) {
    const std::string binary("a\0\r\n\xFF", 5);
    put(HERE + "source", binary, 0755);
    put(HERE + "dest", "old");
    EXPECT_TRUE(f.copyFile(HERE + "source", HERE + "dest", false, true));
    EXPECT_FALSE(f.copyFile(HERE + "none", HERE + "dest", true, true));
    EXPECT_EQ(contents(HERE + "dest"), "old" + binary);
    EXPECT_TRUE(f.copyFile(HERE + "source", HERE + "dest", true));
    EXPECT_EQ(contents(HERE + "dest"), binary);
    EXPECT_EQ(fs::status(HERE + "dest").permissions(), static_cast<fs::perms>(0644));
    EXPECT_FALSE(f.copyFile(HERE + "none", HERE + "dest", true));
    EXPECT_EQ(contents(HERE + "dest"), "") << "truncated all the same";
    EXPECT_TRUE(f.copyFile(HERE + "dest", HERE + "source", true)) << "an empty file";
    EXPECT_EQ(contents(HERE + "source"), "");
    EXPECT_FALSE(f.copyFile(HERE + "dest", HERE + "none/dest", true));
}

TEST_F(functsTest, RemovesADirectoryAsItsFlagsSay) {
    const std::tuple<bool, bool, Texts> rows[] = {
        {false, false, {"outside", "tree", "tree/full", "tree/full/file"}}, // files only
        {true, true, {"outside", "tree"}},
        {true, false, {"outside"}},
    };
    put(HERE + "outside", "");
    for (const auto& [recursive, leaveTop, remaining] : rows) {
        put(HERE + "tree/full/file", "");
        put(HERE + "tree/.hidden", "");
        fs::create_directories(HERE + "tree/empty");
        fs::create_symlink("/tmp/functs", HERE + "tree/link"); // removed, never followed
        EXPECT_TRUE(f.rmDir(HERE + "tree", recursive, leaveTop));
        Texts left;
        for (const auto& entry : fs::recursive_directory_iterator(HERE)) {
            left.push_back(entry.path().lexically_relative(HERE));
        }
        std::sort(left.begin(), left.end());
        EXPECT_EQ(left, remaining);
    }
    EXPECT_FALSE(f.rmDir(HERE + "tree", true, false));
}

TEST_F(functsTest, CopiesADirectory) {
    put(HERE + "a/file", "1");
    put(HERE + "a/sub/.hidden", "2");
    EXPECT_TRUE(f.copyDir(HERE + "a", HERE + "b", true) && f.copyDir(HERE + "a", HERE + "c", false));
    EXPECT_EQ(contents(HERE + "b/file") + contents(HERE + "b/sub/.hidden"), "12");
    EXPECT_EQ(contents(HERE + "c/file") + contents(HERE + "c/sub/.hidden"), "1");
    EXPECT_FALSE(f.copyDir(HERE + "none", HERE + "d", true));
}

TEST_F(functsTest, RunsACommandAndCollectsItsOutput) {
    std::string out = "before ";
    EXPECT_TRUE(f.runProcess("echo hi; echo unseen >&2", out));
    EXPECT_EQ(out, "before hi\n");
    EXPECT_FALSE(f.runProcess("printf %0200d 7; exit 3", out));
    EXPECT_EQ(out.size(), 10U + 200U); // more than one chunk
}

} // namespace
