// SPDX-License-Identifier: Apache-2.0
// Global options, and the grammars of the commands on files, the client and the network.
#include <algorithm>
#include <random>

#include "front_end_fixture.h"
#include "tslwnfs/frontend/command_table.h"

namespace {

class CommandLine : public FrontEnd {
  protected:
    std::string trace_name() const { return directory_ / "trace"; }
    std::string log_name() const { return directory_ / "log"; }
    static std::string shown(const char *text) { return text != nullptr ? text : "null"; }
    static std::string operands() { return shown(fname) + " " + shown(fname1); }
};

TEST_F(CommandLine, WantsAWord) {
    EXPECT_EQ(parse(""), kUsage);
    EXPECT_EQ(parse_words({""}), kUsage);
    EXPECT_EQ(parse_words({"", "ls", "/x"}), kUsage);
    EXPECT_EQ(get_options({}), kUsage);
}

TEST_F(CommandLine, RefusesAWordOf260CharactersAnywhere) {
    EXPECT_EQ(parse("cat " + std::string(260, 'x')), kUsage);
    EXPECT_EQ(parse("cat " + std::string(259, 'x')), kAccepted);
    ArgumentVector own_name({std::string(260, 'p'), "cat", "x"});
    EXPECT_EQ(get_options(own_name.span()), kUsage);
}

TEST_F(CommandLine, AnswersHelpWords) {
    for (const char *word : {"?", "h", "help", "help ls", "help -y"})
        EXPECT_EQ(parse(word), ParseOutcome::help);
    EXPECT_EQ(parse("-log " + log_name() + " help"), ParseOutcome::help);
}

TEST_F(CommandLine, ComparesCommandsExactly) {
    for (const char *line : {"COPY a b", "Cp a b", "Dd -if a", "LS x", "nosuch", "copyx a b"}) {
        EXPECT_EQ(parse(line), kUsage) << line;
    }
    EXPECT_EQ(parse("DD -if a"), kAccepted);
}

TEST_F(CommandLine, ComparesTwoCommandsWithoutRegardToCase) {
    EXPECT_EQ(parse("ISPATHONWNFS -oh h -path p"), kAccepted);
    EXPECT_EQ(commandtype, kIsPathOnWnfs);
    EXPECT_EQ(parse("GetSubnetMask -ip 10.0.0.1"), kAccepted);
    EXPECT_EQ(commandtype, kGetSubnetMask);
}

// -trace

TEST_F(CommandLine, TracesToStandardErrorWhenACommandFollows) {
    CapturedOutput errors(STDERR_FILENO);
    EXPECT_EQ(parse("-trace mv a b"), kAccepted);
    EXPECT_EQ(octx.trace_on, 1);
    EXPECT_EQ(octx.trace_to_stderr, 1);
    EXPECT_EQ(commandtype, kMove);
    EXPECT_EQ(operands(), "a b");
}

TEST_F(CommandLine, TracesToAFileOtherwise) {
    EXPECT_EQ(parse("-trace " + trace_name() + " mv a b"), kAccepted);
    EXPECT_EQ(octx.trace_on, 1);
    EXPECT_EQ(octx.trace_to_stderr, 0);
    EXPECT_EQ(octx.trace_file_name, trace_name());
    EXPECT_EQ(commandtype, kMove);
}

TEST_F(CommandLine, TakesACommandOutsideTheFixedListForATraceFile) {
    const std::string old = std::filesystem::current_path().string();
    std::filesystem::current_path(directory_.path());
    EXPECT_EQ(parse("-trace getserverlist"), kUsage);
    EXPECT_FALSE(std::filesystem::exists("getserverlist"));
    EXPECT_EQ(parse("-trace save ls /x"), kAccepted);
    EXPECT_TRUE(std::filesystem::exists("save"));
    EXPECT_EQ(parse("-trace -y ls /x"), kAccepted);
    EXPECT_TRUE(std::filesystem::exists("-y"));
    std::filesystem::current_path(old);
}

TEST_F(CommandLine, TruncatesTheTraceFile) {
    write_file(trace_name(), "old");
    EXPECT_EQ(parse("-trace " + trace_name() + " save"), kAccepted);
    EXPECT_EQ(read_file(trace_name()), "");
}

TEST_F(CommandLine, WantsMoreThanATraceFile) {
    EXPECT_EQ(parse("-trace"), kUsage);
    EXPECT_EQ(parse("-trace " + trace_name()), kUsage);
    EXPECT_FALSE(std::filesystem::exists(trace_name()));
}

TEST_F(CommandLine, KnowsTraceAsTheFirstWordOnly) {
    EXPECT_EQ(parse("-log " + log_name() + " -trace " + trace_name() + " ls /x"), kUsage);
    EXPECT_EQ(parse("-level 0 0 0 3 -trace ls /x"), kUsage);
}

TEST_F(CommandLine, SaysWhyATraceFileCannotBeOpened) {
    CapturedOutput captured;
    EXPECT_EQ(parse("-trace /nowhere/at/all ls /x"), ParseOutcome::refused);
    EXPECT_EQ(captured.text(), "unable to open:/nowhere/at/all. Err info:No such file or directory\n");
}

// -level

TEST_F(CommandLine, SetsTheFourLevelsInOrder) {
    nfcore_mask = 5;
    EXPECT_EQ(parse("-level 1 2 3 4 ls /x"), kAccepted);
    EXPECT_EQ(kgtdm_trace, 1u);
    EXPECT_EQ(nfcore_trace, 2u);
    EXPECT_EQ(snfcore_trace, 3u);
    EXPECT_EQ(tslwnfs_trace, 4u);
    EXPECT_EQ(nfcore_mask, 0);
}

TEST_F(CommandLine, WantsFourLevelsAndACommand) {
    for (const char *line : {"-level", "-level 1 2 3 4", "-level 1 2 3 ls", "-level 1 2 3 4 -y"}) {
        EXPECT_EQ(parse(line), kUsage) << line;
    }
}

TEST_F(CommandLine, RefusesALevelOutsideZeroToFourAndStopsThere) {
    EXPECT_EQ(parse("-level 1 5 3 4 ls /x"), kUsage);
    EXPECT_EQ(kgtdm_trace, 1u);
    EXPECT_EQ(nfcore_trace, 0u);
    EXPECT_EQ(snfcore_trace, 0u);
    EXPECT_EQ(parse("-level 1 2 3 -1 ls /x"), kUsage);
    EXPECT_EQ(tslwnfs_trace, 0u);
}

TEST_F(CommandLine, ReadsLeadingDigitsOfALevel) {
    EXPECT_EQ(parse("-level abc 3x 0 0 ls /x"), kAccepted);
    EXPECT_EQ(kgtdm_trace, 0u);
    EXPECT_EQ(nfcore_trace, 3u);
}

TEST_F(CommandLine, TakesLevelsBehindATraceToStandardError) {
    CapturedOutput errors(STDERR_FILENO);
    EXPECT_EQ(parse("-trace -level 0 0 0 3 ls /x"), kAccepted);
    EXPECT_EQ(octx.trace_to_stderr, 1);
    EXPECT_EQ(tslwnfs_trace, 3u);
}

// -log

TEST_F(CommandLine, OpensTheLogEmptyAsSoonAsItIsRead) {
    write_file(log_name(), "old");
    EXPECT_EQ(parse("-log " + log_name() + " nosuch"), kUsage);
    EXPECT_EQ(read_file(log_name()), "");
    EXPECT_EQ(octx.log_on, 1);
    EXPECT_EQ(octx.log_file_name, log_name());
}

TEST_F(CommandLine, RefusesACommandOfTheFixedListForALog) {
    for (const char *line : {"-log mv ls /x", "-log -level 0 0 0 0 ls /x", "-log", "-log -y"}) {
        EXPECT_EQ(parse(line), kUsage) << line;
    }
}

TEST_F(CommandLine, TakesOtherWordsForALog) {
    const std::string old = std::filesystem::current_path().string();
    std::filesystem::current_path(directory_.path());
    EXPECT_EQ(parse("-log save ls /x"), kAccepted);
    EXPECT_TRUE(std::filesystem::exists("save"));
    std::filesystem::current_path(old);
}

TEST_F(CommandLine, OnlyTracesThatALogCannotBeOpened) {
    CapturedOutput captured;
    EXPECT_EQ(parse("-trace " + trace_name() + " -level 0 0 0 3 -log /nowhere/log ls /x"), ParseOutcome::refused);
    EXPECT_EQ(captured.text(), "");
    EXPECT_EQ(trace(), "[n],get_options TWNFS-65026: The log file /nowhere/log could not be opened (error 2).\n");
}

TEST_F(CommandLine, KnowsTheGlobalOptionsInOneOrderOnly) {
    EXPECT_EQ(parse("-log " + log_name() + " -level 0 0 0 0 ls /x"), kUsage);
}

// Files

TEST_F(CommandLine, CopyAndMoveTakeLettersAndTwoOperands) {
    EXPECT_EQ(parse("copy -i -r a b"), kAccepted);
    EXPECT_EQ(COMMAND_OPTION, kFileInteractive | kFileRecursive);
    EXPECT_EQ(commandtype, kCopy);
    EXPECT_EQ(operands(), "a b");
    EXPECT_EQ(parse("mv -RI a b"), kAccepted);
    EXPECT_EQ(COMMAND_OPTION, kFileInteractive | kFileRecursive);
    EXPECT_EQ(commandtype, kMove);
    EXPECT_EQ(parse("cp -xyz - a b"), kAccepted);
    EXPECT_EQ(COMMAND_OPTION, 0u);
}

TEST_F(CommandLine, CopyAndMoveRefuseAThirdOperandAndLeaveAMissingOneToStartUp) {
    EXPECT_EQ(parse("copy a b c"), kUsage);
    EXPECT_EQ(parse("copy a b -i"), kUsage);
    EXPECT_EQ(parse("move a b c"), kUsage);
    EXPECT_EQ(parse("copy a"), kAccepted);
    EXPECT_EQ(operands(), "a null");
    EXPECT_EQ(parse("copy -i"), kAccepted);
    EXPECT_EQ(operands(), "null null");
}

TEST_F(CommandLine, DeleteTakesLettersAndOneOperand) {
    for (const char *word : {"del", "delete", "rm"}) {
        EXPECT_EQ(parse(std::string(word) + " -ri f"), kAccepted);
        EXPECT_EQ(commandtype, kDelete);
        EXPECT_EQ(COMMAND_OPTION, kFileInteractive | kFileRecursive);
        EXPECT_EQ(operands(), "f null");
        EXPECT_EQ(parse(std::string(word) + " f g"), kUsage);
    }
}

TEST_F(CommandLine, CommandsOnOnePathIgnoreOptionsAndRefuseASecondOperand) {
    for (const std::string word : {"cat", "rmdir", "getattr", "setattr", "fsstat", "fsinfo", "mkdir", "stat"}) {
        EXPECT_EQ(parse(word + " -x - /p"), kAccepted) << word;
        EXPECT_EQ(COMMAND_OPTION, 0u) << word;
        EXPECT_EQ(operands(), "/p null") << word;
        EXPECT_EQ(parse(word + " /p /q"), kUsage) << word;
        EXPECT_EQ(parse(word), kAccepted) << word;
    }
}

TEST_F(CommandLine, MkdirKnowsParentsAsAWholeWord) {
    EXPECT_EQ(parse("mkdir -p /d"), kAccepted);
    EXPECT_EQ(COMMAND_OPTION, kMkdirParents);
    EXPECT_EQ(parse("mkdir -P /d"), kAccepted);
    EXPECT_EQ(COMMAND_OPTION, kMkdirParents);
    EXPECT_EQ(parse("mkdir -pv /d"), kAccepted);
    EXPECT_EQ(COMMAND_OPTION, 0u);
}

TEST_F(CommandLine, StatAndFsstatAreOneCommandButOnlyStatHasOptions) {
    EXPECT_EQ(parse("stat -FL /p"), kAccepted);
    EXPECT_EQ(commandtype, kFsStat);
    EXPECT_EQ(COMMAND_OPTION, kStatFigures | kStatFollow);
    EXPECT_EQ(parse("fsstat -FL /p"), kAccepted);
    EXPECT_EQ(commandtype, kFsStat);
    EXPECT_EQ(COMMAND_OPTION, 0u);
}

TEST_F(CommandLine, StatTakesAFormat) {
    EXPECT_EQ(parse("stat -fcl -%n /p"), kAccepted);
    EXPECT_EQ(COMMAND_OPTION, kStatFigures | kStatFormat);
    EXPECT_STREQ(stat_fmtptr, "-%n");
    EXPECT_EQ(operands(), "/p null");
    EXPECT_EQ(parse("stat -c"), kAccepted);
    EXPECT_EQ(COMMAND_OPTION, 0u);
    EXPECT_EQ(stat_fmtptr, nullptr);
}

TEST_F(CommandLine, ListLettersAreCaseSensitive) {
    EXPECT_EQ(parse("ls /x extra words"), kAccepted);
    EXPECT_EQ(commandtype, kList);
    EXPECT_EQ(operands(), "/x null");
    EXPECT_EQ(parse("dir -laudesr /x"), kAccepted);
    EXPECT_EQ(commandtype, kList);
    EXPECT_EQ(DIR_LTYPE, 2);
    EXPECT_EQ(DIR_SHOWDOT, 1);
    EXPECT_EQ(DIR_LTIMETYPE, 2);
    EXPECT_EQ(COMMAND_OPTION, kListDirectoriesOnly | kListTime | kListSize | kListReverse);
    EXPECT_EQ(parse("ls -LDEUT /x"), kAccepted);
    EXPECT_EQ(COMMAND_OPTION, 0u);
    EXPECT_EQ(DIR_LTYPE, 0);
}

TEST_F(CommandLine, TheLastOfContradictingListLettersCounts) {
    EXPECT_EQ(parse("ls -lC -aA -ct /x"), kAccepted);
    EXPECT_EQ(DIR_LTYPE, 1);
    EXPECT_EQ(DIR_SHOWDOT, 0);
    EXPECT_EQ(DIR_LTIMETYPE, 0);
    EXPECT_EQ(parse("ls -l1 -c /x"), kAccepted);
    EXPECT_EQ(DIR_LTYPE, 0);
    EXPECT_EQ(DIR_LTIMETYPE, 1);
    EXPECT_EQ(parse("ls -lB /x"), kAccepted);
    EXPECT_EQ(DIR_LTYPE, 0);
}

TEST_F(CommandLine, ListIsRecursiveWithEitherCapitalLetter) {
    for (const char *line : {"ls -S /x", "ls -R /x", "dir -lR /x"}) {
        EXPECT_EQ(parse(line), kAccepted);
        EXPECT_EQ(commandtype, kListRecursive) << line;
        EXPECT_NE(COMMAND_OPTION & kListRecursiveBit, 0u);
    }
}

// find

TEST_F(CommandLine, FindAloneLooksForEverything) {
    EXPECT_EQ(parse("find /d"), kAccepted);
    EXPECT_EQ(operands(), "/d *");
    EXPECT_EQ(COMMAND_OPTION, 0u);
    EXPECT_EQ(maxdepth, 50);
    EXPECT_EQ(parse("find"), kAccepted);
    EXPECT_EQ(operands(), "null *");
    EXPECT_EQ(parse("find -name x"), kAccepted);
    EXPECT_EQ(operands(), "-name *");
}

TEST_F(CommandLine, FindTakesItsOptions) {
    EXPECT_EQ(parse("find /d -follow -maxdepth 3 -path p* -type file -print -name a -name b"), kAccepted);
    EXPECT_EQ(COMMAND_OPTION, kFindFollow | kFindMaxdepth | kFindPath | kFindType | kFindPrint);
    EXPECT_EQ(find_maxdepth_n, 3);
    EXPECT_STREQ(find_path_pattern, "p*");
    EXPECT_EQ(find_type_c, 'f');
    EXPECT_EQ(operands(), "/d b");
}

TEST_F(CommandLine, FindTakesItsOptionsInAnyOrderButExecLast) {
    std::vector<std::string> options = {"-follow",   "-maxdepth 3", "-name a", "-path p*",
                                        "-size +1k", "-type d",     "-print"};
    for (std::size_t turn = 0; turn < options.size(); ++turn) {
        std::rotate(options.begin(), options.begin() + 1, options.end());
        std::string line = "find /d";
        for (const std::string &option : options)
            line += " " + option;
        EXPECT_EQ(parse(line + " -exec ls"), kAccepted) << line;
        EXPECT_EQ(COMMAND_OPTION,
                  kFindFollow | kFindMaxdepth | kFindPath | kFindSizeAtLeast | kFindType | kFindPrint | kFindExec);
        EXPECT_EQ(operands(), "/d a");
        EXPECT_EQ(find_maxdepth_n, 3);
        EXPECT_STREQ(find_path_pattern, "p*");
        EXPECT_EQ(find_size_gsize, 1024);
        EXPECT_EQ(find_type_c, 'd');
        EXPECT_EQ(find_exec_cmdsize, 1);
    }
}

TEST_F(CommandLine, FindReadsSizes) {
    EXPECT_EQ(parse("find /d -size +10k"), kAccepted);
    EXPECT_EQ(find_size_gsize, 10240);
    EXPECT_EQ(COMMAND_OPTION, kFindSizeAtLeast);
    EXPECT_EQ(parse("find /d -size -5"), kAccepted);
    EXPECT_EQ(find_size_lsize, 5);
    EXPECT_EQ(COMMAND_OPTION, kFindSizeAtMost);
    EXPECT_EQ(parse("find /d -size 7"), kAccepted);
    EXPECT_EQ(find_size_size, 7);
    EXPECT_EQ(COMMAND_OPTION, kFindSize);
    EXPECT_EQ(parse("find /d -size 7K"), kAccepted);
    EXPECT_EQ(find_size_size, 7);
    EXPECT_EQ(parse("find /d -size 1k2k"), kAccepted);
    EXPECT_EQ(find_size_size, 1024);
    EXPECT_EQ(parse("find /d -size k10"), kAccepted);
    EXPECT_EQ(find_size_size, 0);
    EXPECT_EQ(parse("find /d -size 4194305k"), kAccepted);
    EXPECT_EQ(find_size_size, 1024);
}

TEST_F(CommandLine, FindSkipsUnknownOptionsAndEndsAtAWord) {
    EXPECT_EQ(parse("find /d -nosuch -name x"), kAccepted);
    EXPECT_EQ(operands(), "/d x");
    EXPECT_EQ(parse("find /d foo -name x"), kAccepted);
    EXPECT_EQ(operands(), "/d *");
}

TEST_F(CommandLine, FindIgnoresAnOptionWithoutItsValue) {
    for (const char *option : {"-maxdepth", "-name", "-path", "-size", "-type"}) {
        EXPECT_EQ(parse(std::string("find /d ") + option), kAccepted) << option;
        EXPECT_EQ(COMMAND_OPTION, 0u) << option;
        EXPECT_EQ(operands(), "/d *") << option;
    }
}

TEST_F(CommandLine, FindTakesValuesThatBeginWithAHyphen) {
    EXPECT_EQ(parse("find /d -name -x -maxdepth -1"), kAccepted);
    EXPECT_EQ(operands(), "/d -x");
    EXPECT_EQ(find_maxdepth_n, -1);
}

TEST_F(CommandLine, FindGivesExecTheRestOfTheLine) {
    EXPECT_EQ(parse("find /d -name x -exec echo {} ; -print -y"), kAccepted);
    EXPECT_EQ(COMMAND_OPTION, kFindExec);
    ASSERT_EQ(find_exec_cmdsize, 5);
    const std::vector<std::string> words(find_exec_cmdptr, find_exec_cmdptr + find_exec_cmdsize);
    EXPECT_THAT(words, testing::ElementsAre("echo", "{}", ";", "-print", "-y"));
    EXPECT_EQ(pass_flag, 1);
    EXPECT_EQ(parse("find /d -exec"), kAccepted);
    EXPECT_EQ(COMMAND_OPTION, kFindExec);
    EXPECT_EQ(find_exec_cmdsize, 0);
}

// Client and network

TEST_F(CommandLine, ShowmountKnowsOneLetter) {
    EXPECT_EQ(parse("showmount"), kAccepted);
    EXPECT_EQ(operands(), "null null");
    EXPECT_EQ(parse("showmount -e"), kUsage);
    EXPECT_EQ(parse("showmount -x srv"), kUsage);
    EXPECT_EQ(parse("showmount -ex srv"), kUsage);
    EXPECT_EQ(parse("showmount -eE -e srv x"), kAccepted);
    EXPECT_EQ(operands(), "srv null");
}

TEST_F(CommandLine, DisableKnowsTwoWords) {
    EXPECT_EQ(parse("wnfsdisable"), kAccepted);
    EXPECT_EQ(deletetslnfstab + deletetdmdir, 0);
    EXPECT_EQ(parse("wnfsdisable -deletetdmdir -deletetslnfstab"), kAccepted);
    EXPECT_EQ(deletetslnfstab, 1);
    EXPECT_EQ(deletetdmdir, 1);
    EXPECT_EQ(parse("wnfsdisable -delete"), kUsage);
    EXPECT_EQ(parse("wnfsdisable foo -delete"), kAccepted);
}

TEST_F(CommandLine, IswnfsenabledTakesOneArgument) {
    EXPECT_EQ(parse("iswnfsenabled /h"), kAccepted);
    EXPECT_EQ(operands(), "/h null");
    EXPECT_EQ(parse("iswnfsenabled /h x"), kUsage);
    EXPECT_EQ(parse("iswnfsenabled"), kAccepted);
}

TEST_F(CommandLine, IsPathOnWnfsWantsBothValuesInEitherOrder) {
    EXPECT_EQ(parse("isPathOnWNFS -path p -oh h"), kAccepted);
    EXPECT_EQ(operands(), "h p");
    EXPECT_EQ(parse("isPathOnWNFS -v -oh h -path p x"), kAccepted);
    for (const char *rest : {"", " -oh h", " -path p", " -oh -path p", " -oh h -path", " x -oh h -path p"}) {
        EXPECT_EQ(parse(std::string("isPathOnWNFS") + rest), kUsage) << rest;
    }
}

TEST_F(CommandLine, GetsubnetmaskWantsAnAddress) {
    EXPECT_EQ(parse("getsubnetmask -v -ip 10.0.0.1"), kAccepted);
    EXPECT_EQ(operands(), "10.0.0.1 null");
    for (const char *rest : {"", " -ip", " -ip -x", " 10.0.0.1"}) {
        EXPECT_EQ(parse(std::string("getsubnetmask") + rest), kUsage) << rest;
    }
}

TEST_F(CommandLine, NetworkdiscoveryCutsALongName) {
    EXPECT_EQ(parse("networkdiscovery"), kAccepted);
    EXPECT_EQ(discovery_flag, 0);
    EXPECT_EQ(parse("networkdiscovery name other"), kAccepted);
    EXPECT_EQ(discovery_flag, 1);
    EXPECT_STREQ(network_discovery_name, "name");
    EXPECT_EQ(parse("networkdiscovery " + std::string(259, 'n')), kAccepted);
    EXPECT_EQ(network_discovery_name, std::string(99, 'n'));
}

TEST_F(CommandLine, NfsidsHasNoCode) {
    EXPECT_EQ(parse("nfsids extra"), kAccepted);
    EXPECT_EQ(id_enabled, 1);
    EXPECT_EQ(commandtype, kNoCommand);
}

// Whatever the words, the parser comes to an end and leaves operands that can be read.
TEST_F(CommandLine, SurvivesRandomWords) {
    std::vector<std::string> vocabulary = {"-level", "0",     "3",     "-s",  "-p",  "-e", "-m",    "-lp",
                                           "a,b;c",  "-em",   "-name", "-if", "-of", "-c", "-exec", "-ip",
                                           "-oh",    "-path", "-size", "+1k", "-",   "",   "x",     "-y",
                                           "-type",  "4c",    "-seek", "-u",  "*",   "-r"};
    for (const Command &command : command_table()) {
        for (const char *word : command.words) {
            if (word != nullptr) vocabulary.emplace_back(word);
        }
    }
    std::mt19937 random(3);
    CapturedOutput captured;
    for (int round = 0; round < 20000; ++round) {
        std::vector<std::string> words;
        for (auto count = random() % 8; count > 0; --count)
            words.push_back(vocabulary[random() % vocabulary.size()]);
        parse_words(words);
        ASSERT_LT(operands().size(), 520u);
        ASSERT_LE(find_exec_cmdsize, 7);
    }
}

}  // namespace
