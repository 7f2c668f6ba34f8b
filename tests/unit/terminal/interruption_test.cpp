// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/terminal/interruption.h"

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <functional>

#include "open_screen.h"

using testing::EndsWith;
using testing::HasSubstr;

namespace {

class Interruption : public OpenScreen {
  protected:
    // What a process that does this writes to standard error; status_ is how it ended.
    std::string of_process(const std::function<void()> &action) {
        return written([&] {
            const pid_t process = fork();
            if (process == 0) {
                for (const int signal : {SIGINT, SIGTERM, SIGHUP})
                    std::signal(signal, SIG_DFL);
                terminal::watch_interruptions();
                action();
                _exit(0);
            }
            waitpid(process, &status_, 0);
        });
    }

    bool ended_with(int status) const { return WIFEXITED(status_) && WEXITSTATUS(status_) == status; }
    bool ended_by(int signal) const { return WIFSIGNALED(status_) && WTERMSIG(status_) == signal; }

    int status_ = 0;
};

TEST_F(Interruption, EndsWhatWritesNoFileByTheSignalAndLeavesNoLineBehind) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        const std::string text = of_process([&] {
            terminal::show("50 %");
            raise(signal);
        });
        EXPECT_TRUE(ended_by(signal)) << status_;
        EXPECT_THAT(text, EndsWith("50 %\r    \r"));
    }
}

TEST_F(Interruption, IsLeftToTheTransferOfAFile) {
    const std::string text = of_process([] {
        const terminal::UnfinishedFile file("/m/x", 25'000'000, [] { return 10'100'000; });
        terminal::UnfinishedFile::at(20'000'000);
        raise(SIGTERM);
        terminal::UnfinishedFile::tell();
        terminal::UnfinishedFile::end_program(terminal::UnfinishedFile::interruption());
    });
    EXPECT_TRUE(ended_with(128 + SIGTERM)) << status_;
    EXPECT_EQ(text, "tslwnfs: interrupted: /m/x is not complete (10.1 of 25.0 MB written)\n");
}

TEST_F(Interruption, ThatTheTransferDoesNotLookForEndsTheProgramAfterASecond) {
    const std::string text = of_process([] {
        const terminal::UnfinishedFile file("/m/x", 0);
        terminal::UnfinishedFile::at(149'999);
        terminal::show("50 %");
        raise(SIGHUP);
        while (true)
            pause();
    });
    EXPECT_TRUE(ended_with(128 + SIGHUP)) << status_;
    EXPECT_THAT(text, EndsWith("\r    \rtslwnfs: interrupted: /m/x is not complete (at most 0.1 MB written)\n"));
}

TEST_F(Interruption, ThatComesTwiceEndsTheProgramAtOnce) {
    const std::string text = of_process([] {
        const terminal::UnfinishedFile file("/m/x", 25'000'000);
        raise(SIGINT);
        raise(SIGTERM);
    });
    EXPECT_TRUE(ended_with(128 + SIGINT)) << status_;
    EXPECT_THAT(text, HasSubstr("(at most 0.0 of 25.0 MB written)"));
}

TEST_F(Interruption, OfAFileThatWasFinishedMeanwhileSaysNothingOfIt) {
    const std::string text = of_process([] {
        const terminal::UnfinishedFile file("/m/x", 25'000'000);
        raise(SIGINT);
    });
    EXPECT_TRUE(ended_with(128 + SIGINT)) << status_;
    EXPECT_EQ(text, "");
}

TEST_F(Interruption, ThatWasIgnoredStaysSo) {
    of_process([] {
        std::signal(SIGHUP, SIG_IGN);
        terminal::watch_interruptions();
        const terminal::UnfinishedFile file("/m/x", 0);
        raise(SIGHUP);
        if (terminal::UnfinishedFile::interruption() != 0) _exit(1);
    });
    EXPECT_TRUE(ended_with(0)) << status_;
}

TEST_F(Interruption, HasAFileThatFailedSettledBehindTheReason) {
    const std::string text = of_process([] {
        const terminal::UnfinishedFile file("/m/x", 0, [] { return 1'234'000; });
        terminal::note_failure("It failed");
        terminal::UnfinishedFile::note();
        terminal::tell_reason();
    });
    EXPECT_EQ(text, "tslwnfs: It failed\ntslwnfs: interrupted: /m/x is not complete (1.2 MB written)\n");
}

TEST_F(Interruption, CannotCommandTheTerminalByAName) {
    const std::string text = of_process([] {
        const terminal::UnfinishedFile file(std::string(2000, 'a') + "\33[2Jb", 0);
        terminal::UnfinishedFile::note();
        terminal::tell_reason();
    });
    EXPECT_THAT(text, HasSubstr("aaa?[2Jb is not complete (at most 0.0 MB written)\n"));
    EXPECT_LT(text.size(), 800u);
}

}  // namespace
