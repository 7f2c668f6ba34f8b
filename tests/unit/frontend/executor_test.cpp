// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/commands/executor.h"

#include "front_end_fixture.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const std::string kSuccess = "TWNFS-65023: The command completed successfully.\n";
const std::string kUnusable = "TWNFS-65024: The operands could not be used; nothing was processed.\n";

std::string failure(uint32_t status) {
    return "TWNFS-65022: The command failed with status " + std::to_string(status) + ".\n";
}

class Executor : public FrontEnd {
  protected:
    // Runs a command code; printed_ holds what came out.
    uint32_t execute(int32_t code, const char *first, const char *second = nullptr) {
        recorder().calls.clear();
        commandtype = code;
        CapturedOutput captured;
        const uint32_t result = exec_command(first, second);
        printed_ = captured.text();
        return result;
    }

    const std::vector<std::string> &calls() const { return recorder().calls; }

    void trace_errors() {
        ASSERT_TRUE(open_trace_file((directory_ / "trace").c_str()));
        tslwnfs_trace = 3;
    }
};

// Banners and verdicts

TEST_F(Executor, AnnouncesEachCommandInItsOwnWords) {
    struct Case {
        int32_t code;
        const char *banner;
        const char *call;
    };
    for (const Case &one : {Case{kCat, "CAT /a : \n", "catfile(/a)"},
                            {kMakeDirectory, "MKDIR /a : \n", "makedir(/a)"},
                            {kRemoveDirectory, "RMDIR /a : \n", "removedir(/a)"},
                            {kGetAttributes, "GETATTR /a : \n", "getattrdir(/a, 1)"},
                            {kSetAttributes, "SETATTR /a : \n", "setattrdir(/a)"},
                            {kList, "DIR /a : \n", "read_dir(/a, 1)"},
                            {kListRecursive, "", "read_dirlist(/a, 0)"},
                            {kDelete, "DEL /a : \n", "delfile(/a)"},
                            {kStorageProperties, "STAT /a : \n", "statfile(/a)"},
                            {kFsStat, "FSSTAT /a : \n", "fsstatdir(/a)"},
                            {kFsInfo, "FSINFO /a : \n", "fsinfodir(/a)"},
                            {kFind, "FIND PATH:/a FILE:/m :\n", "findfile(/a, /m)"},
                            {kMount, "MOUNT:\n", "mount_otab(/a, /m)"},
                            {kUmount, "UMOUNT:\n", "umount_otab(/a)"}}) {
        EXPECT_EQ(execute(one.code, "/a", "/m"), 0u);
        EXPECT_EQ(printed_, one.banner + kSuccess);
        EXPECT_THAT(calls(), ElementsAre(one.call));
    }
    EXPECT_EQ(execute(kCopy, "/a", "/b/c"), 0u);
    EXPECT_EQ(printed_, "COPY /a to /b/c: \n" + kSuccess);
}

TEST_F(Executor, ReportsAFailureWithItsStatus) {
    recorder().answers["catfile"] = {7};
    EXPECT_EQ(execute(kCat, "/a"), 7u);
    EXPECT_EQ(printed_, "CAT /a : \n" + failure(7));
}

TEST_F(Executor, FollowsAStatusOfFourWithTheMessageForUnusableOperands) {
    recorder().answers["catfile"] = {4};
    EXPECT_EQ(execute(kCat, "/a"), 4u);
    EXPECT_EQ(printed_, "CAT /a : \n" + failure(4) + kUnusable);
}

TEST_F(Executor, PutsBannersIntoTheLogButForThree) {
    ASSERT_TRUE(open_log_file((directory_ / "log").c_str()));
    execute(kCat, "/a");
    EXPECT_EQ(printed_, "");
    execute(kMount, "/a", "/m");
    EXPECT_EQ(printed_, "MOUNT:\n");
    execute(kUmount, "/a");
    EXPECT_EQ(printed_, "UMOUNT:\n");
    ASSERT_TRUE(close_log());
    EXPECT_EQ(read_file(directory_ / "log"), "CAT /a : \n" + kSuccess + kSuccess + kSuccess);
}

// Commands without file operands

TEST_F(Executor, RunsOtherCommandsWithTheirOperandsAsTheyAreAndNoBanner) {
    struct Case {
        int32_t code;
        const char *call;
    };
    for (const Case &one : {Case{kShowMount, "showMount(a/)"},
                            {kRestore, "restore()"},
                            {kSave, "save()"},
                            {kEnable, "wnfsenable()"},
                            {kDisable, "wnfsdisable()"},
                            {kNetworkDiscovery, "network_discovery()"},
                            {kCreateTslnfstab, "createtslnfstab()"},
                            {kDisableRdma, "disablerdma(a/)"},
                            {kEnableRdma, "enablerdma(a/, b/)"},
                            {kGetServerList, "getserverlist()"},
                            {kMountScript, "mount_script(a/, b/)"},
                            {kUmountScript, "umount_script(a/)"},
                            {kDisplayServer, "display_server(a/)"},
                            {kDeleteServer, "delete_server(a/, 1)"},
                            {kGetSubnetMask, "getsubnetmask(a/)"}}) {
        EXPECT_EQ(execute(one.code, "a/", "b/"), 0u);
        EXPECT_EQ(printed_, kSuccess) << one.call;
        EXPECT_THAT(calls(), ElementsAre(one.call));
    }
    recorder().answers["save"] = {3};
    EXPECT_EQ(execute(kSave, nullptr), 3u);
    EXPECT_EQ(printed_, failure(3));
}

TEST_F(Executor, LeavesTheVerdictToTheTwoQueries) {
    recorder().answers["iswnfsenabled"] = {0, 1};
    for (const uint32_t result : {0u, 1u}) {
        EXPECT_EQ(execute(kIsEnabled, "/h"), result);
        EXPECT_EQ(printed_, "");
    }
    recorder().answers["isPathOnWNFS"] = {1};
    EXPECT_EQ(execute(kIsPathOnWnfs, "/h", "/p"), 1u);
    EXPECT_EQ(printed_, "");
    EXPECT_THAT(calls(), ElementsAre("isPathOnWNFS(/h, /p)"));
}

TEST_F(Executor, SetsTheAddressFamily) {
    struct Case {
        int32_t code;
        const char *call;
    };
    for (const Case &one : {Case{kLocalAddresses, "enum_local_ips(0, family 0)"},
                            {kSubnets, "enum_local_ips(1, family 0)"},
                            {kSubnetsV4, "enum_local_ips(1, family 2)"},
                            {kSubnetsV6, "enum_local_ips(1, family 10)"},
                            {kLocalAddressesV4, "enum_local_ips(0, family 2)"},
                            {kLocalAddressesV6, "enum_local_ips(0, family 10)"}}) {
        ip_type = 0;
        execute(one.code, nullptr);
        EXPECT_THAT(calls(), ElementsAre(one.call));
    }
}

TEST_F(Executor, DoesNothingForCodesThatNothingRuns) {
    for (const int32_t code : {0, 6, 42}) {
        EXPECT_EQ(execute(code, "/a"), 0u);
        EXPECT_EQ(printed_, "");
    }
}

// Operands

TEST_F(Executor, RefusesOperandsOf260Characters) {
    const std::string limit(260, 'x'), fits = "/" + std::string(258, 'x');
    EXPECT_EQ(execute(kCat, limit.c_str()), 4u);
    EXPECT_EQ(printed_, kUnusable);
    EXPECT_EQ(execute(kCopy, "/a", limit.c_str()), 4u);
    EXPECT_EQ(printed_, kUnusable);
    EXPECT_EQ(execute(kSave, limit.c_str()), 4u);
    EXPECT_THAT(calls(), IsEmpty());
    EXPECT_EQ(execute(kCat, fits.c_str()), 0u);
}

TEST_F(Executor, RefusesAJoinedPathOf260CharactersAsItRefusesAnOperand) {
    const std::string limit = "/" + std::string(257, 'x') + "/*", fits = "/" + std::string(256, 'x') + "/*";
    const char *const none = nullptr;
    recorder().listing = {"f"};
    commandtype = kDelete;
    const CapturedOutput captured;
    EXPECT_EQ(exec_command(Operand::ready(limit.c_str()), none), 4u);
    EXPECT_THAT(calls(), IsEmpty());
    EXPECT_EQ(exec_command(Operand::ready(fits.c_str()), none), 0u);
    EXPECT_THAT(calls(), Not(IsEmpty()));
}

TEST_F(Executor, TakesOneTrailingSeparatorOff) {
    struct Case {
        const char *operand, *call;
    };
    for (const Case &one : {Case{"/d/", "catfile(/d)"},
                            {"/d\\", "catfile(/d)"},
                            {"/d//", "catfile(/d/)"},
                            {"//", "catfile(/)"},
                            {"c:/", "catfile(c:/)"},
                            {"nfs:/", "catfile(nfs:/)"},
                            {"c:\\", "catfile(c:\\)"},
                            {"nfs:/a/", "catfile(nfs:/a)"}}) {
        execute(kCat, one.operand);
        EXPECT_THAT(calls(), ElementsAre(one.call));
    }
    execute(kMount, "exp/", "/mnt/");
    EXPECT_THAT(calls(), ElementsAre("mount_otab(exp, /mnt)"));
}

TEST_F(Executor, RefusesALoneSeparator) {
    for (const char *operand : {"/", "\\", ""}) {
        EXPECT_EQ(execute(kList, operand), 4u);
        EXPECT_EQ(printed_, kUnusable);
        EXPECT_THAT(calls(), IsEmpty());
    }
}

TEST_F(Executor, TracesTheOperandThatCannotBeResolved) {
    trace_errors();
    recorder().unresolvable = {"../f"};
    EXPECT_EQ(execute(kCat, "../f/"), 4u);
    EXPECT_EQ(printed_, kUnusable);
    EXPECT_EQ(trace(), "[n],exec_command TWNFS-65059: The path ../f/ could not be resolved.\n");
    EXPECT_EQ(execute(kCopy, "/f", "../f"), 4u);
    EXPECT_EQ(execute(kCopy, "/f", nullptr), 4u);
    EXPECT_EQ(execute(kCat, nullptr), 4u);
    EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(Executor, ResolvesTheSecondOperandForCopyAndMoveOnly) {
    recorder().unresolvable = {"pattern"};
    EXPECT_EQ(execute(kMount, "/a", "pattern"), 0u);
    EXPECT_THAT(calls(), ElementsAre("mount_otab(/a, pattern)"));
}

TEST_F(Executor, PassesASingleSourceAsItWasGiven) {
    const TemporaryDirectory directory;
    const std::string old = std::filesystem::current_path().string();
    std::filesystem::current_path(directory.path());
    execute(kCopy, "Dir/A.TXT", "/c/B.TXT");
    std::filesystem::current_path(old);
    EXPECT_THAT(calls(), ElementsAre("copyfile(Dir/A.TXT, /c/b.txt)"));
}

TEST_F(Executor, BuildsADestinationNameInLowerCase) {
    execute(kCopy, "nfs:/a/b.txt", "nfs:/c/X.TXT");
    EXPECT_THAT(calls(), ElementsAre("copyfile(nfs:/a/b.txt, nfs:/c/x.txt)"));
    execute(kCopy, "/a/f", "/C/Dir/F");
    EXPECT_THAT(calls(), ElementsAre("copyfile(/a/f, /C/Dir/f)"));
    execute(kCopy, "/a/File.TXT", "/c/*.BAK");
    EXPECT_THAT(calls(), ElementsAre("copyfile(/a/File.TXT, /c/file.bak)"));
    execute(kCopy, "/a/f", "/x");
    EXPECT_THAT(calls(), ElementsAre("copyfile(/a/f, /x)"));
}

TEST_F(Executor, CopiesOntoADirectoryUnderItsLowerCaseName) {
    recorder().directories = {"/Backup"};
    execute(kCopy, "/a/f", "/Backup");
    EXPECT_THAT(calls(), ElementsAre("copyfile(/a/f, /backup)"));
}

TEST_F(Executor, LowersADrivePathWithASecondColon) {
    execute(kCat, "C:/x:Y");
    EXPECT_EQ(printed_, "CAT c:/x:y : \n" + kSuccess);
    execute(kCat, "C:/X");
    EXPECT_EQ(printed_, "CAT C:/X : \n" + kSuccess);
    execute(kCat, "C:/NFS:/X");
    EXPECT_EQ(printed_, "CAT C:/NFS:/X : \n" + kSuccess);
    execute(kCat, "/C:/X:Y");
    EXPECT_EQ(printed_, "CAT /C:/X:Y : \n" + kSuccess);
    execute(kCopy, "/a", "C:/X:Y/z");
    EXPECT_EQ(printed_, "COPY /a to c:/x:y/z: \n" + kSuccess);
}

TEST_F(Executor, RefusesADestinationThatWouldNotFit) {
    trace_errors();
    const TemporaryDirectory directory;
    const std::string name = "/" + std::string(258, 'n');
    // The name "*" of the destination grows to the source's; both operands fit, the result does not.
    recorder().listing = {std::string(300, 'n')};
    EXPECT_EQ(execute(kCopy, "/s/*", (name.substr(0, 250) + "/*").c_str()), 1u);
    EXPECT_EQ(printed_, "COPY /s/" + std::string(300, 'n') + " to " + name.substr(0, 250) + "/" +
                            std::string(300, 'n') + ": \n" + failure(1));
    EXPECT_THAT(calls(), ElementsAre("read_dir(/s, 0)"));
    EXPECT_THAT(trace(), testing::HasSubstr("TWNFS-65059"));
}

// Wildcards

TEST_F(Executor, RunsACommandForEveryMatchInTheOrderOfTheListing) {
    recorder().listing = {"b.log", "a.log", "c.txt", ".x.log"};
    EXPECT_EQ(execute(kCat, "/d/*.log"), 0u);
    EXPECT_THAT(calls(),
                ElementsAre("read_dir(/d, 0)", "catfile(/d/b.log)", "catfile(/d/a.log)", "catfile(/d/.x.log)"));
    EXPECT_EQ(printed_,
              "CAT /d/b.log : \n" + kSuccess + "CAT /d/a.log : \n" + kSuccess + "CAT /d/.x.log : \n" + kSuccess);
}

TEST_F(Executor, MatchesWithoutRegardToCaseAndGoesOnInLowerCase) {
    recorder().listing = {"A.LOG", "b.log"};
    execute(kCat, "/D/*.Log");
    EXPECT_THAT(calls(), ElementsAre("read_dir(/D, 0)", "catfile(/D/a.log)", "catfile(/D/b.log)"));
}

TEST_F(Executor, BuildsADestinationForEveryMatch) {
    recorder().listing = {"One.txt", "two.txt"};
    execute(kCopy, "/s/*.txt", "/D/*.BAK");
    EXPECT_THAT(calls(),
                ElementsAre("read_dir(/s, 0)", "copyfile(/s/one.txt, /D/one.bak)", "copyfile(/s/two.txt, /D/two.bak)"));
}

TEST_F(Executor, PassesTheSameSecondOperandWithEveryMatchOfOtherCommands) {
    recorder().listing = {"a", "b"};
    execute(kMount, "/s/*", "/m");
    EXPECT_THAT(calls(), ElementsAre("read_dir(/s, 0)", "mount_otab(/s/a, /m)", "mount_otab(/s/b, /m)"));
}

TEST_F(Executor, KeepsTheLastFailureAcrossLaterSuccesses) {
    recorder().listing = {"a", "b", "c", "d"};
    recorder().answers["catfile"] = {0, 5, 6, 0};
    EXPECT_EQ(execute(kCat, "/d/*"), 6u);
    EXPECT_EQ(printed_, "CAT /d/a : \n" + kSuccess + "CAT /d/b : \n" + failure(5) + "CAT /d/c : \n" + failure(6) +
                            "CAT /d/d : \n" + kSuccess);
}

TEST_F(Executor, SaysThatAPatternMatchedNothing) {
    recorder().listing = {"a"};
    EXPECT_EQ(execute(kCat, "/d/*.log"), 4u);
    EXPECT_EQ(printed_, kUnusable);
    recorder().listing = {};
    EXPECT_EQ(execute(kCat, "/d/*"), 4u);
    EXPECT_EQ(printed_, kUnusable);
}

TEST_F(Executor, TakesAFailedListingForNoFile) {
    recorder().listing = {"a"};
    recorder().answers["read_dir"] = {1};
    EXPECT_EQ(execute(kCat, "/d/*"), 4u);
    EXPECT_EQ(printed_, kUnusable);
    EXPECT_THAT(calls(), ElementsAre("read_dir(/d, 0)"));
}

TEST_F(Executor, RefusesToExpandInTheRoot) {
    recorder().listing = {"a"};
    EXPECT_EQ(execute(kCat, "/*"), 4u);
    EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(Executor, ListsTheNamedDirectoryEvenForAWildcardFurtherUp) {
    recorder().answers["read_dir"] = {1};
    EXPECT_EQ(execute(kCat, "/d*/x"), 4u);
    EXPECT_THAT(calls(), ElementsAre("read_dir(/d*, 0)"));
}

TEST_F(Executor, MatchesOneCharacterWithAQuestionMark) {
    recorder().listing = {"a1", "a22"};
    execute(kCat, "/d/a?");
    EXPECT_THAT(calls(), ElementsAre("read_dir(/d, 0)", "catfile(/d/a1)"));
}

TEST_F(Executor, RefusesAListedNameThatLeadsElsewhere) {
    trace_errors();
    recorder().listing = {"", ".", "..", "../a", "a/b", "..\\a"};
    EXPECT_EQ(execute(kDelete, "/d/*"), 1u);
    EXPECT_THAT(calls(), ElementsAre("read_dir(/d, 0)", "delfile(/d/..\\a)"));
    EXPECT_THAT(printed_, testing::HasSubstr("DEL /d/../a : \n" + failure(1)));
    EXPECT_THAT(trace(), testing::HasSubstr("exec_command /d/../a is no entry of a directory"));
    recorder().listing = {"x."};
    EXPECT_EQ(execute(kCopy, "/s/*", "/d/.?"), 1u);
    EXPECT_THAT(calls(), ElementsAre("read_dir(/s, 0)"));
}

TEST_F(Executor, MovesOneFileOnlyToEachDestination) {
    recorder().listing = {"one", "two", "once"};
    EXPECT_EQ(execute(kMove, "/s/*", "/d/new"), 1u);
    EXPECT_THAT(calls(), ElementsAre("read_dir(/s, 0)", "movefile(/s/one, /d/new)"));
    // What the pattern leaves of a name may be the same for several.
    recorder().listing = {"two", "six", "three"};
    EXPECT_EQ(execute(kMove, "/s/*", "/d/one*"), 1u);
    EXPECT_THAT(calls(), ElementsAre("read_dir(/s, 0)", "movefile(/s/two, /d/one)", "movefile(/s/three, /d/oneee)"));
    recorder().listing = {"A", "b", "a"};
    EXPECT_EQ(execute(kMove, "/s/*", "/d/*"), 1u);
    EXPECT_THAT(calls(), ElementsAre("read_dir(/s, 0)", "movefile(/s/a, /d/a)", "movefile(/s/b, /d/b)"));
}

TEST_F(Executor, CopiesOneOfTheNamesThatDifferByCaseOnly) {
    trace_errors();
    recorder().listing = {"A", "b", "a"};
    EXPECT_EQ(execute(kCopy, "/s/*", "/d/*"), 1u);
    EXPECT_THAT(calls(), ElementsAre("read_dir(/s, 0)", "copyfile(/s/a, /d/a)", "copyfile(/s/b, /d/b)"));
    EXPECT_THAT(trace(), testing::HasSubstr("exec_command /d/a already took another file"));
    recorder().listing = {"a", "b"};
    EXPECT_EQ(execute(kCopy, "/s/*", "/d/new"), 0u);
    EXPECT_EQ(calls().size(), 3u);
}

TEST_F(Executor, NeverDeletesTheRootOrADirectoryThatIsNamedByItsDots) {
    recorder().listing = {"a"};
    for (const char *operand : {"/", "//", "///", "/.", "/./", "/x/..", ".", "./", "/d/.", "/d/.."}) {
        EXPECT_EQ(execute(kDelete, operand), 4u) << operand;
        EXPECT_EQ(printed_, kUnusable) << operand;
        EXPECT_THAT(calls(), IsEmpty()) << operand;
    }
    EXPECT_EQ(execute(kDelete, "./*"), 0u);
    EXPECT_EQ(execute(kDelete, "/d/.x"), 0u);
    EXPECT_EQ(execute(kList, "/d/."), 0u);
}

// What the library is told of files ahead of their turn

class Expecting : public Executor {
  protected:
    Expecting() {
        recorder().remote = {"/s", "/r"};
        recorder().listing = {"a", "b"};
    }
    // What is told of when a command runs.
    std::vector<std::string> told(int32_t code, const char *first, const char *second = nullptr, int32_t options = 0) {
        recorder().expected.clear();
        COMMAND_OPTION = options;
        EXPECT_EQ(execute(code, first, second), 0U);
        COMMAND_OPTION = 0;
        return recorder().expected;
    }
};

TEST_F(Expecting, TellsOfContentThatIsReadHere) {
    EXPECT_THAT(told(kCopy, "/s/*", "/d/*"), ElementsAre("content /s/a", "content /s/b"));
    EXPECT_THAT(told(kCat, "/s/*"), ElementsAre("content /s/a", "content /s/b"));
    EXPECT_THAT(told(kCopy, "/d/*", "/s/*"), IsEmpty()) << "that is here already";
    EXPECT_THAT(told(kCopy, "/s/*", "/r/*"), IsEmpty()) << "that servers may copy";
    EXPECT_THAT(told(kMove, "/s/*", "/d/*"), IsEmpty()) << "that is asked for anew";
    EXPECT_THAT(told(kCopy, "/s/*", "/d/*", kFileInteractive), IsEmpty()) << "that may not be wanted";
    EXPECT_THAT(told(kCopy, "/s/a", "/d/a"), IsEmpty()) << "of the only one";
    recorder().listing = {"a"};
    EXPECT_THAT(told(kCopy, "/s/*", "/d/*"), IsEmpty()) << "of the only one";
}

TEST_F(Expecting, TellsOfDeletionsThatNothingStops) {
    EXPECT_THAT(told(kDelete, "/s/*"), ElementsAre("deletion /s/a", "deletion /s/b"));
    EXPECT_THAT(told(kDelete, "/d/*"), IsEmpty()) << "on this host";
    EXPECT_THAT(told(kDelete, "/s/*", nullptr, kFileInteractive), IsEmpty()) << "somebody is asked";
    EXPECT_THAT(told(kDelete, "/s/a"), IsEmpty()) << "the only one";
    const ScopedEnvironment one_by_one("TSLWNFS_JOBS", "1");
    EXPECT_THAT(told(kDelete, "/s/*"), IsEmpty()) << "one after the other";
    EXPECT_THAT(told(kCat, "/s/*"), ElementsAre("content /s/a", "content /s/b"));
}

TEST_F(Expecting, TellsNothingOfWhatIsRefusedAtItsTurn) {
    recorder().listing = {"a", "..", std::string(PathBuffer::kSize, 'n'), "b"};
    recorder().expected.clear();
    EXPECT_EQ(execute(kDelete, "/s/*"), 1U);
    EXPECT_THAT(recorder().expected, ElementsAre("deletion /s/a", "deletion /s/b"));
    EXPECT_THAT(calls(), ElementsAre("read_dir(/s, 0)", "delfile(/s/a)", "delfile(/s/b)"));
}

TEST_F(Expecting, TellsOfEachOnceAndOfNoMoreThanAreWorthIt) {
    recorder().listing.clear();
    for (int i = 0; i < 200; ++i)
        recorder().listing.push_back("f" + std::to_string(i));
    std::vector<std::size_t> ahead;
    recorder().answers["delfile"] = {1};
    recorder().on_failure = [&] { ahead.push_back(recorder().expected.size()); };
    execute(kDelete, "/s/*");
    EXPECT_THAT(ahead, ElementsAre(64U)) << "at the first one's turn";
    ASSERT_EQ(recorder().expected.size(), 200U);
    for (int i = 0; i < 200; ++i)
        EXPECT_EQ(recorder().expected[static_cast<std::size_t>(i)], "deletion /s/f" + std::to_string(i));
}

TEST_F(Executor, CanRunFromWithinACommand) {
    // A recursive command calls back with a pattern; nothing of the outer run may be lost.
    recorder().listing = {"a"};
    EXPECT_EQ(execute(kCat, "/d/*"), 0u);
    EXPECT_EQ(execute(kCat, "/d/a/*"), 0u);
    EXPECT_THAT(calls(), ElementsAre("read_dir(/d/a, 0)", "catfile(/d/a/a)"));
}

}  // namespace
