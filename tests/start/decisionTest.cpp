// What the starter decides, by what lies on the panel and what the record says of it.

#include "../../tools/start/decision.h"

#include "support/panel.h"
#include "support/table.h"

#include "lib/sha1.h"

namespace {

const std::string TREE = "/keldra/tmp/keldra_update/";

/** The content of a program of this name: a script, or of a processor but cut short when it begins with
 * "cut". */
std::string named(const std::string& name) {
    return (name.starts_with("cut") ? contents(STARTER).substr(0, 5000) : "#!") + name;
}

/** A program under a short name; "-" is none. */
startRecord::PROGRAM program(const std::string& name) {
    put("/tmp/program", named(name), 0755);
    return name == "-" ? startRecord::PROGRAM() : startRecord::programAt("/tmp/program");
}

void lay(const std::string& name, const std::string& path) {
    shell("rm -f " + path);
    if (name != "-") {
        put(path, name == "empty" ? "" : named(name), name == "bare" ? 0644 : 0755);
    }
}

/** The unpacked package: its updater, and whether the rest is there ("part" while it is being unpacked). */
void layPackage(const std::string& name) {
    shell("rm -rf /keldra/tmp/*; mkdir " + TREE);
    const std::string updater = name.substr(0, name.find(' '));
    lay(updater, TREE + "K+Updater");
    if (updater != "-") {
        put(TREE + "update.manifest", "{}");
        put(TREE + "update.manifest.sha",
            sha1::ofText(name.ends_with(" damaged") ? "" : "{}") + "  update.manifest\n");
    }
    if (name.ends_with(" part")) {
        put("/keldra/tmp/keldra_update.unpacking", "");
    }
}

class decisionTest : public Panel {};

TEST_F(decisionTest, StartsWhatIsWhole) {
    // Programs are named by their content, "torn" and "other" ones of which no record tells; "trial" and what
    // is started: I installed, P packaged, F former.
    const char* const rows = R"(
        installed | package | copy  | updater coming former refused trial underway | starts       | trial
        old       | -       | -     | -       -      -      -       no    no       | I            | no
        old       | -       | -     | old     -      -      -       no    no       | I            | no
        old       | new     | -     | old     -      -      -       no    no       | I            | no
        old       | new     | -     | old     -      -      -       no    yes      | I auto       | no
        old       | new part| -     | old     -      -      -       no    yes      | I            | no
        old       | new damaged| -  | old     -      -      -       no    yes      | I            | no
        old       | new     | old   | old     new    old    -       no    yes      | I            | no
        -         | new     | old   | old     new    old    -       no    yes      | P auto       | 1
        torn      | new     | old   | old     new    old    -       no    yes      | P auto       | 1
        bare      | new     | old   | old     bare   old    -       no    yes      | F            | no
        torn      | new part| old   | old     new    old    -       no    yes      | F            | no
        torn      | other   | old   | old     new    old    -       no    yes      | F            | no
        torn      | new     | old   | old     new    old    -       1     yes      | P auto       | 2
        torn      | new     | old   | old     new    old    -       2     yes      | F            | no
        new       | new     | old   | old     new    old    -       no    yes      | I auto       | 1
        new       | new     | old   | new     -      old    -       0     yes      | I auto       | 1
        new       | new     | old   | new     -      old    -       1     no       | I            | 2
        new       | new     | old   | new     -      old    -       2     yes      | F            | no
        new       | new     | torn  | new     -      old    -       2     no       | I            | 3
        new       | new     | old   | old     old    old    new     no    no       | F            | no
        other     | -       | old   | old     -      old    -       no    no       | F            | no
        other     | new     | old   | old     -      old    -       no    no       | P auto       | 1
        other     | cut     | old   | old     -      old    -       no    no       | F            | no
        other     | -       | torn  | old     -      old    -       no    no       | F            | no
        other     | -       | cut   | old     -      old    -       no    no       | I            | no
        other     | new     | old   | -       -      -      -       no    no       | I            | no
        cut       | new     | -     | -       -      -      -       no    no       | P auto       | 1
        cut       | -       | old   | -       -      -      -       no    no       | F            | no
        cut       | -       | -     | -       -      -      -       no    no       | I            | no
        empty     | -       | old   | old     -      old    -       no    no       | F            | no
        -         | new     | -     | -       -      -      -       no    no       | P auto       | 1
        -         | -       | old   | -       -      -      -       no    no       | F            | no
        torn      | -       | -     | old     new    -      -       no    no       | I            | no
        -         | -       | -     | old     -      -      -       no    no       | nothing      | no
    )";
    for (const auto& row : rowsOf(rows)) {
        std::istringstream words(row[3]);
        std::string updater, coming, former, refused, trial, underway;
        words >> updater >> coming >> former >> refused >> trial >> underway;
        if (updater == "updater") {
            continue;
        }
        startRecord record;
        record.updater = program(updater);
        record.coming = program(coming);
        record.former = program(former);
        record.refused = program(refused);
        record.trial = trial == "no" ? startRecord::PROVEN : std::stoi(trial);
        record.underway = underway == "yes" ? startRecord::UNDERWAY::UPDATE : startRecord::UNDERWAY::NOTHING;
        lay(row[0], startRecord::INSTALLED);
        layPackage(row[1]);
        lay(row[2], startRecord::FORMER);

        const Decision decision = decide(record);
        const std::string& path = decision.program;
        std::string starts = path == startRecord::INSTALLED ? "I" : path == startRecord::FORMER ? "F" : "P";
        starts = path.empty() ? "nothing" : starts + (decision.mode.empty() ? "" : " " + decision.mode[0]);
        const int counted = decision.record.trial;
        const std::string what = row[0] + " | " + row[1] + " | " + row[2] + " | " + row[3];
        EXPECT_EQ(starts, row[4]) << what;
        EXPECT_EQ(counted == startRecord::PROVEN ? "no" : std::to_string(counted), row[5]) << what;
        EXPECT_EQ(decision.isOnTrial, row[5] != "no") << what;
    }
}

/** What the updater writes, the starter reads; and whatever is left of it never makes it fail. */
TEST_F(decisionTest, TheRecordSurvives) {
    EXPECT_FALSE(startRecord().save()); // no folder, no record
    shell("mkdir /keldra/start");
    startRecord record;
    record.updater = program("old");
    record.coming = program("new");
    record.coming.version = "2.0 of\nToday";
    record.item = "with blank/K+Updater";
    record.trial = 1;
    record.underway = startRecord::UNDERWAY::FORCED;
    record.tornKernel = record.isBack = true;
    ASSERT_TRUE(record.save());
    const std::string text = contents("/keldra/start/record");
    const startRecord read = startRecord::load();
    EXPECT_TRUE(read.updater.is(record.updater) && read.coming.is(record.coming));
    EXPECT_EQ(read.coming.version, "2.0 of Today");
    EXPECT_EQ(read.item, record.item);
    EXPECT_EQ(read.trial, 1);
    EXPECT_TRUE(read.underway == record.underway && read.tornKernel && read.isBack);
    for (std::size_t size = 0; size + 1 < text.size(); ++size) {
        put("/keldra/start/record", text.substr(0, size));
        EXPECT_FALSE(startRecord::load().updater.isKnown()) << size;
    }
}

/** The starter itself starts an updater where nothing can be written, too, and gives up a bad one. */
TEST_F(decisionTest, StartsWhateverTheCardIs) {
    const char* const rows = R"(
        true                                                      | good | I         | 0
        mount -t tmpfs -o ro nothing /keldra                      | good | I         | 0
        protect /keldra; protect /usr/bin                        | good | I         | 0
        fill                                                      | good | I         | 0
        true                                                      | bad  | I I F     | 0
        true                                                      | late | I I F     | 0
        true                                                      | torn | F         | 0
        protect /keldra                                           | bad  | I I F     | 0
        fill                                                      | bad  | I I F     | 0
        protect /keldra                                           | -    | F         | 0
        mount -t tmpfs -o ro nothing /keldra                      | bad  | I I I I I | 1
        mount -t tmpfs -o ro nothing /keldra                      | -    | nothing   | 1
    )";
    put("/tmp/good", "#!/bin/sh\nexit 0\n", 0755);
    put("/tmp/bad", "#!/bin/sh\nexit 1\n", 0755);
    put("/tmp/late", "#!/bin/sh\nsed -i /^trial/d /keldra/start/record\nexit 1\n", 0755); // behind its proof
    put("/tmp/torn", "#!/bin/sh\nexit 0\n#", 0755);
    const std::string functions =
        "protect() { mount --bind $1 $1 && mount -o remount,bind,ro $1; }; "
        "fill() { mount -t tmpfs -o size=64k small /mnt/usb && cp -a /keldra/start/* /mnt/usb;"
        " head -c 1M /dev/zero > /mnt/usb/full; mount --move /mnt/usb /keldra/start; }; ";
    for (const auto& row : rowsOf(rows)) {
        shell("rm -rf /keldra/start; mkdir /keldra/start; cp /tmp/good " + startRecord::FORMER);
        startRecord record;
        record.updater = record.former = startRecord::programAt("/tmp/good");
        if (row[1] == "bad" || row[1] == "late") {
            record.updater = startRecord::programAt("/tmp/" + row[1]);
            record.trial = 0;
        }
        ASSERT_TRUE(record.save());
        shell("rm -f " + startRecord::INSTALLED);
        if (row[1] != "-") {
            shell("cp /tmp/" + row[1] + " " + startRecord::INSTALLED);
        }
        shell("unshare -m sh -c '" + functions + row[0] +
              "; \"$@\" > /tmp/said 2>&1; echo $? > /tmp/status' sh " EMULATOR STARTER);
        std::string started;
        std::istringstream said(contents("/tmp/said"));
        for (std::string teller, what, path, rest;
             said >> teller >> what >> path && std::getline(said, rest);) {
            const bool starts = teller == "keldra-start:" && what == "starts";
            started += !starts                    ? ""
                       : path.starts_with("/usr") ? "I "
                       : path.starts_with("/")    ? "F "
                                                  : "nothing ";
        }
        EXPECT_EQ(started, row[2] + " ") << row[0] << '\n' << contents("/tmp/said");
        EXPECT_EQ(contents("/tmp/status"), row[3] + "\n") << row[0];
    }
}

} // namespace
