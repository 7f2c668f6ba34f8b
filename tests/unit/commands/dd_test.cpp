// SPDX-License-Identifier: Apache-2.0
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>

#include "tests/support/allocation_faults.h"
#include "tests/support/strictness.h"
#include "tests/unit/commands/command_fixture.h"
#include "tslwnfs/commands/executor.h"
#include "tslwnfs/commands/files.h"

namespace fs = std::filesystem;

namespace {

constexpr const char *kFromStandardInput = "reading from standard input \n";
constexpr const char *kToStandardOutput = "redirecting to stdout\n";
constexpr const char *kSizeQuestion = "enter the maximum  file size You want \n";
constexpr const char *kCompletion = "Enter Ctrl+c after input completes\n";

struct Blocks {
    int32_t input = 0;
    int32_t output = 0;
};

class DdTest : public CommandTest {
  protected:
    DdTest() { commandtype = kDd; }

    // An empty name stands for a standard stream.
    Outcome dd(const std::string &input, const std::string &output, const std::string &typed = "") {
        iffound = input.empty() ? 0 : 1;
        offound = output.empty() ? 0 : 1;
        const std::string from = input.empty() ? "stdin" : input;
        const std::string to = output.empty() ? "stdout" : output;
        return run([&] { return ddfile(from.c_str(), to.c_str()); }, typed);
    }

    static void set(Blocks blocks, int32_t seek = 0, int32_t skip = 0, int32_t count = 0) {
        IBS = blocks.input;
        OBS = blocks.output;
        SEEK = seek;
        SKIP = skip;
        COUNT = count;
    }

    static std::string exists(const std::string &path) {
        return "TWNFS-65018: The file " + path + " already exists.\nwill overwrite...\n";
    }

    std::string local(const std::string &name) const { return directory_.path(name); }
};
using DdDeathTest = DdTest;

constexpr Blocks kBlockSizes[] = {{1, 1},     {7, 7},     {512, 512}, {4096, 4096}, {65536, 65536},
                                  {0, 0},     {512, 100}, {7, 3},     {4096, 1},    {65536, 512},
                                  {100, 512}, {3, 7},     {1, 4096},  {512, 65536}};

TEST_F(DdTest, EveryDirectionAndBlockSizeKeepsEveryByte) {
    pbsz = 512;
    for (const Blocks blocks : kBlockSizes) {
        for (const std::size_t size : {1, 511, 512, 513, 3000}) {
            const std::string text = sample_text(size);
            directory_.file("src", text);
            fake_.volume.add_file("/m/src", text);
            for (const std::string &input : {local("src"), std::string("/m/src")}) {
                fake_.volume.remove_file("/m/dst");
                set(blocks);
                EXPECT_EQ(dd(input, "/m/dst").status, 0u) << input << blocks.input << ":" << blocks.output;
                EXPECT_EQ(fake_.volume.content("/m/dst"), text) << input << blocks.input << ":" << blocks.output;
                set(blocks);
                EXPECT_EQ(dd(input, local("dst")).status, 0u) << input << blocks.input << ":" << blocks.output;
                EXPECT_EQ(read_file(local("dst")), text) << input << blocks.input << ":" << blocks.output;
            }
            EXPECT_EQ(fake_.volume.content("/m/src"), text);
        }
    }
}

TEST_F(DdTest, SkipSeekAndCountSelectTheBytes) {
    const std::string text = sample_text(1000);
    directory_.file("src", text);
    fake_.volume.add_file("/m/src", text);
    for (const Blocks blocks : {Blocks{10, 10}, Blocks{20, 5}, Blocks{5, 20}}) {
        for (const int32_t count : {0, 20, 100, 5000}) {
            for (const std::string &input : {local("src"), std::string("/m/src")}) {
                set(blocks, 40, 100, count);
                EXPECT_EQ(dd(input, local("dst")).status, 0u);
                const std::string wanted =
                    text.substr(100, count == 0 ? std::string::npos : static_cast<size_t>(count));
                EXPECT_EQ(read_file(local("dst")), std::string(40, '\0') + wanted) << input << " " << count;
                EXPECT_EQ(COUNT, 0);
            }
        }
    }
}

TEST_F(DdTest, ARemoteInputIsSkippedInWholeBlocks) {
    fake_.volume.add_file("/m/src", sample_text(1000));
    set({64, 64}, 0, 100);
    EXPECT_EQ(dd("/m/src", local("dst")).status, 0u);
    EXPECT_EQ(read_file(local("dst")), sample_text(1000).substr(128));
    EXPECT_EQ(SKIP, 0);
}

TEST_F(DdTest, ALocalInputSkippedToItsEndGivesNothing) {
    set({64, 64}, 0, 1000);
    const std::string source = directory_.file("src", sample_text(1000));
    EXPECT_EQ(dd(source, local("dst")).status, 0u);
    EXPECT_EQ(read_file(local("dst")), "");
    EXPECT_EQ(SKIP, 1000);
}

TEST_F(DdTest, ARemoteInputSkippedToItsEndIsRefusedBeforeTheOutputIsTouched) {
    fake_.volume.add_file("/m/src", sample_text(1000));
    const std::string destination = directory_.file("dst", "kept");
    for (const int32_t skip : {1000, 2000}) {
        set({64, 64}, 0, skip);
        EXPECT_EQ(dd("/m/src", destination).status, 1u);
        EXPECT_EQ(trace().back(), "ddfile TWNFS-65021: The skip offset " + std::to_string(skip) +
                                      " is not below the size of the input.");
    }
    EXPECT_EQ(read_file(destination), "kept");
}

TEST_F(DdTest, ACountBelowTheBlockSizeIsRefusedBeforeTheOutputIsTouched) {
    pbsz = 512;
    fake_.volume.add_file("/m/src", "text");
    const std::string destination = directory_.file("dst", "kept");
    for (const std::string &input : {std::string("/m/src"), directory_.file("src", "text")}) {
        set({}, 0, 0, 10);
        EXPECT_EQ(dd(input, destination).status, 1u);
        EXPECT_EQ(trace().back(), "ddfile TWNFS-65020: The count is smaller than the input block size of 1024 bytes.");
        EXPECT_EQ(COUNT, 0);
    }
    EXPECT_EQ(read_file(destination), "kept");
    EXPECT_EQ(fake_.volume.content("/m/src"), "text");
}

TEST_F(DdTest, ABlockSizeOfNoneIsOneKilobyte) {
    set({0, 0});
    EXPECT_EQ(dd(directory_.file("src", "text"), local("dst")).status, 0u);
    EXPECT_EQ(IBS, 1024);
    EXPECT_EQ(OBS, 1024);
    EXPECT_EQ(bsize, 1024);
}

TEST_F(DdTest, WrappedNumbersAreRefusedBeforeAnythingIsOpened) {
    fake_.volume.add_file("/m/src", "text");
    const auto refused = [&](Blocks blocks, int32_t seek, int32_t skip, int32_t count) {
        set(blocks, seek, skip, count);
        EXPECT_EQ(dd("/m/src", "/m/dst").status, 1u);
        return trace().back();
    };
    EXPECT_EQ(refused({-1, 1}, 0, 0, 0), "ddfile block sizes and offsets must not be negative: ibs -1, obs 1, seek 0");
    EXPECT_EQ(refused({1, -1}, 0, 0, 0), "ddfile block sizes and offsets must not be negative: ibs 1, obs -1, seek 0");
    EXPECT_EQ(refused({1, 1}, -1, 0, 0), "ddfile block sizes and offsets must not be negative: ibs 1, obs 1, seek -1");
    EXPECT_EQ(refused({1, 1}, 0, -1, 0), "ddfile TWNFS-65021: The skip offset -1 is not below the size of the input.");
    EXPECT_EQ(refused({1, 1}, 0, 0, -1),
              "ddfile TWNFS-65020: The count is smaller than the input block size of 1 bytes.");
    EXPECT_THAT(fake_.calls(), IsEmpty());
}

// Standard streams

TEST_F(DdTest, StandardInputGoesToStandardOutput) {
    const Outcome outcome = dd("", "", "5\nhello world");
    EXPECT_EQ(outcome.status, 0u);
    EXPECT_EQ(outcome.output, std::string(kFromStandardInput) + kToStandardOutput + kSizeQuestion + kCompletion +
                                  "warning :: ibs-1024 & len-11 differ\nhello");
}

TEST_F(DdTest, WithTheLogOnStandardOutputHoldsTheQuestionAndTheData) {
    turn_log_on();
    set({5, 5});
    const Outcome outcome = dd("", "", "5\nhello");
    EXPECT_EQ(outcome.output, std::string(kSizeQuestion) + "hello");
    EXPECT_EQ(outcome.log, std::string(kFromStandardInput) + kToStandardOutput + kCompletion);
}

TEST_F(DdTest, AFileGoesToStandardOutputWithoutItsPadding) {
    pbsz = 512;
    const std::string text = sample_text(100);
    const std::string source = directory_.file("src", text);
    fake_.volume.add_file("/m/src", text);
    for (const Blocks blocks : {Blocks{10, 10}, Blocks{20, 3}, Blocks{4, 10}}) {
        set(blocks);
        EXPECT_EQ(dd(source, "").output, kToStandardOutput + text);
        set(blocks);
        EXPECT_EQ(dd("/m/src", "").output, std::string(kToStandardOutput) + "/m/src not a directory" + text);
    }
    EXPECT_EQ(fake_.volume.content("/m/src"), text);
    EXPECT_THAT(fake_.calls_of({"create", "commit"}), IsEmpty());
}

TEST_F(DdTest, AnEndOfInputBeforeTheSizeEndsTheCopy) {
    const Outcome outcome = dd("", local("dst"), "1000000\nhello");
    EXPECT_EQ(outcome.status, 0u);
    EXPECT_EQ(read_file(local("dst")), "hello");
    EXPECT_EQ(dd("", "/m/dst", "1000000\nhello").status, 0u);
    EXPECT_EQ(fake_.volume.content("/m/dst"), "hello");
}

TEST_F(DdTest, TheDataBeginsBehindTheLineOfTheSize) {
    set({1, 1});
    for (const auto &[typed, data] : {std::pair{"3\nabcdef", "abc"}, std::pair{"  3\n\nab", "\nab"},
                                      std::pair{"3 ab", " ab"}, std::pair{"\n\n2\nab", "ab"}}) {
        EXPECT_EQ(dd("", local("dst"), typed).status, 0u);
        EXPECT_EQ(read_file(local("dst")), data) << typed;
    }
}

TEST_F(DdTest, NoAnswerAndASizeOfZeroCopyNothing) {
    for (const char *typed : {"", "0\ndata"}) {
        const Outcome outcome = dd("", local("dst"), typed);
        EXPECT_EQ(outcome.status, 0u) << typed;
        EXPECT_EQ(read_file(local("dst")), "") << typed;
        EXPECT_THAT(outcome.output, testing::HasSubstr(kCompletion));
    }
}

TEST_F(DdTest, DataThatBeginWithNoSizeAreRefusedBeforeAnythingIsMade) {
    for (const char *typed : {"abc\ndata", "-5\ndata", "12ab\n", "5data"}) {
        for (const std::string &target : {local("dst"), std::string("/m/dst")}) {
            const Outcome outcome = dd("", target, typed);
            EXPECT_EQ(outcome.status, 1u) << typed;
            EXPECT_EQ(outcome.output, std::string(kFromStandardInput) + kSizeQuestion);
        }
        EXPECT_FALSE(fake_.volume.find("/m/dst") != nullptr);
        EXPECT_NE(access(local("dst").c_str(), F_OK), 0);
    }
}

TEST_F(DdTest, StandardInputThatIsNoTerminalIsReadToItsEndUnderOptions) {
    const Strictness strict("options");
    set({64, 64});
    for (const std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{64}, std::size_t{100}}) {
        const std::string data = sample_text(size);
        const Outcome outcome = dd("", local("dst"), data);
        EXPECT_EQ(outcome.status, 0u);
        EXPECT_THAT(outcome.output, testing::Not(testing::HasSubstr(kSizeQuestion)));
        EXPECT_EQ(read_file(local("dst")), data);
        EXPECT_EQ(dd("", "/m/dst", data).status, 0u);
        EXPECT_EQ(fake_.volume.content("/m/dst"), data);
    }
}

TEST_F(DdTest, AHugeSizeIsNoHarm) {
    EXPECT_EQ(dd("", local("dst"), "99999999999999999999999\nabc").status, 0u);
    EXPECT_EQ(read_file(local("dst")), "abc");
}

TEST_F(DdTest, StandardInputIsSkippedByReading) {
    set({4, 4}, 0, 6);
    EXPECT_EQ(dd("", local("dst"), "10\n0123456789").status, 0u);
    EXPECT_EQ(read_file(local("dst")), "6789");
    set({4, 4}, 0, 2, 5);
    EXPECT_EQ(dd("", local("dst"), "10\n0123456789").status, 0u);
    EXPECT_EQ(read_file(local("dst")), "23456");
    set({4, 4}, 0, 600);
    EXPECT_EQ(dd("", local("dst"), "1000\n0123456789").status, 0u);
    EXPECT_EQ(read_file(local("dst")), "");
}

TEST_F(DdTest, AnEmptyInputFileAsksForTheSizeToo) {
    const std::string source = directory_.file("src", "");
    Outcome outcome = dd(source, local("dst"), "5\n");
    EXPECT_EQ(outcome.status, 0u);
    EXPECT_EQ(outcome.output, std::string(kSizeQuestion) + kCompletion);
    EXPECT_EQ(read_file(local("dst")), "");
    fake_.volume.add_file("/m/src", "");
    outcome = dd("/m/src", local("dst"), "5\n");
    EXPECT_EQ(outcome.output,
              "/m/src not a directory" + std::string(kSizeQuestion) + kCompletion + exists(local("dst")));
    EXPECT_EQ(read_file(local("dst")), std::string(5, '\0'));
}

TEST_F(DdTest, AShortBlockIsWarnedAboutAndWrittenAsLongAsItIs) {
    set({64, 64});
    const Outcome outcome = dd(directory_.file("src", sample_text(100)), local("dst"));
    EXPECT_EQ(outcome.output, "warning :: ibs-64 & len-36 differ\n");
    EXPECT_EQ(read_file(local("dst")), sample_text(100));
    turn_log_on();
    EXPECT_EQ(dd(local("src"), local("new")).log, "warning :: ibs-64 & len-36 differ\n");
}

// Waits until the other side has taken everything out of a pipe.
void await_drained(int pipe_end) {
    for (int pending = 1; pending != 0;) {
        ASSERT_EQ(ioctl(pipe_end, FIONREAD, &pending), 0);
        sched_yield();
    }
}

TEST_F(DdTest, AnInterruptEndsStandardInputAndWhatWasTypedReachesTheOutput) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    iffound = 0;
    offound = 1;
    const pid_t child = fork();
    if (child == 0) {
        std::signal(SIGINT, SIG_IGN);  // one that comes too early or too late does nothing
        dup2(ends[0], STDIN_FILENO);
        std::clearerr(stdin);
        const CapturedOutput output;
        _exit(static_cast<int>(ddfile("stdin", local("dst").c_str())));
    }
    // The pipe stays open: without an interrupt the child would wait for ever. What follows the size is taken by the
    // copy itself, so once it is gone the copy is what waits.
    ASSERT_EQ(write(ends[1], "1000\n", 5), 5);
    await_drained(ends[0]);
    ASSERT_EQ(write(ends[1], "hello", 5), 5);
    await_drained(ends[0]);
    int status = -1;
    while (waitpid(child, &status, WNOHANG) == 0) {
        kill(child, SIGINT);
        sched_yield();
    }
    close(ends[0]);
    close(ends[1]);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_EQ(read_file(local("dst")), "hello");
}

TEST_F(DdTest, ANamedInputWithoutASizeIsReadUntilItsEndWhenNobodySaysASize) {
    const std::string whole = read_file("/proc/version");
    for (const std::string &to : {local("dst"), std::string("/m/dst")}) {
        set({16, 16});
        EXPECT_EQ(dd("/proc/version", to).status, 0u);
        EXPECT_EQ(to == "/m/dst" ? fake_.volume.content(to) : read_file(to), whole);
        set({4, 4}, 0, 0, 8);
        EXPECT_EQ(dd("/proc/version", to).status, 0u);
        EXPECT_EQ(to == "/m/dst" ? fake_.volume.content(to) : read_file(to), whole.substr(0, 8));
        set({4, 4});
        EXPECT_EQ(dd("/proc/version", to, "6\n").status, 0u);
        EXPECT_EQ(to == "/m/dst" ? fake_.volume.content(to) : read_file(to), whole.substr(0, 6));
    }
}

// Outputs

TEST_F(DdTest, AnExistingLocalOutputIsEmptiedWithoutAQuestion) {
    COMMAND_OPTION = kDdBs;  // the bit that makes copy ask
    set({4, 4}, 4);
    const std::string destination = directory_.file("dst", "0123456789");
    const Outcome outcome = dd(directory_.file("src", "text"), destination);
    EXPECT_EQ(outcome.status, 0u);
    EXPECT_EQ(outcome.output, exists(destination));
    EXPECT_EQ(read_file(destination), std::string(4, '\0') + "text");
}

TEST_F(DdTest, ADirectoryAsOutputTakesTheInputsName) {
    set({4, 4});
    fake_.volume.add_directory("/m/d");
    EXPECT_EQ(dd(directory_.file("Name.X", "text"), "/m/d").status, 0u);
    EXPECT_EQ(fake_.volume.content("/m/d/Name.X"), "text");
    EXPECT_EQ(dd("", "/m/d", "4\ntext").status, 0u);
    EXPECT_EQ(fake_.volume.content("/m/d/stdin"), "text");
}

TEST_F(DdTest, AnOutputThatBecomesTooLongIsRefused) {
    pbsz = 512;
    const std::string directory = "/m/" + std::string(250, 'a') + "/" + std::string(250, 'b');
    fake_.volume.add_directory(directory);
    fake_.volume.add_file("/m/longer-than-the-rest", "text");
    EXPECT_EQ(dd("/m/longer-than-the-rest", directory).status, 1u);
    EXPECT_THAT(trace().back(), testing::StartsWith("ddfile TWNFS-65059: The path " + directory.substr(0, 400)));
    EXPECT_THAT(fake_.calls_of({"create"}), IsEmpty());
    EXPECT_EQ(fake_.volume.content("/m/longer-than-the-rest"), "text");
}

TEST_F(DdTest, ADirectoryAsInputIsRefused) {
    COMMAND_OPTION = kDdCount;  // the bit that makes copy recurse
    EXPECT_EQ(dd(directory_.directory("d"), local("dst")).status, 1u);
    EXPECT_FALSE(fs::exists(local("dst")));
    fs::create_symlink(directory_.path(), local("link"));
    EXPECT_EQ(dd(local("link"), local("dst")).status, 1u);
    EXPECT_EQ(trace().back(), "ddfile TWNFS-65061: The file " + local("link") + " could not be opened.");
}

TEST_F(DdTest, AFileIsNeverCopiedOntoItself) {
    const std::string source = directory_.file("src", "text");
    fs::create_hard_link(source, local("hard"));
    EXPECT_EQ(dd(source, source).status, 1u);
    EXPECT_EQ(dd(source, local("hard")).status, 1u);
    EXPECT_EQ(read_file(source), "text");
    fake_.volume.add_file("/m/f", "remote");
    EXPECT_EQ(dd("/m/f", "/m/f").status, 1u);
    EXPECT_EQ(fake_.volume.content("/m/f"), "remote");
}

TEST_F(DdTest, AnExistingRemoteOutputIsResizedBeforeTheData) {
    pbsz = 512;
    COMMAND_OPTION = kDdBs;  // the bit that makes copy ask
    set({1024, 1024}, 2048, 1000);
    fake_.volume.add_file("/m/dst", sample_text(9000));
    const std::string source = directory_.file("src", sample_text(3000));
    const Outcome outcome = dd(source, "/m/dst");
    EXPECT_EQ(outcome.status, 0u);
    EXPECT_TRUE(outcome.output.starts_with("/m/dst not a directory" + exists("/m/dst"))) << outcome.output;
    // 2048 + 3000 + 72 - 1000, and at the end the input's own size.
    EXPECT_THAT(fake_.calls_of({"create", "resize", "reidentify", "commit", "unidentify"}),
                ElementsAre("resize file=1 size=4120", "reidentify file=1 flags=0", "resize file=2 size=3000",
                            "unidentify file=2"));
    EXPECT_THAT(trace_of("ddfile"),
                ElementsAre("ddfile TWNFS-65036: Identification of " + source + " returned code 2.",
                            "ddfile tdm_resize successful:dest ", "ddfile tdm_reidentify successful:dest",
                            "ddfile tdm_resize successful:dest "));
}

TEST_F(DdTest, ANewRemoteOutputIsCreatedResizedAndCommitted) {
    pbsz = 512;
    set({512, 512});
    fake_.volume.add_file("/m/src", sample_text(600));
    EXPECT_EQ(dd("/m/src", "/m/dst").status, 0u);
    EXPECT_THAT(
        fake_.calls_of({"create", "resize", "reidentify", "submit", "commit", "unidentify"}),
        ElementsAre("resize file=1 size=1024", "reidentify file=1 flags=0",
                    "create /m/dst size=0 type=2 mode=2 length=513", "resize file=3 size=1024",
                    "reidentify file=3 flags=0",
                    "submit requests=1 timeout=0 count=0 [read file=2 offset=0 count=512 flags=7 cleared=0 aligned]",
                    "submit requests=1 timeout=0 count=0 [write file=4 offset=0 count=512 flags=7 cleared=0 aligned]",
                    "submit requests=1 timeout=0 count=0 [read file=2 offset=512 count=512 flags=7 cleared=0 aligned]",
                    "submit requests=1 timeout=0 count=0 [write file=4 offset=512 count=512 flags=7 cleared=0 aligned]",
                    "resize file=2 size=600", "resize file=4 size=600", "commit file=4", "unidentify file=2"));
    EXPECT_THAT(trace_of("ddfile"),
                ElementsAre("ddfile tdm_resize successful:source ", "ddfile tdm_reidentify successful:source ",
                            "ddfile TWNFS-65036: Identification of /m/dst returned code 3.",
                            "ddfile tdm_create of file /m/dst successful ", "ddfile tdm_resize successful:dest ",
                            "ddfile tdm_reidentify successful:dest ", "ddfile tdm_resize successful:source ",
                            "ddfile tdm_resize successful:dest ", "ddfile tdm_commit successful "));
}

TEST_F(DdTest, TheRecordsHaveTheirLevels) {
    pbsz = 512;
    set({512, 512});
    fake_.volume.add_file("/m/src", "x");
    trace_level(3);
    EXPECT_EQ(dd("/m/src", "/m/dst").status, 0u);
    EXPECT_THAT(trace_of("ddfile"),
                ElementsAre("ddfile tdm_resize successful:source ", "ddfile tdm_reidentify successful:source ",
                            "ddfile TWNFS-65036: Identification of /m/dst returned code 3.",
                            "ddfile tdm_reidentify successful:dest ", "ddfile tdm_commit successful "));
}

TEST_F(DdTest, TheRecordsOfAnExistingOutputAreOfLevelOne) {
    const std::string source = directory_.file("src", "text");
    fake_.volume.add_file("/m/dst", "old");
    trace_level(2);
    EXPECT_EQ(dd(source, "/m/dst").status, 0u);
    EXPECT_THAT(trace_of("ddfile"),
                ElementsAre("ddfile TWNFS-65036: Identification of " + source + " returned code 2."));
}

TEST_F(DdTest, AnOutputOfAnUnknownKindIsCreatedWithItsSize) {
    pbsz = 512;
    set({512, 512});
    fake_.answer("identify", 2, {.status = 0, .location = 7});
    EXPECT_EQ(dd(directory_.file("src", "text"), "/m/dst").status, 0u);
    EXPECT_THAT(fake_.calls_of({"create"}), ElementsAre("create /m/dst size=512 type=2 mode=2 length=513"));
    EXPECT_THAT(trace_of("ddfile"), testing::Contains("ddfile TWNFS-65036: Identification of /m/dst returned code 7."));
}

TEST_F(DdTest, AnOutputThatCannotBeIdentifiedIsCreatedWithoutASize) {
    pbsz = 512;
    set({512, 512});
    fake_.answer("identify", 2, {.status = 5, .location = 1});
    EXPECT_EQ(dd(directory_.file("src", "text"), "/m/dst").status, 0u);
    EXPECT_THAT(fake_.calls_of({"create"}), ElementsAre("create /m/dst size=0 type=2 mode=2 length=513"));
    EXPECT_EQ(fake_.volume.content("/m/dst"), "text");
}

TEST_F(DdTest, ASeekLosesTheTailWhenTheOutputIsCutToTheInputsSize) {
    set({4, 4}, 4);
    EXPECT_EQ(dd(directory_.file("src", "01234567"), "/m/dst").status, 0u);
    EXPECT_EQ(fake_.volume.content("/m/dst"), std::string(4, '\0') + "0123");
}

TEST_F(DdTest, ACountExtendsTheOutputToTheInputsSize) {
    set({4, 4}, 0, 0, 6);
    EXPECT_EQ(dd(directory_.file("src", "01234567"), "/m/dst").status, 0u);
    EXPECT_EQ(fake_.volume.content("/m/dst"), std::string("012345\0\0", 8));
    fake_.volume.add_file("/m/src", "01234567");
    set({4, 4}, 0, 0, 6);
    EXPECT_EQ(dd("/m/src", "/m/other").status, 0u);
    EXPECT_EQ(fake_.volume.content("/m/other"), std::string("012345\0\0", 8));
}

TEST_F(DdTest, ASkipBeyondEverythingGivesAnOutputOfNoSizeFirst) {
    set({4, 4}, 0, 1000);
    fake_.volume.add_file("/m/dst", "old");
    EXPECT_EQ(dd(directory_.file("src", "01234567"), "/m/dst").status, 0u);
    EXPECT_EQ(fake_.calls_of({"resize"})[0], "resize file=1 size=0");
}

TEST_F(DdTest, ARemoteOutputIsWrittenInOutputBlocks) {
    fake_.volume.add_file("/m/src", sample_text(20));
    const auto requests = [&](Blocks blocks) {
        fake_.volume.remove_file("/m/dst");
        fake_.forget_calls();
        set(blocks);
        EXPECT_EQ(dd("/m/src", "/m/dst").status, 0u);
        std::string text;
        for (const std::string &call : fake_.calls_of({"submit"})) {
            const std::size_t start = call.find('[') + 1;
            const std::size_t offset = call.find("offset=") + 7;
            text += call[start];
            text += call.substr(offset, call.find(" flags") - offset) + ";";
        }
        return text;
    };
    EXPECT_EQ(requests({10, 10}), "r0 count=10;w0 count=10;r10 count=10;w10 count=10;");
    // A larger input block is written out at once; a smaller one is gathered.
    EXPECT_EQ(requests({10, 4}),
              "r0 count=10;w0 count=4;w4 count=4;w8 count=2;r10 count=10;w10 count=4;w14 count=4;w18 count=2;");
    EXPECT_EQ(requests({8, 12}), "r0 count=8;r8 count=8;w0 count=12;r16 count=4;w12 count=8;");
}

// Batches

TEST_F(DdTest, LocalBlocksGoToAServerInBatches) {
    nios = 3;
    set({4, 4}, 100);
    const Outcome outcome = dd(directory_.file("src", "0123456789abcdefgh"), "/m/dst");
    EXPECT_EQ(outcome.status, 0u);
    EXPECT_EQ(outcome.output, "readio::3\nwarning ::1. ibs-4 & len-2 differ\nreadio::2\n");
    const auto request = [](int offset) {
        return " [write file=2 offset=" + std::to_string(offset) + " count=4 flags=7 cleared=0 aligned]";
    };
    EXPECT_THAT(fake_.calls_of({"submit", "reap"}),
                ElementsAre("submit requests=3 timeout=0 count=0" + request(100) + request(104) + request(108),
                            "reap requests=3 minreap=0 timeout=4294967295 count=0",
                            "submit requests=2 timeout=0 count=0" + request(112) + request(116),
                            "reap requests=2 minreap=0 timeout=4294967295 count=0"));
}

TEST_F(DdTest, BehindWhatIsWantedOfAShortBlockTheServerGetsZeros) {
    nios = 1;  // the one buffer still holds the block before
    set({4, 4}, 0, 0, 9);
    EXPECT_EQ(dd(directory_.file("src", "01234567ab"), "/m/dst").status, 0u);
    EXPECT_EQ(fake_.volume.content("/m/dst"), std::string("01234567a\0", 10));
}

TEST_F(DdTest, CompletionsAreAwaitedAFewAtATimeAndNeverMoreThanThereAre) {
    set({1, 1});
    wios = 8;
    EXPECT_EQ(dd(directory_.file("src", sample_text(150)), "/m/dst").output, "readio::128\nreadio::22\n");
    const auto reaps = fake_.calls_of({"reap"});
    ASSERT_EQ(reaps.size(), 16u + 3u);
    EXPECT_EQ(reaps[0], "reap requests=8 minreap=0 timeout=4294967295 count=0");
    EXPECT_EQ(reaps[18], "reap requests=6 minreap=0 timeout=4294967295 count=0");
    EXPECT_EQ(fake_.volume.content("/m/dst"), sample_text(150));
}

TEST_F(DdTest, OddNumbersOfSlotsAndWaitsAreHarmless) {
    for (const auto &[slots, waits] : {std::pair{0, 8}, std::pair{-5, 8}, std::pair{1, 0}, std::pair{500, 1000}}) {
        nios = slots;
        wios = waits;
        set({10, 10});
        fake_.volume.remove_file("/m/dst");
        EXPECT_EQ(dd(directory_.file("src", sample_text(1000)), "/m/dst").status, 0u) << slots;
        EXPECT_EQ(fake_.volume.content("/m/dst"), sample_text(1000)) << slots;
    }
}

TEST_F(DdTest, LargeBlocksMakeSmallerBatches) {
    set({1 << 20, 1 << 20});
    const std::string source = local("src");
    fs::resize_file(directory_.file("src", ""), 40 << 20);
    EXPECT_EQ(dd(source, "/m/dst").output, "readio::32\nreadio::8\n");
}

TEST_F(DdTest, AFailedRequestIsReportedAndTheCopyGoesOn) {
    set({4, 4}, 8);
    nios = 4;
    wios = 2;
    fake_.complete_request(2, 28);
    fake_.complete_request(5, 5);
    const Outcome outcome = dd(directory_.file("src", sample_text(20)), "/m/dst");
    EXPECT_EQ(outcome.status, 0u);
    EXPECT_EQ(outcome.output,
              "Warning::1. i/o submission failed erc=28 offset=12\nreadio::4\n"
              "Warning::0. i/o submission failed erc=5 offset=24\nreadio::1\n");
    std::vector<std::string> failures;
    std::ranges::copy_if(trace_of("ddfile"), std::back_inserter(failures),
                         [](const std::string &line) { return line.find("65027") != std::string::npos; });
    EXPECT_THAT(failures, ElementsAre("ddfile TWNFS-65027: A write request completed with status 28.",
                                      "ddfile TWNFS-65027: A write request completed with status 5."));
    EXPECT_TRUE(fake_.every_answer_was_given());
}

TEST_F(DdTest, WithTheLogOnABatchReportsThere) {
    turn_log_on();
    set({4, 4});
    fake_.volume.add_file("/m/dst", "old");
    fake_.complete_request(2, 28);
    const Outcome outcome = dd(directory_.file("src", "012345"), "/m/dst");
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(outcome.log, "/m/dst not a directory" + exists("/m/dst") +
                               "warning ::1. ibs-4 & len-2 differ\n"
                               "Warning::1. i/o submission failed erc=28 offset=4\nreadio::2\n");
}

TEST_F(DdTest, ABatchThatCannotBeSubmittedStopsTheCopy) {
    set({4, 4});
    fake_.answer("submit", 1, {.status = 110, .location = {}});
    EXPECT_EQ(dd(directory_.file("src", "text"), "/m/dst").status, 1u);
    EXPECT_EQ(trace().back(), "ddfile TWNFS-65070: A storage request could not be submitted (status 110).");
    EXPECT_THAT(fake_.calls_of({"commit"}), IsEmpty());
}

TEST_F(DdTest, ABatchThatCannotBeAwaitedStopsTheCopyWhenNothingIsInFlight) {
    set({4, 4});
    nios = 6;
    wios = 2;
    fake_.answer("reap", 1, {.status = 110, .location = {}});
    EXPECT_EQ(dd(directory_.file("src", sample_text(100)), "/m/dst").status, 1u);
    EXPECT_EQ(trace().back(), "ddfile TWNFS-65065: A storage request did not complete (code 110).");
    EXPECT_EQ(fake_.calls_of({"submit"}).size(), 1u);
    EXPECT_EQ(fake_.in_flight_.size(), 2u);  // those of the call that failed
}

// Failures

TEST_F(DdTest, AFailedRequestOfACopyBetweenServersIsTracedAndTheCopyGoesOn) {
    set({4, 4});
    fake_.volume.add_file("/m/src", "01234567");
    fake_.complete_request(2, 28);
    fake_.complete_request(3, 5);
    EXPECT_EQ(dd("/m/src", "/m/dst").status, 0u);
    EXPECT_EQ(trace_of("writenfsfile").size(), 1u);
    EXPECT_EQ(trace_of("readnfsfile").size(), 1u);
    EXPECT_EQ(fake_.volume.content("/m/dst").size(), 8u);
    EXPECT_TRUE(fake_.every_answer_was_given());
}

TEST_F(DdDeathTest, ABrokenRemoteInputEndsTheProcess) {
    fake_.volume.add_file("/m/src", "text");
    fake_.answer("reap", 1, {.status = 5, .location = {}});
    iffound = offound = 1;
    const std::string destination = local("dst");
    EXPECT_EXIT(ddfile("/m/src", destination.c_str()), testing::ExitedWithCode(1), "");
}

TEST_F(DdTest, InputsThatCannotBeOpened) {
    EXPECT_EQ(dd("/m/missing", "/m/dst").status, 1u);
    EXPECT_EQ(trace().back(), "ddfile TWNFS-65036: Identification of /m/missing returned code 3.");
    EXPECT_EQ(dd(local("missing"), "/m/dst").status, 1u);
    EXPECT_EQ(trace().back(), "ddfile TWNFS-65061: The file " + local("missing") + " could not be opened.");
    EXPECT_EQ(dd("..", "/m/dst").status, 1u);
    EXPECT_EQ(trace().back(), "ddfile TWNFS-65059: The path .. could not be resolved.");
    EXPECT_EQ(run([] { return ddfile(nullptr, "stdout"); }).status, 1u);
    EXPECT_EQ(trace().back(), "ddfile TWNFS-65016: The first operand is missing.");
    fake_.volume.add_file("/m/src", "text");
    fake_.answer("identify", 3, {.status = 0, .location = 3});
    fake_.answer("identify", 4, {.status = 5, .location = 1});
    EXPECT_EQ(dd("/m/src", "/m/dst").status, 1u);
    EXPECT_EQ(trace().back(), "ddfile TWNFS-65036: Identification of /m/src returned code 3.");
    EXPECT_EQ(dd("/m/src", "/m/dst").status, 1u);
    EXPECT_EQ(trace().back(), "ddfile TWNFS-65036: Identification of /m/src returned code 1.");
    EXPECT_THAT(fake_.calls_of({"create"}), IsEmpty());
}

TEST_F(DdTest, AnInputThatCannotBeGrownLeavesTheOutputAlone) {
    pbsz = 512;
    fake_.volume.add_file("/m/src", "text");
    fake_.answer("resize", 1, {.status = 28, .location = {}});
    EXPECT_EQ(dd("/m/src", local("dst")).status, 1u);
    EXPECT_EQ(trace().back(), "ddfile TWNFS-65045: The size of the file could not be changed (status 28).");
    fake_.answer("reidentify", 1, {.status = 70, .location = {}});
    EXPECT_EQ(dd("/m/src", local("dst")).status, 1u);
    EXPECT_EQ(trace().back(),
              "ddfile TWNFS-65035: The file could not be identified again after its size was changed (status 70).");
    EXPECT_FALSE(fs::exists(local("dst")));
    EXPECT_EQ(fake_.volume.content("/m/src"), "text");
}

TEST_F(DdTest, OutputsThatCannotBeOpenedGiveTheInputItsSizeBack) {
    pbsz = 512;
    fake_.volume.add_file("/m/src", "text");
    EXPECT_EQ(dd("/m/src", local("missing/dst")).status, 1u);
    EXPECT_EQ(trace().back(), "ddfile TWNFS-65061: The file " + local("missing/dst") + " could not be opened.");
    EXPECT_EQ(dd("/m/src", "..").status, 1u);
    EXPECT_EQ(trace().back(), "ddfile TWNFS-65059: The path .. could not be resolved.");
    EXPECT_EQ(fake_.volume.content("/m/src"), "text");
}

TEST_F(DdTest, AnOutputThatCannotBePreparedFails) {
    const std::string source = directory_.file("src", "text");
    fake_.volume.add_file("/m/old", "old");
    fake_.answer("resize", 1, {.status = 28, .location = {}});
    EXPECT_EQ(dd(source, "/m/old").status, 1u);
    EXPECT_EQ(trace().back(), "ddfile TWNFS-65045: The size of the file could not be changed (status 28).");
    fake_.answer("reidentify", 1, {.status = 70, .location = {}});
    EXPECT_EQ(dd(source, "/m/new").status, 1u);
    EXPECT_EQ(trace().back(),
              "ddfile TWNFS-65035: The file could not be identified again after its size was changed (status 70).");
    fake_.answer("reidentify", 2, {.status = 71, .location = {}});
    EXPECT_EQ(dd(source, "/m/old").status, 1u);
    EXPECT_EQ(trace().back(),
              "ddfile TWNFS-65035: The file could not be identified again after its size was changed (status 71).");
}

TEST_F(DdTest, AServersRefusalToCreateMakesTheOutputALocalFile) {
    const LocalDirectory elsewhere;
    fake_.volume = FakeVolume(directory_.path());
    fake_.answer("create", 1, {.status = 30, .location = {}});
    EXPECT_EQ(dd(elsewhere.file("src", "text"), local("dst")).status, 0u);
    EXPECT_EQ(read_file(local("dst")), "text");
    EXPECT_EQ(trace_of("ddfile").back(), "ddfile TWNFS-65029: " + local("dst") +
                                             " could not be created on the server (status 30); it may be treated as a "
                                             "local file.");
}

TEST_F(DdTest, FailuresAtTheEnd) {
    pbsz = 512;
    set({512, 512});
    fake_.volume.add_file("/m/src", "text");
    fake_.answer("commit", 1, {.status = 5, .location = {}});
    EXPECT_EQ(dd("/m/src", "/m/a").status, 0u);
    EXPECT_EQ(trace().back(), "ddfile TWNFS-65046: The new file could not be committed (status 5).");
    fake_.answer("unidentify", 2, {.status = 9, .location = {}});
    EXPECT_EQ(dd("/m/src", "/m/b").status, 0u);
    EXPECT_EQ(trace().back(), "ddfile TWNFS-65050: /m/src could not be released (status 9).");
    // The input's growth, the output's size, then the input's true size.
    fake_.answer("resize", 11, {.status = 30, .location = {}});
    EXPECT_EQ(dd("/m/src", "/m/c").status, 1u);
    EXPECT_EQ(trace().back(), "ddfile TWNFS-65045: The size of the file could not be changed (status 30).");
    EXPECT_TRUE(fake_.every_answer_was_given());
}

TEST_F(DdTest, AnOutputThatCannotBeCutToItsSizeFails) {
    const std::string source = directory_.file("src", "text");
    fake_.volume.add_file("/m/old", "old");
    fake_.answer("resize", 2, {.status = 28, .location = {}});
    EXPECT_EQ(dd(source, "/m/new").status, 1u);
    EXPECT_EQ(trace().back(), "ddfile TWNFS-65045: The size of the file could not be changed (status 28).");
    EXPECT_THAT(fake_.calls_of({"commit"}), IsEmpty());
    fake_.answer("unidentify", 1, {.status = 9, .location = {}});
    EXPECT_EQ(dd(source, "/m/old").status, 0u);
    EXPECT_EQ(trace().back(), "ddfile TWNFS-65050: /m/old could not be released (status 9).");
    EXPECT_TRUE(fake_.every_answer_was_given());
}

TEST_F(DdTest, AnInputThatCannotBePositionedIsReadFromWhereItStands) {
    set({4, 4}, 0, 4);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    ASSERT_EQ(write(ends[1], "01234567", 8), 8);
    close(ends[1]);
    fs::create_symlink("/dev/fd/" + std::to_string(ends[0]), local("input"));
    EXPECT_EQ(dd(local("input"), local("dst"), "8\n").status, 0u);
    EXPECT_EQ(read_file(local("dst")), "01234567");
    EXPECT_THAT(trace_of("ddfile"),
                testing::Contains("ddfile TWNFS-65025: A local file could not be positioned at the requested offset."));
    close(ends[0]);
}

TEST_F(DdTest, AStreamThatCannotBePositionedIsUsedFromWhereItStands) {
    set({4, 4}, 4);
    const std::string source = directory_.file("src", "text");
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    fs::create_symlink("/dev/fd/" + std::to_string(ends[1]), local("output"));
    EXPECT_EQ(dd(source, local("output")).status, 0u);
    char data[16] = {};
    EXPECT_EQ(read(ends[0], data, sizeof data), 4);
    EXPECT_STREQ(data, "text");
    EXPECT_EQ(trace_of("ddfile").back(),
              "ddfile TWNFS-65025: A local file could not be positioned at the requested offset.");
    close(ends[0]);
    close(ends[1]);
}

TEST_F(DdTest, MissingMemoryIsTraced) {
    const std::string source = directory_.file("src", "text");
    const auto failing = [&](std::size_t bytes, const std::string &destination) {
        set({8192, 16384});
        const AllocationFault fault(bytes);
        EXPECT_EQ(dd(source, destination).status, 1u);
        EXPECT_TRUE(AllocationFault::fired());
        EXPECT_EQ(trace().back(),
                  "ddfile TWNFS-65060: " + std::to_string(bytes) + " bytes of memory could not be allocated.");
    };
    failing(128 * 256, local("dst"));
    failing(2 * (32768 + 2048), local("dst"));
    failing(2 * (16384 + 2048), local("dst"));
    failing(128 * 8192 + 4096, "/m/dst");
}

TEST_F(DdTest, LostLocalOutputFails) {
    fs::create_symlink("/dev/full", local("full"));
    set({4, 4});
    EXPECT_EQ(dd(directory_.file("src", "text"), local("full")).status, 1u);
    EXPECT_EQ(trace().back(), "ddfile TWNFS-65061: The file " + local("full") + " could not be opened.");
    set({65536, 65536});
    EXPECT_EQ(dd(directory_.file("src", sample_text(100000)), local("full")).status, 1u);
}

TEST_F(DdTest, ThroughTheExecutorTheBannerStaysOnStandardOutput) {
    turn_log_on();
    set({4, 4});
    iffound = offound = 1;
    const std::string source = directory_.file("src", "text");
    const std::string destination = local("dst");
    const Outcome outcome = run([&] { return exec_command(source.c_str(), destination.c_str()); });
    EXPECT_EQ(outcome.status, 0u);
    EXPECT_EQ(outcome.output, "DD:\n");
    EXPECT_EQ(outcome.log, "TWNFS-65023: The command completed successfully.\n");
}

TEST_F(DdTest, ThroughTheExecutorDataOnStandardOutputStandsAmongTheLines) {
    set({4, 4});
    iffound = 1;
    const std::string source = directory_.file("src", "text");
    EXPECT_EQ(run([&] { return exec_command(source.c_str(), "stdout"); }).output,
              "DD:\nredirecting to stdout\ntextTWNFS-65023: The command completed successfully.\n");
}

}  // namespace
