// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/frontend/worker_pool.h"

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "front_end_fixture.h"
#include "tslwnfs/commands/executor.h"
#include "tslwnfs/frontend/file_run.h"
#include "tslwnfs/output/output.h"
#include "tslwnfs/output/trace.h"
#include "tslwnfs/storage/end_process.h"
#include "tslwnfs/storage/held_directory.h"
#include "tslwnfs/terminal/reasons.h"

namespace {

// A pipe that workers inherit: who waits gets a byte from it.
int gate[2] = {-1, -1};

// A command that does what its operand says.
uint32_t act(const Operand &first, const Operand &second) {
    const std::string word = first.shown();
    if (word == "die") raise(SIGKILL);
    if (word == "end") end_process();
    if (char byte = 0; word == "wait") return read(gate[0], &byte, 1) == 1 ? 0 : 1;
    if (word == "directory") return is_worker() ? kIsForFront : 0;
    if (word == "long") print("%s", std::string(100'000, 'x').c_str());
    if (word == "endless") print("%s", std::string(5'000'000, 'x').c_str());
    if (word == "pid") return print("%d\n", getpid()), 0;
    if (word == "note") terminal::note_failure("it went wrong");
    if (word.ends_with("/held")) return held_directory_of(word) != nullptr ? 0 : 9;
    print("%s to %s\n", word.c_str(), second.shown());
    trace_failure("act", "%s", word.c_str());
    return word == "fail" ? 7 : 0;
}

constexpr Command kCommand = {.words = {}, .run = act, .code = kCopy, .names_destination = true};

class Workers : public FrontEnd {
  protected:
    WorkerPool::Result result_of(WorkerPool &pool, const std::string &word) {
        EXPECT_TRUE(pool.has_room());
        return wait_for(pool, pool.start({word, "there", {}, {}}));
    }
    static WorkerPool::Result wait_for(WorkerPool &pool, WorkerPool::Ticket ticket) {
        auto result = pool.take(ticket);
        for (; !result; result = pool.take(ticket))
            pool.wait_for(ticket);
        return *result;
    }
};

TEST_F(Workers, GiveWhatTheyWroteAndTheStatus) {
    ASSERT_TRUE(open_trace_file((directory_ / "trace").c_str()));
    tslwnfs_trace = 3;
    CapturedOutput captured;
    WorkerPool pool(kCommand, 1);
    const auto failed = result_of(pool, "fail");
    EXPECT_EQ(failed.outcome.status, 7u);
    EXPECT_EQ(failed.outcome.written.output, "fail to there\n");
    EXPECT_THAT(failed.outcome.written.trace, testing::EndsWith(",act fail\n"));
    EXPECT_EQ(failed.outcome.notes.failure.text, "fail");
    const auto fine = result_of(pool, "fine");
    EXPECT_EQ(fine.outcome.status, 0u);
    EXPECT_EQ(fine.outcome.written.output, "fine to there\n") << "nothing of the job before";
    EXPECT_EQ(captured.text(), "") << "all of it is held back";
}

TEST_F(Workers, AreNoMoreThanWasAsked) {
    ASSERT_EQ(pipe(gate), 0);
    WorkerPool pool(kCommand, 2);
    ASSERT_TRUE(pool.has_room());
    const auto first = pool.start({"wait", "", {}, {}});
    ASSERT_TRUE(pool.has_room());
    const auto second = pool.start({"wait", "", {}, {}});
    EXPECT_FALSE(pool.has_room());
    ASSERT_EQ(write(gate[1], "ab", 2), 2);
    EXPECT_EQ(wait_for(pool, second).outcome.status, 0u);
    EXPECT_EQ(wait_for(pool, first).outcome.status, 0u);
    EXPECT_TRUE(pool.has_room());
    close(gate[0]);
    close(gate[1]);
}

TEST_F(Workers, ThatDieHaveFailedTheirJobAloneAndAreReplaced) {
    WorkerPool pool(kCommand, 1);
    const auto dead = result_of(pool, "die");
    EXPECT_EQ(dead.outcome.status, 1u);
    EXPECT_EQ(dead.death, "Killed");
    const auto next = result_of(pool, "fine");
    EXPECT_EQ(next.outcome.status, 0u);
    EXPECT_EQ(next.death, "");
}

TEST_F(Workers, EndTheRunWhereTheProcessWouldHaveEnded) {
    WorkerPool pool(kCommand, 1);
    EXPECT_EQ(result_of(pool, "end").outcome.after, After::ends);
}

TEST_F(Workers, GiveDirectoriesBack) {
    WorkerPool pool(kCommand, 1);
    EXPECT_EQ(result_of(pool, "directory").outcome.after, After::undone);
}

TEST_F(Workers, SendWhatIsLongAheadOfTheOutcome) {
    WorkerPool pool(kCommand, 1);
    EXPECT_EQ(result_of(pool, "long").outcome.written.output.size(), 100'000 + sizeof "long to there");
}

TEST_F(Workers, WaitForTheirTurnWithMoreThanThatIsWorthMemory) {
    WorkerPool pool(kCommand, 2);
    const auto first = pool.start({"fine", "there", {}, {}});
    ASSERT_TRUE(pool.has_room());
    const auto endless = pool.start({"endless", "there", {}, {}});
    wait_for(pool, first);
    std::size_t ahead = 0;
    for (int i = 0; i < 100; ++i)
        static_cast<void>(pool.has_room());
    ahead = pool.take_written(endless).size();
    EXPECT_LT(ahead, std::size_t{1} << 20);
    EXPECT_EQ(ahead + wait_for(pool, endless).outcome.written.output.size(), 5'000'000 + sizeof "endless to there");
}

TEST_F(Workers, ThatDiedWhileTheyHadNothingToDoFailNothing) {
    WorkerPool pool(kCommand, 1);
    const auto first = result_of(pool, "pid");
    const pid_t worker = std::stoi(first.outcome.written.output);
    kill(worker, SIGKILL);
    siginfo_t gone{};
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(worker), &gone, WEXITED | WNOWAIT), 0);
    const auto second = result_of(pool, "pid");
    EXPECT_EQ(second.outcome.status, 0u);
    EXPECT_NE(second.outcome.written.output, first.outcome.written.output);
}

TEST_F(Workers, EndWhenTheyAreDismissedWithoutBeingWaitedFor) {
    WorkerPool pool(kCommand, 1);
    const auto worker = static_cast<id_t>(std::stoi(result_of(pool, "pid").outcome.written.output));
    pool.dismiss();
    siginfo_t ended{};
    ASSERT_EQ(waitid(P_PID, worker, &ended, WEXITED | WNOWAIT), 0);
    EXPECT_EQ(ended.si_code, CLD_EXITED);
    EXPECT_EQ(ended.si_status, 0);
}

TEST_F(Workers, HoldTheDirectoriesThatTheirFrontHolds) {
    WorkerPool pool(kCommand, 1);
    EXPECT_EQ(result_of(pool, directory_ / "held").outcome.status, 9u);
    PathBuffer path;
    ASSERT_TRUE(path.assign(directory_.path()));
    {
        const HeldDirectory held(path);
        EXPECT_EQ(result_of(pool, directory_ / "held").outcome.status, 0u);
    }
    EXPECT_EQ(result_of(pool, directory_ / "held").outcome.status, 9u) << "it was let go";
}

TEST(JobsAtOnce, AreEightUnlessOneToThirtyTwoAreAskedFor) {
    for (const auto &[setting, jobs] : std::vector<std::pair<std::string, unsigned>>{
             {"1", 1}, {"32", 32}, {"", 8}, {"0", 8}, {"33", 8}, {"-1", 8}, {"4x", 8}, {"100", 8}}) {
        const ScopedEnvironment variable("TSLWNFS_JOBS", setting.c_str());
        EXPECT_EQ(jobs_at_once().number, jobs) << setting;
    }
}

// Which files are given to workers: the recorder sees what runs in this process.

class FilesTogether : public FrontEnd {
  protected:
    const ScopedEnvironment jobs_{"TSLWNFS_JOBS", "8"};

    FilesTogether() {
        for (int i = 0; i < 20; ++i)
            recorder().listing.push_back("f" + std::to_string(i));
        recorder().remote = {"/m"};
    }

    // How many files the command ran on in this process.
    long run_here(int32_t code, const char *first, const char *second = nullptr) {
        recorder().calls.clear();
        commandtype = code;
        CapturedOutput captured;
        exec_command(first, second);
        printed_ = captured.text();
        return std::count_if(recorder().calls.begin(), recorder().calls.end(), [](const std::string &call) {
            return call.starts_with("delfile") || call.starts_with("copyfile") || call.starts_with("movefile");
        });
    }
};

TEST_F(FilesTogether, AreSixteenOrMoreThatLieOnAServer) {
    EXPECT_EQ(run_here(kDelete, "/m/*"), 0);
    const std::string together = printed_;
    const ScopedEnvironment one("TSLWNFS_JOBS", "1");
    EXPECT_EQ(run_here(kDelete, "/m/*"), 20);
    EXPECT_EQ(printed_, together) << "nobody can tell";
    EXPECT_EQ(run_here(kDelete, "/local/*"), 20);
}

TEST_F(FilesTogether, AreThroughBeforeTheirWorkersHaveLeftTheServers) {
    ASSERT_EQ(pipe(gate), 0);
    recorder().answers["tdm_fini"] = {1};
    recorder().on_failure = [] {
        char byte = 0;
        EXPECT_EQ(read(gate[0], &byte, 1), 1);
    };
    EXPECT_EQ(run_here(kDelete, "/m/*"), 0);
    ASSERT_EQ(write(gate[1], "12345678", 8), 8) << "one for each";
    await_workers();
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "no process is left";
    close(gate[0]);
    close(gate[1]);
}

TEST_F(FilesTogether, AreNotFewerThanSixteenNorLocalNorAskedAbout) {
    EXPECT_EQ(run_here(kDelete, "/local/*"), 20);
    EXPECT_EQ(run_here(kCopy, "/local/*", "/other/*"), 20);
    EXPECT_EQ(run_here(kCopy, "/local/*", "/m/*"), 0);
    EXPECT_EQ(run_here(kDelete, "/m/f1*"), 11);
    COMMAND_OPTION = kFileInteractive;
    EXPECT_EQ(run_here(kDelete, "/m/*"), 20);
}

TEST_F(FilesTogether, AreNotThoseWhoseNamesMeet) {
    EXPECT_EQ(run_here(kCopy, "/m/*", "/m/one"), 20) << "one destination";
    recorder().directories = {"/m/one"};
    EXPECT_EQ(run_here(kCopy, "/m/*", "/m/one"), 0) << "a directory";
    recorder().listing.push_back("F1");
    EXPECT_EQ(run_here(kCopy, "/m/*", "/m/one"), 20) << "two names but for case, of which one is refused";
    recorder().listing.back() = "f1.x";
    EXPECT_EQ(run_here(kMove, "/m/*", "/m/*.x"), 20) << "f1 becomes f1.x, which is another's name";
}

}  // namespace
