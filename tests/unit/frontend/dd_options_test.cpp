// SPDX-License-Identifier: Apache-2.0
#include "front_end_fixture.h"

namespace {

constexpr auto kHelp = ParseOutcome::dd_help;

class DdOptions : public FrontEnd {
  protected:
    // What is printed, and what is traced, while a line that dd refuses is read.
    std::string printed_for(const std::string &line) {
        CapturedOutput captured;
        EXPECT_EQ(parse("-trace " + directory_ / "trace" + " -level 0 0 0 3 dd " + line), kHelp) << line;
        return captured.text();
    }
};

TEST_F(DdOptions, AloneAskForHelpUnlessAGlobalOptionIsThere) {
    EXPECT_EQ(parse("dd"), kHelp);
    EXPECT_EQ(parse("DD"), kHelp);
    EXPECT_EQ(parse("-log " + directory_ / "log" + " dd"), kAccepted);
}

TEST_F(DdOptions, SuffixesMultiply) {
    struct Case {
        const char *value;
        int32_t size;
    };
    for (const Case &one : {Case{"4k", 4096},
                            {"4K", 4096},
                            {"4kb", 4000},
                            {"4KB", 4000},
                            {"4kB", 4096},
                            {"4Kb", 4096},
                            {"4kbx", 4096},
                            {"4w", 8},
                            {"4W", 8},
                            {"4w7", 8},
                            {"4b", 2048},
                            {"1B", 512},
                            {"1bb", 512},
                            {"1m", 1048576},
                            {"1M", 1048576},
                            {"1mb", 1000000},
                            {"1MB", 1000000},
                            {"1g", 1073741824},
                            {"1G", 1073741824},
                            {"1gb", 1000000000},
                            {"1GB", 1000000000},
                            {"512", 512},
                            {"", 0},
                            {"1.5", 85},
                            {"+5", -45},
                            {"4g", 0},
                            {"4294967297", 1},
                            {"k", 0}}) {
        EXPECT_EQ(parse_words({"dd", "-ibs", one.value}), kAccepted) << one.value;
        EXPECT_EQ(IBS, one.size) << one.value;
        EXPECT_EQ(COMMAND_OPTION, kDdIbs);
    }
}

TEST_F(DdOptions, RepeatedAppendTheirDigits) {
    EXPECT_EQ(parse("dd -count 1 -count 2"), kAccepted);
    EXPECT_EQ(COUNT, 12);
    EXPECT_EQ(parse("dd -bs 1k -bs 2"), kAccepted);
    EXPECT_EQ(BS, 10242);
}

TEST_F(DdOptions, CommonSizeOverwritesBothOthersAndTheyAppendToIt) {
    EXPECT_EQ(parse("dd -ibs 7 -obs 8 -bs 512"), kAccepted);
    EXPECT_EQ(IBS, 512);
    EXPECT_EQ(OBS, 512);
    EXPECT_EQ(parse("dd -bs 4 -ibs 2"), kAccepted);
    EXPECT_EQ(IBS, 42);
    EXPECT_EQ(OBS, 4);
}

TEST_F(DdOptions, OffsetsCountInTheBlockSizeKnownSoFar) {
    EXPECT_EQ(parse("dd -seek 2 -obs 512"), kAccepted);
    EXPECT_EQ(SEEK, 0);
    EXPECT_EQ(parse("dd -obs 512 -seek 2"), kAccepted);
    EXPECT_EQ(SEEK, 1024);
    EXPECT_EQ(parse("dd -skip 2 -ibs 512"), kAccepted);
    EXPECT_EQ(SKIP, 0);
    EXPECT_EQ(parse("dd -ibs 512 -skip 2"), kAccepted);
    EXPECT_EQ(SKIP, 1024);
    EXPECT_EQ(COMMAND_OPTION, kDdIbs | kDdSkip);
}

TEST_F(DdOptions, AreAcceptedInCapitalsButNotMixed) {
    EXPECT_EQ(parse("dd -IBS 1 -OBS 2 -COUNT 3 -IF a -OF b -P 4 -SEEK 1 -SKIP 1 -BS 5"), kAccepted);
    EXPECT_EQ(COUNT, 3);
    EXPECT_EQ(nios, 4);
    EXPECT_EQ(parse("dd -Bs 1"), kHelp);
}

TEST_F(DdOptions, FilesBecomeTheOperands) {
    EXPECT_EQ(parse("dd -of b -if a"), kAccepted);
    EXPECT_STREQ(fname, "a");
    EXPECT_STREQ(fname1, "b");
    EXPECT_EQ(iffound, 1);
    EXPECT_EQ(offound, 1);
    EXPECT_EQ(COMMAND_OPTION, kDdIf | kDdOf);
}

TEST_F(DdOptions, ParallelRequestsReplaceTheSlots) {
    EXPECT_EQ(parse("dd -p 8"), kAccepted);
    EXPECT_EQ(parallel, 8);
    EXPECT_EQ(nios, 8);
    EXPECT_EQ(parse("dd -p 8 -p 4"), kAccepted);
    EXPECT_EQ(nios, 84);
    EXPECT_EQ(parse("dd -bs 1"), kAccepted);
    EXPECT_EQ(nios, 128);
}

TEST_F(DdOptions, RefuseUnknownWordsAndMissingValues) {
    EXPECT_EQ(printed_for("foo"), "");
    for (const char *option : {"-bs", "-ibs", "-obs", "-count", "-seek", "-skip", "-if", "-of", "-p"}) {
        EXPECT_EQ(printed_for(option), "") << option;
    }
    EXPECT_EQ(trace(), "");
}

TEST_F(DdOptions, RefuseUnknownSuffixesTheAdvertisedOneIncluded) {
    const std::string told = "TWNFS-65047: Unknown size suffix; use w, b, k, kb, m, mb, g or gb.\n";
    EXPECT_EQ(printed_for("-bs 4c"), told);
    EXPECT_EQ(printed_for("-count 4x"), told);
}

TEST_F(DdOptions, OnlyTraceANumberThatBeginsWithAHyphen) {
    for (const char *option : {"-bs", "-ibs", "-obs", "-count", "-seek", "-skip"}) {
        EXPECT_EQ(printed_for(std::string(option) + " -1"), "") << option;
        std::string upper = option;
        for (char &c : upper)
            c = static_cast<char>(std::toupper(c));
        EXPECT_EQ(trace(), "[n],get_options TWNFS-65039: The value of " + upper + " must not begin with a hyphen.\n");
    }
}

TEST_F(DdOptions, WantDigitsOnlyInAnOffset) {
    EXPECT_EQ(printed_for("-seek 2k"), "TWNFS-65005: The SEEK count must be given in decimal digits only.\n");
    EXPECT_EQ(printed_for("-SKIP 1.5"), "TWNFS-65005: The SKIP count must be given in decimal digits only.\n");
}

TEST_F(DdOptions, RefuseAFileThatBeginsWithAHyphen) {
    EXPECT_EQ(printed_for("-if -x"), "TWNFS-65019: The -if option needs the name of an input file.\n");
    EXPECT_EQ(printed_for("-of -x"), "TWNFS-65033: The -of option needs the name of an output file.\n");
}

TEST_F(DdOptions, WantANumberOfParallelRequests) {
    EXPECT_EQ(printed_for("-p x"), "Enter a numerical value");
    EXPECT_EQ(printed_for("-p -1"), "TWNFS-65041: The -p option needs a number of parallel requests.\n");
}

TEST_F(DdOptions, TellWhatIsWrongInTheLogWhenThereIsOne) {
    CapturedOutput captured;
    EXPECT_EQ(parse("-log " + directory_ / "log" + " dd -p x"), kHelp);
    EXPECT_EQ(captured.text(), "");
    ASSERT_TRUE(close_log());
    EXPECT_EQ(read_file(directory_ / "log"), "Enter a numerical value");
}

}  // namespace
