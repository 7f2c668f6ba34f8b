// SPDX-License-Identifier: Apache-2.0
// What a person at a terminal reads of a command line that is carried out otherwise than it was most likely meant.
#include <cerrno>

#include "front_end_fixture.h"
#include "tslwnfs/frontend/command_table.h"
#include "tslwnfs/options/strict.h"
#include "tslwnfs/terminal/reasons.h"
#include "tslwnfs/terminal/screen.h"

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

class Doubts : public FrontEnd {
  protected:
    Doubts() { terminal::open(); }
    ~Doubts() override {
        terminal::close();
        unsetenv("TSLWNFS_STRICT");
        read_strictness();
    }

    // What a person reads while a line runs.
    std::string said(const std::string &line) {
        reset_options();
        recorder().calls.clear();
        CapturedOutput errors(STDERR_FILENO);
        status_ = run(line);
        return errors.text();
    }

    int status_ = 0;

  private:
    ScopedEnvironment always_{"TSLWNFS_TERMINAL", "always"};
};

struct Mistake {
    const char *line;
    const char *warning;
};

TEST_F(Doubts, OfWordsAndNumbersAreToldBeforeAnythingRuns) {
    const Mistake mistakes[] = {
        {"find /a -type f -size +100M -exec x {}", "find: -size +100M was read as 100 bytes"},
        {"find /a -size 1kk", "find: -size 1kk was read as 1024 bytes"},
        {"find /a -empty -exec x {}", "find: -empty is not known and was skipped"},
        {"find /a -not -name x", "find: -not is not known and was skipped"},
        {"find /a -mtime 30 -print", "find: 30 and the words behind it were skipped"},
        {"find /a -delete", "find: -delete is not known and was skipped"},
        {"find /a -maxdepth 3x", "find: -maxdepth 3x was read as 3"},
        {"find /a -maxdepth", "find: -maxdepth lacks its value and was skipped"},
        {"find /a -type file", "find: -type file was read as f"},
        {"find /a -type x", "find: -type x is no type, f or d: nothing matches"},
        {"ls -lh /a", "ls: -h is not known and was skipped"},
        {"ls /a /b", "ls: /b is one word too many and was skipped"},
        {"cp -p a b", "cp: -p is not known and was skipped"},
        {"dd -if a -of b -count 4g", "dd: -count 4g was read as 0"},
        {"dd -if a -of b -seek 3 -obs 1024", "dd: -seek 3 was read as 0: its block size must stand in front of it"},
        {"dd -if a -of b -obs 1024 -seek 4194305", "dd: -seek 4194305 was read as 1024"},
        {"dd -if a -of b -bs 1 -bs 2", "dd: -bs was read as 12: it is given twice"},
        {"createtslnfstab -s n -u oracle", "createtslnfstab: -u oracle is no number and is written as 0"},
        {"createtslnfstab -s n -t soon", "createtslnfstab: -t soon was read as 0"},
    };
    for (const auto &[line, warning] : mistakes) {
        EXPECT_THAT(said(line), HasSubstr("tslwnfs: warning: " + std::string(warning) + "\n")) << line;
        EXPECT_EQ(status_, 0) << line;
        EXPECT_FALSE(recorder().calls.empty()) << line;
    }
}

TEST_F(Doubts, OfALineThatIsNotRunAreNotTold) {
    EXPECT_THAT(said("cp -p a b c"), Not(HasSubstr("warning")));
    EXPECT_EQ(status_, 1);
}

TEST_F(Doubts, AreNoneOfALineThatIsRight) {
    for (const char *line : {"rm -rf a", "ls -l /a", "find /a -size +10k -name x -exec rm {}", "dd -if a -of b -skip 0",
                             "cp /d/a /to/b", "cp /d/a /to/"}) {
        recorder().existing = {{"/to", true}};
        EXPECT_THAT(said(line), IsEmpty()) << line;
    }
}

TEST_F(Doubts, OfOffsetsWithoutABlockSizeAreErrorsUnderOptions) {
    const ScopedEnvironment strict("TSLWNFS_STRICT", "options");
    EXPECT_EQ(run("dd -if a -of b -seek 4194305 -obs 1024"), 1);
    EXPECT_THAT(recorder().calls, IsEmpty());
}

TEST_F(Doubts, OfManyFilesThatAreCopiedToOneNameAreToldOnce) {
    recorder().listing = {"a.dbf", "b.dbf", "c.dbf"};
    const std::string errors = said("cp /d/*.dbf /to/one");
    EXPECT_THAT(errors, HasSubstr("warning: /to/one already took another file of this copy, and is overwritten"));
    EXPECT_EQ(errors.find("warning"), errors.rfind("warning"));
    EXPECT_EQ(status_, 0);
    recorder().existing = {{"/to/one", true}};
    EXPECT_THAT(said("cp /d/*.dbf /to/one"), IsEmpty());
}

TEST_F(Doubts, OfManyFilesThatAreCopiedToOneNameAreErrorsUnderOptions) {
    const ScopedEnvironment strict("TSLWNFS_STRICT", "options");
    recorder().listing = {"a.dbf", "b.dbf"};
    EXPECT_THAT(said("cp /d/*.dbf /to/one"), HasSubstr("/to/one already took another file"));
    EXPECT_EQ(status_, 1);
    EXPECT_THAT(recorder().calls, testing::Contains("copyfile(/d/a.dbf, /to/one)"));
    EXPECT_THAT(recorder().calls, Not(testing::Contains("copyfile(/d/b.dbf, /to/one)")));
    recorder().existing = {{"/to/one", true}};
    EXPECT_THAT(said("cp /d/*.dbf /to/one"), IsEmpty());
    EXPECT_EQ(status_, 0);
}

TEST_F(Doubts, OfADestinationWithASlashThatIsNoDirectoryAreTold) {
    EXPECT_THAT(said("cp /d/a /to/new/"), HasSubstr("warning: /to/new is no directory: a file of that name was made"));
    EXPECT_EQ(status_, 0);
    EXPECT_THAT(said("mv /d/a /to/new/"), HasSubstr("is no directory"));
    const ScopedEnvironment strict("TSLWNFS_STRICT", "options");
    EXPECT_THAT(said("cp /d/a /to/new/"), HasSubstr("tslwnfs: /to/new is no directory"));
    EXPECT_EQ(status_, 1);
    EXPECT_THAT(recorder().calls, Not(testing::Contains(testing::StartsWith("copyfile"))));
    recorder().existing = {{"/d/a", true}};
    EXPECT_THAT(said("cp -r /d/a /to/new/"), Not(HasSubstr("tslwnfs: /to/new is no directory")));
    EXPECT_EQ(status_, 0);
}

TEST_F(Doubts, OfADestinationWithCapitalsAreToldWhereItExistsAsTyped) {
    recorder().existing = {{"/mnt/Backup", true}, {"/mnt/Full.DBF", false}};
    EXPECT_THAT(said("cp /d/a /mnt/Backup"),
                HasSubstr("warning: /mnt/Backup: the last name is put in lower case, so that it goes to /mnt/backup; "
                          "write /mnt/Backup/NAME, or set TSLWNFS_STRICT=names"));
    EXPECT_THAT(said("cp /d/a /mnt/Full.DBF"), HasSubstr("so that it goes to /mnt/full.dbf"));
    EXPECT_THAT(said("cp /d/a /mnt/New"), IsEmpty());
    const ScopedEnvironment strict("TSLWNFS_STRICT", "names");
    EXPECT_THAT(said("cp /d/a /mnt/Backup"), IsEmpty());
}

TEST_F(Doubts, OfANameThatIsMissingNameTheOneInLowerCase) {
    recorder().existing = {{"/mnt/full.dbf", false}};
    recorder().on_failure = [] { terminal::note_failure("no such file"); };
    recorder().answers["catfile"] = {1, 1};
    EXPECT_EQ(said("cat /mnt/Full.DBF"),
              "tslwnfs: no such file; full.dbf is there: names that the program builds are in lower case\n");
    recorder().existing = {};
    EXPECT_EQ(said("cat /mnt/Full.DBF"), "tslwnfs: no such file\n");
}

TEST_F(Doubts, OfAWordThatIsNoCommandNameTheOneThatWasMeant) {
    for (const auto &[line, read] : {std::pair{"cpoy a b", "cpoy is no command; did you mean copy?"},
                                     std::pair{"fnid /a", "fnid is no command; did you mean find?"},
                                     std::pair{"showmonut -e s", "showmonut is no command; did you mean showmount?"},
                                     std::pair{"frobnicate", "frobnicate is no command"}}) {
        EXPECT_EQ(said(line), "tslwnfs: " + std::string(read) + "\n");
        EXPECT_EQ(status_, 1);
    }
}

TEST_F(Doubts, AreAnsweredWithASynopsisOfEveryCommand) {
    for (const auto &command : command_table()) {
        if (command.words[0] == nullptr || command.code == kNoCommand) continue;
        const std::string word = command.words[0];
        EXPECT_THAT(said(word + " --help"), testing::StartsWith("tslwnfs: " + word)) << word;
        EXPECT_EQ(status_, 1);
        EXPECT_THAT(recorder().calls, IsEmpty()) << word;
        EXPECT_THAT(said("help " + word), testing::StartsWith("tslwnfs: " + word)) << word;
    }
    EXPECT_EQ(said("help nothing"), "tslwnfs: nothing is no command\n");
}

TEST_F(Doubts, OfAMissingOperandAreAnsweredWithTheSynopsisOfTheWordThatWasTyped) {
    for (const auto &[line, synopsis] :
         {std::pair{"stat", "tslwnfs: stat [-f]"}, std::pair{"fsstat", "tslwnfs: fsstat"},
          std::pair{"dir -R", "tslwnfs: ls|dir ["}, std::pair{"mkdir", "tslwnfs: mkdir"}}) {
        EXPECT_THAT(said(line), HasSubstr(synopsis)) << line;
        EXPECT_EQ(status_, 1) << line;
    }
}

TEST_F(Doubts, OfAPathThatIsMissingNameTheMountPoints) {
    recorder().mount_points = {"/mnt/a", "/mnt/b"};
    recorder().on_failure = [] { terminal::note_system_failure("/mnt/x", ENOENT); };
    recorder().answers["catfile"] = {1, 1};
    EXPECT_EQ(said("cat /mnt/x"),
              "tslwnfs: /mnt/x: No such file or directory; a local path: the mount points are /mnt/a, /mnt/b\n");
    recorder().mount_points = {};
    EXPECT_EQ(said("cat /mnt/x"), "tslwnfs: /mnt/x: No such file or directory\n");
}

TEST_F(Doubts, StayUntoldWhereNobodyLooks) {
    terminal::close();
    recorder().listing = {"a.dbf", "b.dbf"};
    recorder().existing = {{"/mnt/Backup", true}};
    for (const char *line :
         {"find /a -not -name x", "cp /d/*.dbf /to/one", "cp /d/a /to/new/", "cp /d/a /mnt/Backup"}) {
        EXPECT_THAT(said(line), IsEmpty()) << line;
        EXPECT_EQ(status_, 0) << line;
    }
}

}  // namespace
