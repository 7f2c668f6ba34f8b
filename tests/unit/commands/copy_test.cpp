// SPDX-License-Identifier: Apache-2.0
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

#include "tests/support/allocation_faults.h"
#include "tests/support/file_size_limit.h"
#include "tests/unit/commands/command_fixture.h"
#include "tslwnfs/commands/executor.h"
#include "tslwnfs/commands/file_transfer.h"
#include "tslwnfs/commands/files.h"

namespace fs = std::filesystem;

namespace {

class CopyTest : public CommandTest {
  protected:
    CopyTest() {
        commandtype = kCopy;
        pbsz = 512;
    }

    Outcome copy(const std::string &source, const std::string &destination, const std::string &answers = "") {
        return run([&] { return copyfile(source.c_str(), destination.c_str()); }, answers);
    }

    std::string exists(const std::string &path) const { return "TWNFS-65018: The file " + path + " already exists.\n"; }
};
using CopyDeathTest = CopyTest;

constexpr std::size_t kSizes[] = {0, 1, 511, 512, 513, 32255, 32257, 32700, 32767, 32768, 32769, 65300, 65536, 100001};
const std::vector<std::string> kCopyCalls = {"identify", "create",     "resize", "reidentify",
                                             "submit",   "unidentify", "commit"};

std::string identified(const std::string &path) {
    return "identify " + path + " key=0 mode=2 length=513 flags=0";
}

std::string submitted(const std::string &request) {
    return "submit requests=1 timeout=0 count=0 [" + request + " flags=7 cleared=0 aligned]";
}

TEST_F(CopyTest, EveryDirectionKeepsEveryByte) {
    for (const std::size_t size : kSizes) {
        const std::string text = sample_text(size);
        const std::string local = directory_.file("local", text);
        fake_.volume.add_file("/m/remote", text);
        EXPECT_EQ(copy(local, directory_.path("ll")).status, 0u) << size;
        EXPECT_EQ(copy(local, "/m/lr").status, 0u) << size;
        EXPECT_EQ(copy("/m/remote", directory_.path("rl")).status, 0u) << size;
        EXPECT_EQ(copy("/m/remote", "/m/rr").status, 0u) << size;
        EXPECT_EQ(read_file(directory_.path("ll")), text) << size;
        EXPECT_EQ(fake_.volume.content("/m/lr"), text) << size;
        EXPECT_EQ(read_file(directory_.path("rl")), text) << size;
        EXPECT_EQ(fake_.volume.content("/m/rr"), text) << size;
        EXPECT_EQ(fake_.volume.content("/m/remote"), text) << size;
        EXPECT_EQ(read_file(local), text) << size;
    }
}

TEST_F(CopyTest, ARemoteSourceIsGrownForTheCopyAndCutBack) {
    fake_.volume.add_file("/m/src", sample_text(32868));
    EXPECT_EQ(copy("/m/src", "/m/dst").status, 0u);
    EXPECT_THAT(
        fake_.calls_of(kCopyCalls),
        ElementsAre(identified("/m/src"), "resize file=1 size=33280", "reidentify file=1 flags=0", identified("/m/dst"),
                    "create /m/dst size=33280 type=2 mode=2 length=513", submitted("read file=2 offset=0 count=32768"),
                    submitted("write file=3 offset=0 count=32768"), submitted("read file=2 offset=32768 count=512"),
                    submitted("write file=3 offset=32768 count=512"), "resize file=2 size=32868",
                    "resize file=3 size=32868", "commit file=3", "unidentify file=2"));
    EXPECT_THAT(trace_of("copyfile"),
                ElementsAre("copyfile tdm_resize successful:source ", "copyfile tdm_reidentify successful:source ",
                            "copyfile TWNFS-65036: Identification of /m/dst returned code 3.",
                            "copyfile tdm_create of file /m/dst successful ", "copyfile tdm_resize successful:source ",
                            "copyfile tdm_resize successful:dest ", "copyfile tdm_commit successful "));
}

TEST_F(CopyTest, TheRecordsHaveTheirLevels) {
    fake_.volume.add_file("/m/src", "x");
    trace_level(3);
    EXPECT_EQ(copy("/m/src", "/m/dst").status, 0u);
    EXPECT_THAT(trace_of("copyfile"), ElementsAre("copyfile tdm_reidentify successful:source ",
                                                  "copyfile TWNFS-65036: Identification of /m/dst returned code 3.",
                                                  "copyfile tdm_create of file /m/dst successful "));
}

TEST_F(CopyTest, WithABlockSizeOfOneTheSourceIsNeverTouched) {
    pbsz = 1;
    fake_.volume.add_file("/m/src", sample_text(32868));
    EXPECT_EQ(copy("/m/src", "/m/dst").status, 0u);
    EXPECT_THAT(
        fake_.calls_of({"create", "resize", "reidentify", "commit"}),
        ElementsAre("create /m/dst size=32868 type=2 mode=2 length=513", "resize file=2 size=32868", "commit file=2"));
}

TEST_F(CopyTest, AWholeNumberOfPiecesNeedsNoPadding) {
    fake_.volume.add_file("/m/src", sample_text(65536));
    EXPECT_EQ(copy("/m/src", "/m/dst").status, 0u);
    EXPECT_THAT(
        fake_.calls_of({"create", "resize", "reidentify", "submit"}),
        ElementsAre("create /m/dst size=65536 type=2 mode=2 length=513", submitted("read file=1 offset=0 count=32768"),
                    submitted("write file=2 offset=0 count=32768"), submitted("read file=1 offset=32768 count=32768"),
                    submitted("write file=2 offset=32768 count=32768"), "resize file=2 size=65536"));
}

TEST_F(CopyTest, AnEmptySourceIsOneReadAndOneWriteOfNothing) {
    fake_.volume.add_file("/m/src", "");
    EXPECT_EQ(copy("/m/src", "/m/dst").status, 0u);
    EXPECT_THAT(fake_.calls_of({"create", "submit"}),
                ElementsAre("create /m/dst size=0 type=2 mode=2 length=513", submitted("read file=1 offset=0 count=0"),
                            submitted("write file=2 offset=0 count=0")));
    EXPECT_EQ(fake_.volume.content("/m/dst"), "");
}

TEST_F(CopyTest, ARemoteSourceToALocalFileIsReleasedAndTheFileHasNoPadding) {
    fake_.volume.add_file("/m/src", sample_text(32868));
    const std::string path = directory_.path("dst");
    EXPECT_EQ(copy("/m/src", path).status, 0u);
    EXPECT_EQ(read_file(path), sample_text(32868));
    EXPECT_THAT(fake_.calls_of({"resize", "commit", "unidentify"}),
                ElementsAre("resize file=1 size=33280", "resize file=2 size=32868", "unidentify file=2"));
}

TEST_F(CopyTest, TheTailOfALocalSourceReachesTheServerAsZeros) {
    // The last piece is written with the padded size before the file is cut: what lies behind the data must be zeros,
    // not what an earlier piece left in the buffer.
    const std::string path = directory_.file("src", sample_text(32768 + 100));
    for (const std::size_t call : {1u, 2u})  // what failed is cut back then, too
        fake_.answer("resize", call, {.status = 5, .location = {}});
    EXPECT_EQ(copy(path, "/m/dst").status, 1u);
    EXPECT_EQ(fake_.volume.content("/m/dst"), sample_text(32768 + 100) + std::string(412, '\0'));
}

TEST_F(CopyTest, AnExistingRemoteFileIsWrittenInPlaceAndReleased) {
    fake_.volume.add_file("/m/src", sample_text(100));
    fake_.volume.add_file("/m/dst", sample_text(5000));
    const Outcome outcome = copy("/m/src", "/m/dst");
    EXPECT_EQ(outcome.status, 0u);
    EXPECT_EQ(outcome.output,
              "/m/src not a directory/m/dst not a directory" + exists("/m/dst") + "will overwrite...\n");
    EXPECT_EQ(fake_.volume.content("/m/dst"), sample_text(100));
    EXPECT_THAT(fake_.calls_of({"create", "commit", "resize", "unidentify"}),
                ElementsAre("resize file=1 size=512", "resize file=2 size=100", "resize file=3 size=100",
                            "unidentify file=2", "unidentify file=3"));
}

TEST_F(CopyTest, AnExistingLocalFileIsAnnounced) {
    const std::string source = directory_.file("src", "new");
    const std::string destination = directory_.file("dst", "old content");
    Outcome outcome = copy(source, destination);
    EXPECT_EQ(outcome.status, 0u);
    EXPECT_EQ(outcome.output, exists(destination) + "will overwrite...\n");
    EXPECT_EQ(read_file(destination), "new");
    EXPECT_THAT(trace_of("copyfile"),
                ElementsAre("copyfile TWNFS-65036: Identification of " + source + " returned code 2.",
                            "copyfile TWNFS-65036: Identification of " + destination + " returned code 2.",
                            "copyfile TWNFS-65029: " + destination +
                                " could not be created on the server (status 95); it may be treated as a local file."));
    turn_log_on();
    outcome = copy(source, destination);
    EXPECT_EQ(outcome.output, "");
    EXPECT_EQ(outcome.log, exists(destination) + "will overwrite...\n");
}

TEST_F(CopyTest, ANewFileIsNeitherAnnouncedNorAskedAbout) {
    COMMAND_OPTION = kFileInteractive;
    const std::string source = directory_.file("src", "new");
    EXPECT_EQ(copy(source, directory_.path("dst")).output, "");
    EXPECT_EQ(copy(source, "/m/dst").output, "");
    EXPECT_EQ(read_file(directory_.path("dst")), "new");
}

TEST_F(CopyTest, OnlyALowerCaseFirstLetterAnswersTheQuestion) {
    COMMAND_OPTION = kFileInteractive;
    pass_flag = 1;  // answers other questions than this one
    const std::string source = directory_.file("src", "new");
    const std::string destination = directory_.file("dst", "old");
    const std::string question = "overwrite " + destination + "? y/n : ";
    for (const char *answer : {"n\n", "no\n", "nope\n"}) {
        const Outcome outcome = copy(source, destination, answer);
        EXPECT_EQ(outcome.status, 1u);
        EXPECT_EQ(outcome.output, exists(destination) + question);
        EXPECT_EQ(read_file(destination), "old");
    }
    const Outcome asked_again = copy(source, destination, "Y\nmaybe\nyup\n");
    EXPECT_EQ(asked_again.status, 0u);
    EXPECT_EQ(asked_again.output, exists(destination) + question + question + question + "will overwrite...\n");
    EXPECT_EQ(read_file(destination), "new");
}

TEST_F(CopyTest, TheEndOfTheInputDeclines) {
    COMMAND_OPTION = kFileInteractive;
    const std::string destination = directory_.file("dst", "old");
    EXPECT_EQ(copy(directory_.file("src", "new"), destination).status, 1u);
    EXPECT_EQ(read_file(destination), "old");
}

TEST_F(CopyTest, TheQuestionIsAskedOnStandardOutputWhenTheLogIsOn) {
    COMMAND_OPTION = kFileInteractive;
    turn_log_on();
    const std::string destination = directory_.file("dst", "old");
    const Outcome outcome = copy(directory_.file("src", "new"), destination, "y\n");
    EXPECT_EQ(outcome.output, "overwrite " + destination + "? y/n : ");
    EXPECT_EQ(outcome.log, exists(destination) + "will overwrite...\n");
}

TEST_F(CopyTest, DecliningLeavesTheSourceAsLongAsItWasMade) {
    COMMAND_OPTION = kFileInteractive;
    fake_.volume.add_file("/m/src", "x");
    fake_.volume.add_file("/m/dst", "old");
    EXPECT_EQ(copy("/m/src", "/m/dst", "n\n").status, 1u);
    EXPECT_EQ(fake_.volume.content("/m/src").size(), 512u);
    EXPECT_THAT(fake_.calls_of({"unidentify", "submit", "create"}), IsEmpty());
    EXPECT_EQ(fake_.volume.content("/m/dst"), "old");
}

TEST_F(CopyTest, ADirectoryTakesTheSourcesBaseName) {
    const std::string source = directory_.file("A.TXT", "text");
    fake_.volume.add_directory("/m/d");
    EXPECT_EQ(copy(source, "/m/d").status, 0u);
    EXPECT_EQ(fake_.volume.content("/m/d/A.TXT"), "text");
    const std::string local = directory_.directory("into");
    EXPECT_EQ(copy(source, local).status, 0u);
    EXPECT_EQ(read_file(local + "/A.TXT"), "text");
    fs::create_symlink(local, directory_.path("link"));
    fs::remove(local + "/A.TXT");
    EXPECT_EQ(copy(source, directory_.path("link")).status, 0u);
    EXPECT_EQ(read_file(local + "/A.TXT"), "text");
}

TEST_F(CopyTest, ABaseNameBeginsBehindEitherSeparator) {
    EXPECT_EQ(base_name("/a/b/d.dbf"), "d.dbf");
    EXPECT_EQ(base_name("/a\\b\\d.dbf"), "d.dbf");
    EXPECT_EQ(base_name("/a/b\\c/d"), "d");
    EXPECT_EQ(base_name("d"), "d");
    const std::string source = directory_.file("x\\d.dbf", "text");
    fake_.volume.add_directory("/m/d");
    EXPECT_EQ(copy(source, "/m/d").status, 0u);
    EXPECT_EQ(fake_.volume.content("/m/d/d.dbf"), "text");
}

TEST_F(CopyTest, ADestinationThatBecomesTooLongIsRefused) {
    const std::string directory = "/m/" + std::string(250, 'a') + "/" + std::string(250, 'b');
    fake_.volume.add_directory(directory);
    const std::string source = directory_.file("longer-than-the-rest", "text");
    EXPECT_EQ(copy(source, directory).status, 1u);
    EXPECT_THAT(trace().back(), testing::StartsWith("copyfile TWNFS-65059: The path " + directory.substr(0, 400)));
    EXPECT_THAT(fake_.calls_of({"create"}), IsEmpty());
}

TEST_F(CopyTest, TheServersRefusalToCreateMakesTheDestinationALocalFile) {
    const LocalDirectory elsewhere;
    const std::string source = elsewhere.file("src", "text");
    const std::string destination = directory_.path("dst");
    fake_.volume = FakeVolume(directory_.path());
    fake_.answer("create", 1, {.status = 30, .location = {}});
    EXPECT_EQ(copy(source, destination).status, 0u);
    EXPECT_EQ(read_file(destination), "text");
    EXPECT_EQ(trace_of("copyfile").back(),
              "copyfile TWNFS-65029: " + destination +
                  " could not be created on the server (status 30); it may be treated as a "
                  "local file.");
}

TEST_F(CopyTest, ACreationIsTriedForALocalPathToo) {
    EXPECT_EQ(copy(directory_.file("src", ""), directory_.path("dst")).status, 0u);
    EXPECT_THAT(fake_.calls_of({"create"}),
                ElementsAre("create " + directory_.path("dst") + " size=0 type=2 mode=2 length=513"));
}

TEST_F(CopyTest, TheNameThatTheLibraryGivesIsTraced) {
    fake_.volume.add_file("/m/src", "");
    EXPECT_EQ(copy("/m/src", "/m/d/../dst").status, 0u);
    EXPECT_THAT(trace(), testing::Contains("copyfile tdm_create of file /m/dst successful "));
}

TEST_F(CopyTest, ALocalDestinationThatCannotBeOpenedFails) {
    fake_.volume.add_file("/m/src", "x");
    const std::string destination = directory_.path("missing/dst");
    EXPECT_EQ(copy("/m/src", destination).status, 1u);
    EXPECT_EQ(trace().back(), "copyfile TWNFS-65061: The file " + destination + " could not be opened.");
    // A failure is not a refusal: the source is as it was.
    EXPECT_EQ(fake_.volume.content("/m/src"), "x");
}

TEST_F(CopyTest, AMissingSourceLeavesTheDestinationAlone) {
    const std::string destination = directory_.file("dst", "old");
    EXPECT_EQ(copy(directory_.path("missing"), destination).status, 1u);
    EXPECT_EQ(read_file(destination), "old");
    EXPECT_EQ(copy(directory_.path("missing"), directory_.path("new")).status, 1u);
    EXPECT_FALSE(fs::exists(directory_.path("new")));
    EXPECT_EQ(copy("/m/missing", "/m/new").status, 1u);
    EXPECT_EQ(fake_.volume.find("/m/new"), nullptr);
    EXPECT_EQ(trace().back(), "copyfile TWNFS-65036: Identification of /m/missing returned code 3.");
}

TEST_F(CopyTest, ASourceThatCannotBeGrownFails) {
    fake_.volume.add_file("/m/src", "x");
    fake_.answer("resize", 1, {.status = 30, .location = {}});
    EXPECT_EQ(copy("/m/src", "/m/dst").status, 1u);
    EXPECT_EQ(trace().back(), "copyfile TWNFS-65045: The size of the file could not be changed (status 30).");
    fake_.answer("reidentify", 1, {.status = 70, .location = {}});
    EXPECT_EQ(copy("/m/src", "/m/dst").status, 1u);
    EXPECT_EQ(trace().back(),
              "copyfile TWNFS-65035: The file could not be identified again after its size was changed (status 70).");
    EXPECT_EQ(fake_.volume.content("/m/src"), "x");
    EXPECT_EQ(fake_.volume.find("/m/dst"), nullptr);
}

TEST_F(CopyTest, ASourceThatCannotBeCutBackFails) {
    fake_.volume.add_file("/m/src", "x");
    fake_.answer("resize", 2, {.status = 30, .location = {}});
    EXPECT_EQ(copy("/m/src", "/m/dst").status, 1u);
    EXPECT_EQ(trace().back(), "copyfile TWNFS-65045: The size of the file could not be changed (status 30).");
    EXPECT_THAT(fake_.calls_of({"commit", "unidentify"}), IsEmpty());
}

TEST_F(CopyTest, ADestinationThatCannotBeResizedFails) {
    fake_.volume.add_file("/m/src", sample_text(512));
    fake_.answer("resize", 1, {.status = 28, .location = {}});
    EXPECT_EQ(copy("/m/src", "/m/dst").status, 1u);
    EXPECT_EQ(trace().back(), "copyfile TWNFS-65045: The size of the file could not be changed (status 28).");
    EXPECT_THAT(fake_.calls_of({"commit", "unidentify"}), IsEmpty());
}

TEST_F(CopyTest, FailuresToCommitAndToReleaseAreTracedOnly) {
    fake_.volume.add_file("/m/src", "");
    fake_.volume.add_file("/m/old", "");
    fake_.answer("commit", 1, {.status = 5, .location = {}});
    fake_.answer("unidentify", 0, {.status = 9, .location = {}});
    EXPECT_EQ(copy("/m/src", "/m/dst").status, 0u);
    EXPECT_EQ(copy("/m/src", "/m/old").status, 0u);
    EXPECT_EQ(copy("/m/src", directory_.path("dst")).status, 0u);
    std::vector<std::string> failures;
    std::ranges::copy_if(trace_of("copyfile"), std::back_inserter(failures), [](const std::string &line) {
        return line.find("65046") != std::string::npos || line.find("65050") != std::string::npos;
    });
    EXPECT_THAT(failures, ElementsAre("copyfile TWNFS-65046: The new file could not be committed (status 5).",
                                      "copyfile TWNFS-65050: /m/src could not be released (status 9).",
                                      "copyfile TWNFS-65050: /m/src could not be released (status 9).",
                                      "copyfile TWNFS-65050: /m/old could not be released (status 9).",
                                      "copyfile TWNFS-65050: /m/src could not be released (status 9)."));
}

TEST_F(CopyTest, MissingMemoryIsTraced) {
    const std::string source = directory_.file("src", "x");
    for (const std::size_t bytes : {std::size_t{32768}, std::size_t{1024}, std::size_t{69632}}) {
        const AllocationFault fault(bytes);
        EXPECT_EQ(copy(source, "/m/dst").status, 1u);
        EXPECT_TRUE(AllocationFault::fired());
        EXPECT_EQ(trace().back(),
                  "copyfile TWNFS-65060: " + std::to_string(bytes) + " bytes of memory could not be allocated.");
    }
}

TEST_F(CopyTest, ALocalFileThatCannotTakeTheDataFails) {
    fake_.volume.add_file("/m/src", sample_text(100001));
    const std::string destination = directory_.path("dst");
    {
        const FileSizeLimit limit(50000);
        EXPECT_EQ(copy("/m/src", destination).status, 1u);
    }
    EXPECT_EQ(trace().back(), "copyfile TWNFS-65061: The file " + destination + " could not be opened.");
    // A failure is not a refusal: the source is as it was.
    EXPECT_EQ(fake_.volume.content("/m/src").size(), 100001u);
}

TEST_F(CopyTest, ALossThatShowsWhenTheFileIsClosedFails) {
    fake_.volume.add_file("/m/src", sample_text(4000));
    const std::string destination = directory_.path("dst");
    {
        const FileSizeLimit limit(3000);
        EXPECT_EQ(copy("/m/src", destination).status, 1u);
    }
    EXPECT_EQ(trace().back(), "copyfile TWNFS-65061: The file " + destination + " could not be opened.");
    EXPECT_EQ(fake_.volume.content("/m/src").size(), 4000u);
}

TEST_F(CopyTest, AFailedRequestIsTracedAndTheCopyGoesOn) {
    fake_.volume.add_file("/m/src", "");
    fake_.complete_request(1, 5);
    EXPECT_EQ(copy("/m/src", "/m/dst").status, 0u);
    EXPECT_TRUE(fake_.every_answer_was_given());
    EXPECT_EQ(trace_of("readnfsfile").size(), 1u);
}

TEST_F(CopyDeathTest, ABrokenTransferEndsTheProcess) {
    const std::string source = directory_.file("src", "text");
    fake_.answer("submit", 1, {.status = 110, .location = {}});
    EXPECT_EXIT(copyfile(source.c_str(), "/m/dst"), testing::ExitedWithCode(1), "");
}

TEST_F(CopyTest, AFileIsNeverCopiedOntoItself) {
    const std::string source = directory_.file("src", "text");
    fs::create_hard_link(source, directory_.path("hard"));
    fs::create_symlink(source, directory_.path("soft"));
    for (const char *name : {"src", "hard", "soft"}) {
        EXPECT_EQ(copy(source, directory_.path(name)).status, 1u) << name;
        EXPECT_EQ(copy(directory_.path(name), source).status, 1u) << name;
        EXPECT_EQ(read_file(source), "text") << name;
    }
    EXPECT_EQ(copy(source, directory_.path()).status, 1u);
    EXPECT_THAT(fake_.calls_of({"create"}), IsEmpty());
    EXPECT_EQ(trace().back(), "copyfile " + source + " and " + source + " are the same file");

    fake_.volume.add_file("/m/f", "remote");
    const Outcome outcome = copy("/m/f", "/m/f");
    EXPECT_EQ(outcome.status, 1u);
    EXPECT_EQ(outcome.output, "/m/f not a directory/m/f not a directory");
    EXPECT_EQ(fake_.volume.content("/m/f"), "remote");
}

TEST_F(CopyTest, ADirectoryNeedsTheRecursiveOption) {
    const std::string destination = directory_.path("new");
    const Outcome outcome = copy(directory_.directory("src"), destination);
    EXPECT_EQ(outcome.status, 1u);
    EXPECT_EQ(outcome.output, "");
    EXPECT_THAT(trace_of("copyfile"), IsEmpty());
    EXPECT_FALSE(fs::exists(destination));
}

TEST_F(CopyTest, ADirectoryIsNotCopiedIntoItself) {
    COMMAND_OPTION = kFileRecursive;
    const std::string source = directory_.directory("src");
    directory_.file("src/f", "text");
    fs::create_symlink(source, directory_.path("link"));
    for (const std::string &destination :
         {source, source + "/sub", source + "/sub/deeper", directory_.path("link/sub")}) {
        EXPECT_EQ(copy(source, destination).status, 1u) << destination;
    }
    EXPECT_FALSE(fs::exists(source + "/sub"));
    fake_.volume.add_directory("/m/d");
    EXPECT_EQ(copy("/m/d", "/m/d/sub").status, 1u);
    EXPECT_EQ(trace().back(), "copyfile /m/d/sub lies inside /m/d");
}

TEST_F(CopyTest, AFileIsNotCopiedOntoItselfThroughAnotherMount) {
    const FakeNodePointer file = fake_.volume.add_file("/m/a/f", "text");
    fake_.volume.add_directory("/m/b")->entries.emplace_back("f", file);
    file->attributes.file_system_id = 7;
    EXPECT_EQ(copy("/m/a/f", "/m/b/f").status, 1u);
    EXPECT_EQ(trace().back(), "copyfile /m/a/f and /m/b/f are the same file");
    EXPECT_EQ(fake_.volume.content("/m/a/f"), "text");
    EXPECT_THAT(fake_.calls_of({"submit"}), IsEmpty());
}

TEST_F(CopyTest, ADirectoryIsNotCopiedIntoItselfThroughAnotherMount) {
    COMMAND_OPTION = kFileRecursive;
    const FakeNodePointer tree = fake_.volume.add_directory("/m/a/tree");
    tree->attributes.file_system_id = 7;
    fake_.volume.add_directory("/m/b")->entries.emplace_back("tree", tree);
    EXPECT_EQ(copy("/m/a/tree", "/m/b/tree/sub").status, 1u);
    EXPECT_EQ(trace().back(), "copyfile /m/b/tree/sub lies inside /m/a/tree");
    EXPECT_THAT(fake_.calls_of({"mkdir"}), IsEmpty());
}

TEST_F(CopyTest, ADestinationDirectoryThatCannotBeMadeFails) {
    COMMAND_OPTION = kFileRecursive | kFileInteractive;  // asking is not making parents
    const std::string source = directory_.directory("src");
    EXPECT_EQ(copy(source, directory_.path("missing/dst")).status, 1u);
    EXPECT_FALSE(fs::exists(directory_.path("missing")));
}

TEST_F(CopyTest, ATreesContentIsCopiedIntoTheDestination) {
    COMMAND_OPTION = kFileRecursive;
    const std::string source = directory_.directory("src");
    directory_.directory("src/sub");
    directory_.file("src/a", "one");
    directory_.file("src/sub/b", "two");
    EXPECT_EQ(copy(source, "/m/dst").status, 0u);
    EXPECT_EQ(fake_.volume.content("/m/dst/a"), "one");
    EXPECT_EQ(fake_.volume.content("/m/dst/sub/b"), "two");
    EXPECT_EQ(fake_.volume.find("/m/dst/src"), nullptr);

    const std::string back = directory_.path("back");
    EXPECT_EQ(copy("/m/dst", back).status, 0u);
    EXPECT_EQ(read_file(back + "/a"), "one");
    EXPECT_EQ(read_file(back + "/sub/b"), "two");
}

TEST_F(CopyTest, AListedNameIsUsedAsItIs) {
    COMMAND_OPTION = kFileRecursive;
    fake_.volume.add_file("/m/src/x..\\y", "one");
    fake_.volume.add_file("/m/src/sub..\\d/..\\f", "two");
    EXPECT_EQ(copy("/m/src", "/m/dst").status, 0u);
    EXPECT_EQ(fake_.volume.content("/m/dst/x..\\y"), "one");
    EXPECT_EQ(fake_.volume.content("/m/dst/sub..\\d/..\\f"), "two");
    const std::string back = directory_.path("back");
    EXPECT_EQ(copy("/m/dst", back).status, 0u);
    EXPECT_EQ(read_file(back + "/x..\\y"), "one");
    EXPECT_EQ(read_file(back + "/sub..\\d/..\\f"), "two");
    EXPECT_EQ(copy(back, "/m/again").status, 0u);
    EXPECT_EQ(fake_.volume.content("/m/again/sub..\\d/..\\f"), "two");
}

TEST_F(CopyTest, ALinkPlantedInADestinationTreeIsRefused) {
    COMMAND_OPTION = kFileRecursive;
    directory_.directory("src/sub");
    directory_.file("src/f", "new");
    directory_.file("src/sub/f", "new");
    directory_.file("src/sure", "new");
    directory_.directory("outside");
    directory_.file("outside/f", "ours");
    const std::string destination = directory_.directory("dst");
    fs::create_symlink(directory_.path("outside"), destination + "/sub");
    fs::create_symlink(directory_.path("outside/f"), destination + "/f");
    const Outcome outcome = copy(directory_.path("src"), destination);
    EXPECT_THAT(outcome.output, testing::HasSubstr("TWNFS-65022: The command failed with status 1.\n"));
    EXPECT_EQ(read_file(directory_.path("outside/f")), "ours");
    EXPECT_EQ(read_file(destination + "/sure"), "new");
    // The directory that the command names may be a link.
    fs::create_symlink(directory_.directory("real"), directory_.path("link"));
    EXPECT_EQ(copy(directory_.path("src"), directory_.path("link")).status, 0u);
    EXPECT_EQ(read_file(directory_.path("real/sub/f")), "new");
}

TEST_F(CopyTest, ALinkInASourceTreeIsFollowedToRegularFilesOnly) {
    COMMAND_OPTION = kFileRecursive;
    const std::string source = directory_.directory("src");
    ASSERT_EQ(mkfifo(directory_.path("pipe").c_str(), 0600), 0);
    fs::create_symlink(directory_.path("pipe"), source + "/pipe");
    fs::create_symlink("/dev/zero", source + "/zero");
    fs::create_symlink(directory_.file("target", "text"), source + "/file");
    const Outcome outcome = copy(source, "/m/dst");
    EXPECT_EQ(outcome.status, 0u);
    EXPECT_EQ(fake_.volume.content("/m/dst/file"), "text");
    EXPECT_EQ(fake_.volume.find("/m/dst/pipe"), nullptr);
    EXPECT_EQ(fake_.volume.find("/m/dst/zero"), nullptr);
}

TEST_F(CopyTest, SpecialFilesOfATreeArePassedOver) {
    COMMAND_OPTION = kFileRecursive;
    const std::string source = directory_.directory("src");
    ASSERT_EQ(mkfifo((source + "/pipe").c_str(), 0600), 0);
    directory_.file("src/file", "text");
    const Outcome outcome = copy(source, "/m/dst");
    EXPECT_THAT(outcome.output, testing::HasSubstr("COPY " + source + "/pipe to /m/dst/pipe: \n" +
                                                   "TWNFS-65022: The command failed with status 1.\n"));
    EXPECT_EQ(fake_.volume.find("/m/dst/pipe"), nullptr);
    EXPECT_EQ(fake_.volume.content("/m/dst/file"), "text");
    EXPECT_THAT(trace_of("copyfile"), testing::Contains("copyfile " + source +
                                                        "/pipe is a special file and is passed "
                                                        "over"));
    fake_.volume.add_file("/m/far/pipe", "")->attributes.type = 7;
    copy("/m/far", directory_.path("near"));
    EXPECT_TRUE(fs::is_empty(directory_.path("near")));
}

TEST_F(CopyTest, ADirectoryWithNamesThatNoPathCanHoldIsCopiedWithoutThemAndFails) {
    COMMAND_OPTION = kFileRecursive;
    fake_.volume.add_file("/m/d/f", "text");
    fake_.names_left_out = 2;
    EXPECT_EQ(copy("/m/d", directory_.path("copied")).status, 1u);
    EXPECT_EQ(read_file(directory_.path("copied/f")), "text");
    EXPECT_EQ(trace_of("copyfile").back(), "copyfile /m/d has names that no path can hold; those are not copied");
}

TEST_F(CopyTest, ADirectoryWithNothingButSuchNamesFailsToo) {
    COMMAND_OPTION = kFileRecursive;
    fake_.volume.add_directory("/m/d");
    fake_.names_left_out = 1;
    EXPECT_EQ(copy("/m/d", directory_.path("copied")).status, 1u);
}

TEST_F(CopyTest, ASpecialFileIsUsedWhenItIsNamedByItselfOnThisHost) {
    fake_.volume.add_file("/m/src", "text");
    Outcome outcome = copy("/m/src", "/dev/null");
    EXPECT_EQ(outcome.status, 0u);
    EXPECT_THAT(outcome.output, testing::HasSubstr("will overwrite...\n"));
    EXPECT_EQ(copy("/dev/null", directory_.path("empty")).status, 0u);
    EXPECT_EQ(read_file(directory_.path("empty")), "");
    fake_.volume.add_file("/m/pipe", "")->attributes.type = 7;
    for (const auto &[from, to] : {std::pair{"/m/pipe", "/m/new"}, std::pair{"/m/src", "/m/pipe"}}) {
        EXPECT_EQ(copy(from, to).status, 1u);
        EXPECT_EQ(trace_of("copyfile").back(), "copyfile /m/pipe is a special file and is passed over");
    }
}

TEST_F(CopyTest, AWildcardPassesOverSpecialFiles) {
    ASSERT_EQ(mkfifo(directory_.path("pipe").c_str(), 0600), 0);
    fs::create_symlink("/dev/zero", directory_.path("zero"));
    const std::string pattern = directory_.path("*");
    const Outcome outcome = run([&] { return exec_command(pattern.c_str(), "/m/*"); });
    EXPECT_EQ(outcome.status, 1u);
    EXPECT_THAT(fake_.calls_of({"create", "mkdir"}), IsEmpty());
}

TEST_F(CopyTest, APipePlantedInADestinationTreeIsNotWaitedFor) {
    COMMAND_OPTION = kFileRecursive;
    directory_.directory("src");
    directory_.file("src/f", "new");
    const std::string destination = directory_.directory("dst");
    ASSERT_EQ(mkfifo((destination + "/f").c_str(), 0600), 0);
    EXPECT_THAT(copy(directory_.path("src"), destination).output, testing::HasSubstr("status 1"));
}

TEST_F(CopyTest, ADirectoryThatIsExchangedForALinkIsNotReadThrough) {
    COMMAND_OPTION = kFileRecursive;
    const std::string tree = directory_.directory("src");
    directory_.directory("src/sub");
    directory_.file("src/sub/f", "theirs");
    directory_.directory("outside");
    directory_.file("outside/f", "ours");
    fake_.when("identify", [&] {
        fs::rename(tree + "/sub", directory_.path("moved"));
        fs::create_symlink(directory_.path("outside"), tree + "/sub");
    });
    copy(tree, "/m/dst");
    EXPECT_EQ(fake_.volume.content("/m/dst/sub/f"), "theirs");
}

TEST_F(CopyTest, AWildcardsNamesStayWholeInADirectory) {
    fake_.volume.add_file("/m/src/a\\f", "one");
    fake_.volume.add_file("/m/src/b\\f", "two");
    const std::string destination = directory_.directory("dst");
    EXPECT_EQ(run([&] { return exec_command("/m/src/*", destination.c_str()); }).status, 0u);
    EXPECT_EQ(read_file(destination + "/a\\f"), "one");
    EXPECT_EQ(read_file(destination + "/b\\f"), "two");
}

TEST_F(CopyTest, EveryEntryOfATreeReportsForItself) {
    COMMAND_OPTION = kFileRecursive;
    fake_.volume.add_file("/m/src/a", "");
    const Outcome outcome = copy("/m/src", "/m/dst");
    EXPECT_EQ(
        outcome.output,
        "COPY /m/src/a to /m/dst/a: \n/m/src/a not a directoryTWNFS-65023: The command completed successfully.\n");
}

TEST_F(CopyTest, AFailureInsideATreeDoesNotFailTheTree) {
    COMMAND_OPTION = kFileRecursive;
    const std::string source = directory_.directory("src");
    directory_.file("src/UPPER", "looked for in lower case, hence not found");
    directory_.file("src/lower", "text");
    const Outcome outcome = copy(source, "/m/dst");
    EXPECT_EQ(outcome.status, 0u);
    EXPECT_THAT(outcome.output, testing::HasSubstr("TWNFS-65022: The command failed with status 1.\n"));
    EXPECT_EQ(fake_.volume.content("/m/dst/lower"), "text");
    EXPECT_EQ(fake_.volume.find("/m/dst/upper"), nullptr);
}

TEST_F(CopyTest, ATreeThatIsDeeperThanAnOperandMayBeLongIsCopiedAsFarAsItGoes) {
    COMMAND_OPTION = kFileRecursive;
    const std::string level(100, 'd');
    fake_.volume.add_file("/m/src/a", "text");
    fake_.volume.add_file("/m/src/" + level + "/" + level + "/" + level + "/deep", "text");
    const Outcome outcome = copy("/m/src", "/m/dst");
    EXPECT_EQ(outcome.status, 0u);
    EXPECT_THAT(outcome.output,
                testing::HasSubstr("TWNFS-65024: The operands could not be used; nothing was processed.\n"));
    EXPECT_EQ(fake_.volume.content("/m/dst/a"), "text");
}

TEST_F(CopyTest, ALinkInsideATreeIsNotEntered) {
    COMMAND_OPTION = kFileRecursive;
    const std::string source = directory_.directory("src");
    directory_.file("outside", "");
    fs::create_symlink(directory_.path(), source + "/back");
    EXPECT_EQ(copy(source, "/m/dst").status, 0u);
    EXPECT_THAT(fake_.volume.find("/m/dst")->entries, IsEmpty());
}

TEST_F(CopyTest, APathTooLongForTheTreePatternIsRefused) {
    COMMAND_OPTION = kFileRecursive;
    const std::string source = "/m/" + std::string(254, 'a') + "/" + std::string(254, 'b');
    fake_.volume.add_directory(source);
    EXPECT_EQ(copy(source, "/m/dst").status, 1u);
    EXPECT_THAT(trace_of("copyfile").back(), testing::StartsWith("copyfile TWNFS-65059: "));
    EXPECT_THAT(fake_.calls_of({"readdir"}), IsEmpty());
}

TEST_F(CopyTest, AMissingOperandFails) {
    EXPECT_EQ(run([] { return copyfile(nullptr, "/m/x"); }).status, 1u);
    const Outcome outcome = run([] { return copyfile("/m/x", nullptr); });
    EXPECT_EQ(outcome.status, 1u);
    EXPECT_EQ(outcome.output, "TWNFS-65017: The second operand is missing.\n");
    EXPECT_EQ(copy("..", "/m/x").status, 1u);
    EXPECT_EQ(copy("/m/x", "..").status, 1u);
    EXPECT_THAT(trace(), ElementsAre("copyfile TWNFS-65016: The first operand is missing.",
                                     "copyfile TWNFS-65059: The path .. could not be resolved.",
                                     "copyfile TWNFS-65059: The path .. could not be resolved."));
}

}  // namespace
