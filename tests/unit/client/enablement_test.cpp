// SPDX-License-Identifier: Apache-2.0
#include <unistd.h>

#include <cerrno>

#include "tests/support/command_fixture.h"
#include "tests/support/file_faults.h"
#include "tslwnfs/client/client.h"
#include "tslwnfs/client/library_copy.h"

namespace {

class Enable : public CommandTest {
  protected:
    Enable() {
        std::filesystem::create_directories(home() + "/lib");
        std::filesystem::create_directories(home() + "/rdbms/lib");
        write_file(home() + "/lib/libnfstdm.so", "a library");
    }

    std::string library_directory() const { return home() + "/rdbms/lib/tdm"; }
    std::string library() const { return library_directory() + "/libnfstdm.so"; }
    std::string question() const {
        return "File " + tslnfstab() + " already exist do you want to overwrite ? :( y/n)\n";
    }
    static Outcome enable(const std::string &input = "") { return run(wnfsenable, input); }
};

TEST_F(Enable, MakesAnEmptyConfigurationADirectoryForTheOwnerAndACopyOfTheLibrary) {
    EXPECT_EQ(enable(), (Outcome{0, ""}));
    ASSERT_TRUE(exists(tslnfstab()));
    EXPECT_EQ(read_file(tslnfstab()), "");
    EXPECT_EQ(mode_of(library_directory()), 0700u);
    EXPECT_EQ(read_file(library()), "a library");
    EXPECT_EQ(trace(), "");
}

TEST_F(Enable, EmptiesAConfigurationAfterAYes) {
    for (const char *answer : {"y", "y\n", "yes\n"}) {
        write_file(tslnfstab(), "server: a\n");
        EXPECT_EQ(enable(answer), (Outcome{0, question()})) << answer;
        EXPECT_EQ(read_file(tslnfstab()), "") << answer;
    }
}

TEST_F(Enable, KeepsAConfigurationAfterAnythingElseAndGoesOnAllTheSame) {
    for (const char *answer : {"n\n", "Y\n", "Yes\n", "\n", " y\n", ""}) {
        write_file(tslnfstab(), "server: a\n");
        std::filesystem::remove(library());
        EXPECT_EQ(enable(answer), (Outcome{0, question()})) << answer;
        EXPECT_EQ(read_file(tslnfstab()), "server: a\n") << answer;
        EXPECT_TRUE(exists(library())) << answer;
    }
}

TEST_F(Enable, DoesNotAskWhenTheLineSaidYes) {
    write_file(tslnfstab(), "server: a\n");
    pass_flag = 1;
    EXPECT_EQ(enable(), (Outcome{0, ""}));
    EXPECT_EQ(read_file(tslnfstab()), "");
}

TEST_F(Enable, AsksOnStandardOutputEvenWithALog) {
    write_file(tslnfstab(), "server: a\n");
    ASSERT_TRUE(open_log_file((directory() + "/log").c_str()));
    EXPECT_EQ(enable("n"), (Outcome{0, question()}));
    ASSERT_TRUE(close_log());
    EXPECT_EQ(read_file(directory() + "/log"), "");
}

TEST_F(Enable, AsksAboutWhatIsThereButCannotBeOpened) {
    std::filesystem::create_directory(tslnfstab());
    EXPECT_EQ(enable("n"), (Outcome{0, question()}));
    EXPECT_EQ(enable("y"), (Outcome{1, question()}));
    EXPECT_EQ(trace(), record("wnfsenable", 65061, "The file " + tslnfstab() + " could not be opened."));
}

TEST_F(Enable, NeedsAPlaceForTheConfiguration) {
    std::filesystem::remove(home() + "/dbs");
    EXPECT_EQ(enable(), (Outcome{1, ""}));
    EXPECT_EQ(trace(), record("wnfsenable", 65061, "The file " + tslnfstab() + " could not be opened."));
    EXPECT_FALSE(exists(library_directory()));
}

TEST_F(Enable, UsesADirectoryOfAnyModeAndReplacesAnOlderLibrary) {
    std::filesystem::create_directory(library_directory());
    set_mode(library_directory(), 0755);
    write_file(library(), "an older one");
    EXPECT_EQ(enable(), (Outcome{0, ""}));
    EXPECT_EQ(read_file(library()), "a library");
    EXPECT_EQ(mode_of(library_directory()), 0755u);
}

TEST_F(Enable, MakesOneLevelOfTheDirectoryOnly) {
    std::filesystem::remove(home() + "/rdbms/lib");
    EXPECT_EQ(enable(), (Outcome{1, ""}));
    EXPECT_EQ(trace(), record("wnfsenable", 65062,
                              "The directory " + library_directory() + " could not be created (error " +
                                  std::to_string(ENOENT) + ")."));
}

TEST_F(Enable, FailsWhereAFileStandsInTheDirectorysPlace) {
    write_file(library_directory(), "");
    EXPECT_EQ(enable(), (Outcome{1, ""}));
    EXPECT_EQ(trace(), record("wnfsenable", 65028, library_directory() + " is not a directory."));
}

TEST_F(Enable, FailsWhereTheDirectoryCannotBeLookedUp) {
    std::filesystem::remove(home() + "/rdbms/lib");
    write_file(home() + "/rdbms/lib", "");
    EXPECT_EQ(enable(), (Outcome{1, ""}));
    EXPECT_EQ(trace(), record("wnfsenable", 65013, "The status of " + library_directory() + " could not be read."));
}

TEST_F(Enable, FailsWithoutTheLibraryButHasEmptiedTheConfiguration) {
    std::filesystem::remove(home() + "/lib/libnfstdm.so");
    write_file(tslnfstab(), "server: a\n");
    pass_flag = 1;
    const CapturedOutput complaint_of_the_shell(STDERR_FILENO);
    EXPECT_EQ(enable(), (Outcome{1, ""}));
    EXPECT_EQ(trace(), record("wnfsenable", 65064, "The storage library could not be copied to " + library() + "."));
    EXPECT_EQ(read_file(tslnfstab()), "");
}

TEST_F(Enable, WritesThroughNoLinkThatSomebodyElseMade) {
    if (geteuid() != 0) GTEST_SKIP() << "only root may give a link away";
    const std::string precious = directory() + "/precious";
    write_file(precious, "precious");
    std::filesystem::create_directory(library_directory());
    std::filesystem::create_symlink(precious, library());
    ASSERT_EQ(lchown(library().c_str(), 1234, 1234), 0);
    EXPECT_EQ(enable(), (Outcome{1, ""}));
    EXPECT_EQ(trace(), record("wnfsenable", 65064, "The storage library could not be copied to " + library() + "."));
    EXPECT_EQ(read_file(precious), "precious");
}

TEST_F(Enable, CopiesTheLibraryOfTheOtherHomeVariable) {
    const std::string other = directory() + "/other";
    std::filesystem::create_directories(other + "/lib");
    std::filesystem::create_directories(other + "/rdbms/lib");
    write_file(other + "/lib/libnfstdm.so", "another library");
    std::snprintf(tsl_ohome, sizeof tsl_ohome, "%s", other.c_str());
    EXPECT_EQ(enable(), (Outcome{0, ""}));
    EXPECT_TRUE(exists(tslnfstab()));
    EXPECT_EQ(read_file(other + "/rdbms/lib/tdm/libnfstdm.so"), "another library");
    EXPECT_FALSE(exists(library()));
}

TEST_F(Enable, RefusesAHomeThatTheShellWouldTakeApart) {
    const std::string odd = directory() + "/a b;touch " + directory() + "/harm";
    std::filesystem::create_directories(odd + "/dbs");
    std::filesystem::create_directories(odd + "/lib");
    std::filesystem::create_directories(odd + "/rdbms/lib");
    write_file(odd + "/lib/libnfstdm.so", "");
    use_home(odd);
    EXPECT_EQ(enable(), (Outcome{1, ""}));
    EXPECT_EQ(trace(), record("wnfsenable", 65064,
                              "The storage library could not be copied to " + odd + "/rdbms/lib/tdm/libnfstdm.so."));
    EXPECT_FALSE(exists(directory() + "/harm"));
}

TEST_F(Enable, RefusesAHomeWithABlankBeforeItEmptiesTheConfiguration) {
    const std::string odd = directory() + "/a b";
    std::filesystem::create_directories(odd + "/dbs");
    std::filesystem::create_directories(odd + "/rdbms/lib");
    write_file(odd + "/dbs/tslnfstab", "server: a\n");
    use_home(odd);
    pass_flag = 1;
    EXPECT_EQ(enable(), (Outcome{1, ""}));
    EXPECT_EQ(read_file(odd + "/dbs/tslnfstab"), "server: a\n");
    EXPECT_FALSE(exists(odd + "/rdbms/lib/tdm"));
}

TEST_F(Enable, DoesNotHideAConfigurationThatWasLeftInTheBackup) {
    write_file(backup(), "server: a\n");
    EXPECT_EQ(enable(), (Outcome{1, ""}));
    EXPECT_FALSE(exists(tslnfstab()));
    EXPECT_EQ(read_file(backup()), "server: a\n");
}

TEST(LibraryCopyCommand, HasABlankBehindEachName) {
    EXPECT_EQ(library_copy_command("/h/lib/l.so ", "/h/rdbms/l.so "), "cp -f /h/lib/l.so /h/rdbms/l.so ");
}

TEST(LibraryCopyCommand, IsNotMadeOfNamesWithAMeaningToTheShell) {
    for (const char *name :
         {"/a b ", "/a$b ", "/a;b ", "/a\nb ", "/a'b ", "-a ", "~a ", "/a* ", "/a\xC3\xA4 ", "/a", ""}) {
        EXPECT_FALSE(library_copy_command(name, "/b ")) << name;
        EXPECT_FALSE(library_copy_command("/b ", name)) << name;
    }
    EXPECT_TRUE(library_copy_command("/u01/tsl-4.3_R%~x+@^=,:/l.so ", "/b "));
}

class Disable : public Enable {
  protected:
    Disable() {
        write_file(tslnfstab(), "server: a\n");
        std::filesystem::create_directory(library_directory());
        write_file(library(), "a library");
    }
    static Outcome disable() { return run(wnfsdisable); }
};

TEST_F(Disable, DeletesTheLibraryAndNothingElse) {
    EXPECT_EQ(disable(), (Outcome{0, ""}));
    EXPECT_FALSE(exists(library()));
    EXPECT_TRUE(exists(library_directory()));
    EXPECT_TRUE(exists(tslnfstab()));
    EXPECT_EQ(disable(), (Outcome{0, ""}));
    EXPECT_EQ(trace(), "");
}

TEST_F(Disable, DeletesTheConfigurationAndTheDirectoryOnDemand) {
    deletetslnfstab = deletetdmdir = 1;
    EXPECT_EQ(disable(), (Outcome{0, ""}));
    EXPECT_FALSE(exists(tslnfstab()));
    EXPECT_FALSE(exists(library_directory()));
    EXPECT_EQ(disable(), (Outcome{0, ""}));
}

TEST_F(Disable, KeepsADirectoryThatHoldsOtherFiles) {
    write_file(library_directory() + "/other", "");
    deletetdmdir = 1;
    EXPECT_EQ(disable(), (Outcome{1, ""}));
    EXPECT_EQ(trace(), record("wnfsdisable", 65034, "The directory " + library_directory() + " could not be removed."));
    EXPECT_FALSE(exists(library()));
}

TEST_F(Disable, StopsAtTheLibrary) {
    deletetslnfstab = deletetdmdir = 1;
    const FailingCall failing(FailingCall::Call::unlink, library(), EACCES);
    EXPECT_EQ(disable(), (Outcome{1, ""}));
    EXPECT_EQ(failing.hits(), 1);
    EXPECT_EQ(trace(), record("wnfsdisable", 65038, "The file " + library() + " could not be deleted."));
    EXPECT_TRUE(exists(tslnfstab()));
}

TEST_F(Disable, StopsAtTheConfigurationWithTheLibraryGone) {
    deletetslnfstab = deletetdmdir = 1;
    const FailingCall failing(FailingCall::Call::unlink, tslnfstab(), EACCES);
    EXPECT_EQ(disable(), (Outcome{1, ""}));
    EXPECT_EQ(failing.hits(), 1);
    EXPECT_EQ(trace(), record("wnfsdisable", 65038, "The file " + tslnfstab() + " could not be deleted."));
    EXPECT_FALSE(exists(library()));
    EXPECT_TRUE(exists(library_directory()));
}

TEST_F(Disable, DoesNotRemoveAFileInTheDirectorysPlace) {
    std::filesystem::remove_all(library_directory());
    write_file(library_directory(), "");
    use_home(home());
    std::snprintf(tsl_ohome, sizeof tsl_ohome, "%s", (directory() + "/none").c_str());
    deletetdmdir = 1;
    EXPECT_EQ(disable(), (Outcome{1, ""}));
    EXPECT_EQ(trace(), record("wnfsdisable", 65028, library_directory() + " is not a directory."));
    EXPECT_TRUE(exists(library_directory()));
}

TEST_F(Disable, SaysNothingAboutADirectoryThatCannotBeLookedUp) {
    std::filesystem::remove_all(home() + "/rdbms/lib");
    write_file(home() + "/rdbms/lib", "");
    std::snprintf(tsl_ohome, sizeof tsl_ohome, "%s", (directory() + "/none").c_str());
    deletetdmdir = 1;
    EXPECT_EQ(disable(), (Outcome{1, ""}));
    EXPECT_EQ(trace(), "");
}

TEST_F(Disable, TakesTheLibraryAndTheDirectoryFromDifferentHomes) {
    const std::string other = directory() + "/other";
    std::filesystem::create_directories(other + "/rdbms/lib/tdm");
    write_file(other + "/rdbms/lib/tdm/libnfstdm.so", "");
    std::snprintf(tsl_ohome, sizeof tsl_ohome, "%s", other.c_str());
    std::filesystem::remove(library());
    deletetdmdir = 1;
    EXPECT_EQ(disable(), (Outcome{0, ""}));
    EXPECT_FALSE(exists(other + "/rdbms/lib/tdm/libnfstdm.so"));
    EXPECT_TRUE(exists(other + "/rdbms/lib/tdm"));
    EXPECT_FALSE(exists(library_directory()));
}

TEST_F(Disable, RefusesAHomeWhoseLibraryDoesNotFitItsBuffer) {
    // "/rdbms/lib/tdm/libnfstdm.so" has 27 characters, and a buffer of 260 holds 259.
    use_home("/" + std::string(231, 'h'));
    EXPECT_EQ(disable(), (Outcome{0, ""}));
    use_home("/" + std::string(232, 'h'));
    EXPECT_EQ(disable(), (Outcome{1, ""}));
    EXPECT_EQ(trace(),
              record("wnfsdisable", 65059,
                     "The path /" + std::string(232, 'h') + "/rdbms/lib/tdm/libnfstdm.so could not be resolved."));
}

}  // namespace
