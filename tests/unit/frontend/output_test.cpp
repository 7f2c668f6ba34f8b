// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/output/output.h"

#include <fcntl.h>
#include <pty.h>

#include <cerrno>

#include "front_end_fixture.h"
#include "platform/stream.h"
#include "tslwnfs/output/messages.h"
#include "tslwnfs/output/trace.h"
#include "tslwnfs/terminal/reasons.h"
#include "tslwnfs/terminal/screen.h"

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

// Standard output leads to a full disk while one lives.
class FullDisk {
  public:
    FullDisk() : saved_(dup(STDOUT_FILENO)) {
        std::fflush(stdout);
        const int full = open("/dev/full", O_WRONLY);
        dup2(full, STDOUT_FILENO);
        close(full);
    }
    ~FullDisk() {
        dup2(saved_, STDOUT_FILENO);
        close(saved_);
        std::clearerr(stdout);
    }
    FullDisk(const FullDisk &) = delete;
    FullDisk &operator=(const FullDisk &) = delete;

  private:
    int saved_;
};

// A person who looks at standard error.
class Onlooker {
  public:
    Onlooker() { terminal::open(); }
    ~Onlooker() { terminal::close(); }
    Onlooker(const Onlooker &) = delete;
    Onlooker &operator=(const Onlooker &) = delete;

  private:
    ScopedEnvironment always_{"TSLWNFS_TERMINAL", "always"};
};

TEST_F(Output, ShowsTheBytesOfANameInAFileAndNoLineFeedOfItInTheLog) {
    const std::string name = "a\nb\33[2J\xff";
    EXPECT_EQ(shown_name(name, stdout), name);
    ASSERT_TRUE(open_log_file((directory_ / "log").c_str()));
    EXPECT_EQ(shown_name(name), "a?b\33[2J\xff");
    print_message(Message::file_exists, "a\nb");
    ASSERT_TRUE(close_log());
    EXPECT_EQ(read_file(directory_ / "log"), "TWNFS-65018: The file a?b already exists.\n");
}

TEST_F(Output, ShowsATerminalNothingOfANameThatCouldCommandIt) {
    int leader = -1, follower = -1;
    ASSERT_EQ(openpty(&leader, &follower, nullptr, nullptr, nullptr), 0);
    Stream terminal(fdopen(follower, "w"));
    EXPECT_EQ(shown_name("a\nb\33[2J\x9b"
                         "c",
                         terminal.get()),
              "a?b?[2J?c");
    EXPECT_EQ(shown_name("plain name", terminal.get()), "plain name");
    close(leader);
}

TEST_F(Output, NotesARefusalAsTheReason) {
    CapturedOutput errors(STDERR_FILENO);
    const Onlooker onlooker;
    for (const char *answer : {"n", ""}) {
        const ScopedInput input(answer);
        CapturedOutput captured;
        ask();
        terminal::tell_reason();
    }
    EXPECT_EQ(errors.text(),
              "tslwnfs: /a stays as it is: the answer was no\n"
              "tslwnfs: /a stays as it is: the question got no answer\n");
}

TEST_F(Output, ThatIsLostFailsARunWhoseResultItWasAndNoOther) {
    CapturedOutput errors(STDERR_FILENO);
    const FullDisk full;
    lwrf("lost");
    EXPECT_EQ(finish_output(0), 1);
    lwrf("lost");
    EXPECT_EQ(finish_output(3), 3);
    lwrf("lost");
    EXPECT_EQ(finish_output(0, LostOutput::keeps_status), 0);
    EXPECT_EQ(errors.text(), "");
}

TEST_F(Output, ThatIsLostIsToldAtATerminalWithTheReasonOfTheWriteThatFailed) {
    CapturedOutput errors(STDERR_FILENO);
    const Onlooker onlooker;
    const FullDisk full;
    lwrf("lost");
    flush_output();  // after this the stream holds nothing that could fail again
    errno = EACCES;
    EXPECT_EQ(finish_output(0), 1);
    EXPECT_EQ(errors.text(), "tslwnfs: standard output is not complete: No space left on device\n");
}

TEST_F(Output, ThatTheLogLostFailsARunWhoseResultItWas) {
    CapturedOutput errors(STDERR_FILENO);
    const Onlooker onlooker;
    for (const auto &[lost, status] : {std::pair{LostOutput::fails, 1}, std::pair{LostOutput::keeps_status, 0}}) {
        ASSERT_TRUE(open_log_file("/dev/full"));
        print("%s", std::string(100'000, 'x').c_str());
        errno = EACCES;
        EXPECT_EQ(finish_output(0, lost), status);
    }
    const std::string told = "tslwnfs: the log file is not complete: No space left on device\n";
    EXPECT_EQ(errors.text(), told + told);
}

TEST_F(Output, ThatIsLostIsTraced) {
    ASSERT_TRUE(open_trace_file((directory_ / "trace").c_str()));
    tslwnfs_trace = 3;
    {
        const FullDisk full;
        lwrf("lost");
        static_cast<void>(finish_output(0));
    }
    EXPECT_EQ(trace(), "[n],main standard output is not complete: No space left on device\n");
}

TEST_F(Output, OfATraceThatWasLostIsToldAndLeavesTheStatus) {
    CapturedOutput errors(STDERR_FILENO);
    const Onlooker onlooker;
    ASSERT_TRUE(open_trace_file("/dev/full"));
    tslwnfs_trace = 3;
    tslwnfswrf(3, "main", "%s\n", "lost");
    errno = EACCES;
    EXPECT_EQ(finish_output(0), 0);
    EXPECT_EQ(errors.text(), "tslwnfs: the trace is not complete: No space left on device\n");
}

TEST_F(Output, ThatHadNowhereToGoFailsOnlyARunWhoseResultItWas) {
    CapturedOutput errors(STDERR_FILENO);
    const Onlooker onlooker;
    const int saved = dup(STDOUT_FILENO);
    close(STDOUT_FILENO);
    lwrf("lost");
    EXPECT_EQ(finish_output(0, LostOutput::keeps_status), 0);
    std::clearerr(stdout);
    lwrf("lost");
    EXPECT_EQ(finish_output(0), 1);
    dup2(saved, STDOUT_FILENO);
    close(saved);
    std::clearerr(stdout);
    EXPECT_EQ(errors.text(), "tslwnfs: standard output is not complete: Bad file descriptor\n");
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
