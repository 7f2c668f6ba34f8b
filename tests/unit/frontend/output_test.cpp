// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/frontend/output.h"

#include <fcntl.h>

#include "front_end_fixture.h"

namespace {

class Output : public FrontEnd {
  protected:
    static Answer ask() { return ask_yes_no("overwrite %s? y/n : ", "/a"); }
};

TEST_F(Output, GoesToStandardOutputWithoutALog) {
    CapturedOutput captured;
    print("%s\n", "x");
    EXPECT_EQ(captured.text(), "x\n");
    EXPECT_FALSE(output_is_log());
}

TEST_F(Output, GoesToTheLogWhenThereIsOneButUsageDoesNot) {
    ASSERT_TRUE(open_log_file((directory_ / "log").c_str()));
    CapturedOutput captured;
    print("result\n");
    EXPECT_EQ(lwrf("%s\n", "usage"), 0);
    EXPECT_EQ(captured.text(), "usage\n");
    EXPECT_TRUE(output_is_log());
    ASSERT_TRUE(close_log());
    EXPECT_EQ(read_file(directory_ / "log"), "result\n");
    EXPECT_FALSE(output_is_log());
}

TEST_F(Output, TakesOnlyTheFirstLetterOfALowerCaseAnswer) {
    CapturedOutput captured;
    for (const char *word : {"y", "yes", "yup"}) {
        const ScopedInput input(word);
        EXPECT_EQ(ask(), Answer::yes) << word;
    }
    for (const char *word : {"n", "no", "nay", "nope"}) {
        const ScopedInput input(word);
        EXPECT_EQ(ask(), Answer::no) << word;
    }
}

TEST_F(Output, AsksAgainForAnythingElse) {
    const ScopedInput input("Y maybe\n\n N\nyes\n");
    CapturedOutput captured;
    EXPECT_EQ(ask(), Answer::yes);
    const std::string question = "overwrite /a? y/n : ";
    EXPECT_EQ(captured.text(), question + question + question + question);
}

TEST_F(Output, TakesTheEndOfTheInputForARefusalAndAsksOnce) {
    const ScopedInput input("");
    CapturedOutput captured;
    EXPECT_EQ(ask(), Answer::end_of_input);
    EXPECT_EQ(captured.text(), "overwrite /a? y/n : ");
}

TEST_F(Output, LeavesTheRestOfALongWordToTheNextQuestion) {
    const ScopedInput input("yesterdaynope\n");
    CapturedOutput captured;
    EXPECT_EQ(ask(), Answer::yes);
    EXPECT_EQ(ask(), Answer::no);
}

TEST_F(Output, AsksOnStandardOutputEvenWithALog) {
    ASSERT_TRUE(open_log_file((directory_ / "log").c_str()));
    const ScopedInput input("y");
    CapturedOutput captured;
    EXPECT_EQ(ask(), Answer::yes);
    EXPECT_EQ(captured.text(), "overwrite /a? y/n : ");
    ASSERT_TRUE(close_log());
    EXPECT_EQ(read_file(directory_ / "log"), "");
}

TEST_F(Output, ThatIsLostFailsTheRunAndIsToldOnStandardError) {
    CapturedOutput errors(STDERR_FILENO);
    const int full = open("/dev/full", O_WRONLY);
    const int saved = dup(STDOUT_FILENO);
    dup2(full, STDOUT_FILENO);
    std::fputs("lost", stdout);
    EXPECT_EQ(finish_output(0), 1);
    EXPECT_EQ(finish_output(3), 3);
    dup2(saved, STDOUT_FILENO);
    std::clearerr(stdout);
    close(full);
    close(saved);
    EXPECT_THAT(errors.text(), testing::HasSubstr("tslwnfs: standard output is not complete: "));
}

TEST_F(Output, ThatTheLogLostIsToldButLeavesTheStatus) {
    CapturedOutput errors(STDERR_FILENO);
    ASSERT_TRUE(open_log_file("/dev/full"));
    print("lost");
    EXPECT_EQ(finish_output(0), 0);
    EXPECT_EQ(errors.text(), "tslwnfs: the log file is not complete: No space left on device\n");
}

TEST_F(Output, StandardErrorCanTakeTheTrace) {
    CapturedOutput errors(STDERR_FILENO);
    ASSERT_TRUE(open_trace_on_standard_error());
    EXPECT_EQ(octx.trace_to_stderr, 1);
    std::fputs("record", octx.trace_stream);
    EXPECT_EQ(finish_output(0), 0);
    EXPECT_EQ(errors.text(), "record");
}

}  // namespace
