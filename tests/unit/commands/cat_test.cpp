// SPDX-License-Identifier: Apache-2.0
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>

#include "tests/support/allocation_faults.h"
#include "tests/unit/commands/command_fixture.h"
#include "tslwnfs/commands/files.h"

namespace {

class CatTest : public CommandTest {
  protected:
    CatTest() {
        commandtype = kCat;
        pbsz = 512;
    }

    Outcome cat(const std::string &path) {
        return run([&] { return catfile(path.c_str()); });
    }

    std::string remark(const std::string &path) const { return path + " not a directory"; }
};
using CatDeathTest = CatTest;

const std::vector<std::string> kCatCalls = {"identify", "resize", "reidentify", "submit", "unidentify"};

TEST_F(CatTest, ALocalFileIsPrintedToTheByteWhateverItsSize) {
    for (const std::size_t size : {0, 1, 511, 512, 513, 32257, 32700, 32767, 32768, 32769, 65300, 65536, 200000}) {
        const std::string text = sample_text(size);
        const Outcome outcome = cat(directory_.file("f", text));
        EXPECT_EQ(outcome.status, 0u) << size;
        EXPECT_EQ(outcome.output, text) << size;
    }
    EXPECT_THAT(fake_.calls_of({"resize", "submit"}), IsEmpty());
}

TEST_F(CatTest, ARemoteFileIsPrintedToTheByteWhateverItsSize) {
    for (const std::size_t size : {0, 1, 511, 512, 513, 32257, 32700, 32767, 32768, 32769, 65300, 65536, 200000}) {
        const std::string text = sample_text(size);
        fake_.volume.add_file("/m/f", text);
        const Outcome outcome = cat("/m/f");
        EXPECT_EQ(outcome.status, 0u) << size;
        EXPECT_EQ(outcome.output, remark("/m/f") + text) << size;
        EXPECT_EQ(fake_.volume.content("/m/f"), text) << size;
    }
}

TEST_F(CatTest, ASmallRemoteFileIsGrownToABlockAndCutBack) {
    fake_.volume.add_file("/m/f", "x");
    EXPECT_EQ(cat("/m/f").status, 0u);
    EXPECT_THAT(
        fake_.calls_of(kCatCalls),
        ElementsAre("identify /m/f key=0 mode=2 length=513 flags=0", "resize file=1 size=512",
                    "reidentify file=1 flags=0",
                    "submit requests=1 timeout=0 count=0 [read file=2 offset=0 count=512 flags=7 cleared=0 aligned]",
                    "resize file=2 size=1", "unidentify file=2"));
    EXPECT_THAT(trace(),
                ElementsAre("catfile tdm_resize successful:source ", "catfile tdm_reidentify successful:source ",
                            "catfile tdm_resize successful:source "));
}

TEST_F(CatTest, TheRecordsOfSuccessAreOfLevelOne) {
    fake_.volume.add_file("/m/f", "x");
    trace_level(2);
    EXPECT_EQ(cat("/m/f").status, 0u);
    EXPECT_THAT(trace(), IsEmpty());
}

TEST_F(CatTest, AWholeNumberOfBlocksIsReadAsItIs) {
    fake_.volume.add_file("/m/f", sample_text(1024));
    EXPECT_EQ(cat("/m/f").status, 0u);
    EXPECT_THAT(fake_.calls_of({"resize", "reidentify"}), IsEmpty());
}

TEST_F(CatTest, WithABlockSizeOfOneOrNoneNothingIsPadded) {
    for (const uint32_t block_size : {0U, 1U}) {
        pbsz = block_size;
        fake_.volume.add_file("/m/f", sample_text(32868));
        EXPECT_EQ(cat("/m/f").output, remark("/m/f") + sample_text(32868));
    }
    EXPECT_THAT(fake_.calls_of({"resize", "reidentify"}), IsEmpty());
}

TEST_F(CatTest, BlocksThatAreLargerThanAPieceStillGiveTheRightBytes) {
    for (const uint32_t block_size : {40000U, 65536U, 100000U}) {
        pbsz = block_size;
        fake_.volume.add_file("/m/f", sample_text(70001));
        EXPECT_EQ(cat("/m/f").output, remark("/m/f") + sample_text(70001)) << block_size;
        EXPECT_EQ(fake_.volume.content("/m/f").size(), 70001u) << block_size;
    }
}

TEST_F(CatTest, AnEmptyRemoteFileIsOneRequestForNothing) {
    fake_.volume.add_file("/m/f", "");
    EXPECT_EQ(cat("/m/f").status, 0u);
    EXPECT_THAT(
        fake_.calls_of({"submit"}),
        ElementsAre("submit requests=1 timeout=0 count=0 [read file=1 offset=0 count=0 flags=7 cleared=0 aligned]"));
}

TEST_F(CatTest, ALongFileGoesRoundTheSlots) {
    nios = 1;
    const std::string text = sample_text(std::size_t{300} * 1024);
    bsize = 1024;
    fake_.volume.add_file("/m/f", text);
    EXPECT_EQ(cat("/m/f").output, remark("/m/f") + text);
    EXPECT_EQ(fake_.calls_of({"submit"}).size(), 300u);
}

TEST_F(CatTest, TheLogGetsTheContent) {
    turn_log_on();
    fake_.volume.add_file("/m/f", "content");
    const Outcome outcome = cat("/m/f");
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(outcome.log, remark("/m/f") + "content");
}

// Another process, since a pipe holds less than the larger texts. Gives its id.
pid_t fill_pipe(const std::string &pipe, const std::string &text) {
    const pid_t writer = fork();
    if (writer != 0) return writer;
    FILE *const stream = std::fopen(pipe.c_str(), "w");
    std::fwrite(text.data(), 1, text.size(), stream);
    _exit(std::fclose(stream));
}

TEST_F(CatTest, APipeIsReadUntilItsEnd) {
    const std::string pipe = directory_.path("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), S_IRUSR | S_IWUSR), 0);
    for (const std::size_t size : {0, 1, 32767, 32768, 32769, 65536, 200000}) {
        const std::string text = sample_text(size);
        const pid_t writer = fill_pipe(pipe, text);
        const Outcome outcome = cat(pipe);
        EXPECT_EQ(outcome.status, 0u) << size;
        EXPECT_EQ(outcome.output, text) << size;
        waitpid(writer, nullptr, 0);
    }
}

TEST_F(CatTest, AFileThatSaysItIsEmptyIsReadUntilItsEnd) {
    EXPECT_EQ(cat("/proc/version").output, read_file("/proc/version"));
    EXPECT_NE(read_file("/proc/version"), "");
}

TEST_F(CatTest, ADirectoryFailsSilently) {
    fake_.volume.add_directory("/m/d");
    EXPECT_EQ(cat("/m/d").status, 1u);
    EXPECT_EQ(cat("/m/d").output, "");
    EXPECT_THAT(trace(), IsEmpty());
    EXPECT_EQ(cat(directory_.path()).status, 1u);
}

TEST_F(CatTest, ALinkToADirectoryIsNotRead) {
    std::filesystem::create_symlink(directory_.path(), directory_.path("link"));
    const std::string link = directory_.path("link");
    EXPECT_EQ(cat(link).status, 1u);
    EXPECT_THAT(trace_of("catfile"), ElementsAre("catfile TWNFS-65036: Identification of " + link + " returned code 2.",
                                                 "catfile TWNFS-65061: The file " + link + " could not be opened."));
}

TEST_F(CatTest, AMissingLocalFileIsRemarkedUponAndCannotBeOpened) {
    const std::string path = directory_.path("missing");
    const Outcome outcome = cat(path);
    EXPECT_EQ(outcome.status, 1u);
    EXPECT_EQ(outcome.output, "");
    EXPECT_THAT(trace_of("catfile"), ElementsAre("catfile TWNFS-65036: Identification of " + path + " returned code 2.",
                                                 "catfile TWNFS-65061: The file " + path + " could not be opened."));
}

TEST_F(CatTest, AnUnidentifiedFileFails) {
    EXPECT_EQ(cat("/m/missing").status, 1u);
    fake_.answer("identify", 2, {.status = 0, .location = 3});
    EXPECT_EQ(cat("/m/missing").status, 1u);
    EXPECT_THAT(trace_of("catfile"), ElementsAre("catfile TWNFS-65036: Identification of /m/missing returned code 3.",
                                                 "catfile TWNFS-65036: Identification of /m/missing returned code 3."));
}

TEST_F(CatTest, AFailedResizeOrReidentifyFails) {
    fake_.volume.add_file("/m/f", "x");
    fake_.answer("resize", 1, {.status = 28, .location = {}});
    EXPECT_EQ(cat("/m/f").output, remark("/m/f"));
    fake_.answer("reidentify", 1, {.status = 70, .location = {}});
    EXPECT_EQ(cat("/m/f").status, 1u);
    EXPECT_THAT(trace(),
                ElementsAre("catfile TWNFS-65045: The size of the file could not be changed (status 28).",
                            "catfile tdm_resize successful:source ",
                            "catfile TWNFS-65035: The file could not be identified again after its size was changed "
                            "(status 70)."));
    EXPECT_EQ(fake_.volume.content("/m/f"), "x");
    EXPECT_TRUE(fake_.every_answer_was_given());
}

TEST_F(CatTest, AFailureToCutBackFailsAfterThePrinting) {
    fake_.volume.add_file("/m/f", "x");
    fake_.answer("resize", 2, {.status = 30, .location = {}});
    const Outcome outcome = cat("/m/f");
    EXPECT_EQ(outcome.status, 1u);
    EXPECT_EQ(outcome.output, remark("/m/f") + "x");
    EXPECT_EQ(trace().back(), "catfile TWNFS-65045: The size of the file could not be changed (status 30).");
    EXPECT_THAT(fake_.calls_of({"unidentify"}), IsEmpty());
}

TEST_F(CatTest, AFailureToReleaseChangesNothing) {
    fake_.volume.add_file("/m/f", "");
    fake_.answer("unidentify", 1, {.status = 5, .location = {}});
    EXPECT_EQ(cat("/m/f").status, 0u);
    EXPECT_THAT(trace(), ElementsAre("catfile TWNFS-65050: /m/f could not be released (status 5)."));
}

TEST_F(CatTest, MissingMemoryIsTracedAndTheFileIsCutBack) {
    fake_.volume.add_file("/m/f", "x");
    {
        const AllocationFault fault(128 * 256);
        EXPECT_EQ(cat("/m/f").status, 1u);
        EXPECT_THAT(fake_.calls(), IsEmpty());
    }
    const AllocationFault fault(69632);
    EXPECT_EQ(cat("/m/f").status, 1u);
    EXPECT_EQ(trace().back(), "catfile TWNFS-65060: 69632 bytes of memory could not be allocated.");
    EXPECT_EQ(fake_.volume.content("/m/f"), "x");
}

TEST_F(CatTest, AnOutputThatCannotTakeTheContentFails) {
    FILE *full = std::fopen("/dev/full", "w");
    ASSERT_NE(full, nullptr);
    std::setvbuf(full, nullptr, _IONBF, 0);
    turn_log_on();
    octx.log_stream = full;
    EXPECT_EQ(cat(directory_.file("f", sample_text(100))).status, 1u);
    EXPECT_EQ(trace().back(), "catfile TWNFS-65061: The file " + directory_.path("f") + " could not be opened.");
    std::fclose(full);
}

TEST_F(CatTest, AFailedReadRequestIsTracedAndTheCommandGoesOn) {
    fake_.volume.add_file("/m/f", sample_text(1024));
    fake_.complete_request(1, 5);
    EXPECT_EQ(cat("/m/f").status, 0u);
    EXPECT_THAT(trace(), ElementsAre("readnfsfile TWNFS-65065: A storage request did not complete (code 5)."));
}

TEST_F(CatDeathTest, ABrokenTransferEndsTheProcess) {
    fake_.volume.add_file("/m/f", "x");
    fake_.answer("reap", 1, {.status = 110, .location = {}});
    EXPECT_EXIT(catfile("/m/f"), testing::ExitedWithCode(1), "");
}

TEST_F(CatTest, AMissingOrUnresolvablePathFails) {
    EXPECT_EQ(run([] { return catfile(nullptr); }).status, 1u);
    EXPECT_EQ(cat("..").status, 1u);
    EXPECT_THAT(trace(), ElementsAre("catfile TWNFS-65016: The first operand is missing.",
                                     "catfile TWNFS-65059: The path .. could not be resolved."));
}

}  // namespace
