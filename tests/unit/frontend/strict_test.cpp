// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/options/strict.h"

#include "front_end_fixture.h"
#include "tslwnfs/terminal/screen.h"

using testing::HasSubstr;

namespace {

constexpr Strict kAll[] = {Strict::names, Strict::location, Strict::status, Strict::options, Strict::modes};

class Strictness : public FrontEnd {
  protected:
    ~Strictness() override {
        unsetenv("TSLWNFS_STRICT");
        read_strictness();
    }

    static std::string chosen(const char *list) {
        const ScopedEnvironment strict("TSLWNFS_STRICT", list);
        read_strictness();
        std::string letters;
        for (const Strict word : kAll)
            letters += is_strict(word) ? 'x' : '-';
        return letters;
    }
};

TEST_F(Strictness, IsChosenWordByWord) {
    EXPECT_EQ(chosen(nullptr), "-----");
    EXPECT_EQ(chosen(""), "-----");
    EXPECT_EQ(chosen("names"), "x----");
    EXPECT_EQ(chosen("modes, location ,,status"), "-xx-x");
    EXPECT_EQ(chosen("all"), "xxxxx");
    EXPECT_EQ(chosen("Names,nam,name s"), "-----");
}

TEST_F(Strictness, WarnsOfAWordItDoesNotKnowAtATerminalAndKeepsTheOthers) {
    CapturedOutput errors(STDERR_FILENO);
    EXPECT_EQ(chosen("nmaes,status"), "--x--");
    const ScopedEnvironment always("TSLWNFS_TERMINAL", "always");
    terminal::open();
    EXPECT_EQ(chosen("nmaes,status"), "--x--");
    terminal::close();
    EXPECT_EQ(errors.text(),
              "tslwnfs: warning: TSLWNFS_STRICT: \"nmaes\" is none of names, location, status, options, modes, all\n");
}

// What the command line shrugs off otherwise.
const std::vector<std::string> kLoose = {
    "ls -lX /a",
    "ls /a /b",
    "cp -rq a b",
    "rm -x a",
    "cat -n a",
    "mkdir -q a",
    "stat -q a",
    "stat -c",
    "rmdir -p a",
    "find /a -mindepth 1",
    "find /a -maxdepth x",
    "find /a -maxdepth 3x",
    "find /a -maxdepth",
    "find /a -size 1kk",
    "find /a -size +",
    "find /a -size 3000000k",
    "find /a -size 99999999999",
    "find /a -type x",
    "find /a -type file",
    "find /a b",
    "-level x 0 0 0 cat a",
    "mount e m -u oracle",
    "mount e m -x 1",
    "mount e m x",
    "createtslnfstab -s n -u oracle",
    "createtslnfstab -s n -g 4294967296",
    "createtslnfstab -s n -t soon",
    "createtslnfstab -s n -r x",
    "createtslnfstab -s n -q 1",
    "createtslnfstab -s",
    "delete_server -s n -q",
    "delete_server -s n more",
    "mount_script -e e -m m -q",
    "save now",
    "nfsids me",
    "dd -if a -of b -bs 3000000000",
    "dd -if a -of b -bs 4g",
    "dd -if a -of b -bs 1:2",
    "dd -if a -of b -bs 4kx",
    "dd -if a -of b -bs k",
    "dd -if a -of b -bs 1 -bs 2",
    "dd -if a -of b -p 9999999999",
    "dd -if a -of b -bs 1m -skip 4000",
};

TEST_F(Strictness, OfOptionsMakesWhatIsUnknownOrUnreadableAnError) {
    for (const std::string &line : kLoose) {
        recorder() = {};
        reset_options();
        run(line);
        EXPECT_FALSE(recorder().calls.empty()) << line << " is accepted otherwise";
        const ScopedEnvironment strict("TSLWNFS_STRICT", "options");
        recorder() = {};
        reset_options();
        EXPECT_EQ(run(line), 1) << line;
        EXPECT_TRUE(recorder().calls.empty()) << line;
        EXPECT_THAT(printed_, HasSubstr("TWNFS-65006: Usage")) << line;
    }
}

TEST_F(Strictness, OfOptionsAcceptsWhatIsRight) {
    const ScopedEnvironment strict("TSLWNFS_STRICT", "options");
    for (const char *line :
         {"ls -laR /a", "cp -ir a b", "find /a -size +10k -type f -maxdepth 3 -name x -print",
          "find /a -exec echo {} more words", "stat -c %n a", "stat -fl a", "mkdir -p a -y", "mount e m -f -u 1 -g 2",
          "createtslnfstab -s n -u 0 -g 4294967295 -t 30 -r 20049 -em e,m", "dd -if a -of b -bs 64kb -count 1m -skip 3",
          "dd -if a -of b -ibs 1k -obs 2K -p 4 -seek 1", "delete_server -s n", "wnfsdisable -deletetdmdir", "save -y",
          "-level 1 2 3 4 cat a", "mount_script -e e -m m", "showmount -e s", "nfsids"}) {
        recorder() = {};
        reset_options();
        EXPECT_EQ(run(line), 0) << line;
    }
}

TEST_F(Strictness, OfOptionsTellsWhichWordIsWrong) {
    const ScopedEnvironment strict("TSLWNFS_STRICT", "options");
    run("-trace " + directory_ / "trace" + " -level 0 0 0 3 ls -X /a");
    EXPECT_EQ(trace(), "[n],get_options -X is no option of this command (TSLWNFS_STRICT)\n");
}

TEST_F(Strictness, OfNamesKeepsTheCaseOfWhatIsBuiltAndMatchesWithoutRegardToIt) {
    recorder().listing = {"Report.TXT", "other"};
    EXPECT_EQ(run("cp /d/*.txt /to/*.Bak"), 0);
    EXPECT_THAT(recorder().calls, testing::Contains("copyfile(/d/report.txt, /to/report.bak)"));
    const ScopedEnvironment strict("TSLWNFS_STRICT", "names");
    reset_options();
    recorder().calls.clear();
    EXPECT_EQ(run("cp /d/*.txt /to/*.Bak"), 0);
    EXPECT_THAT(recorder().calls, testing::Contains("copyfile(/d/Report.TXT, /to/Report.Bak)"));
    reset_options();
    EXPECT_EQ(run("cp /d/a /to/New"), 0);
    EXPECT_THAT(recorder().calls, testing::Contains("copyfile(/d/a, /to/New)"));
}

}  // namespace
