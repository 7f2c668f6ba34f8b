// SPDX-License-Identifier: Apache-2.0
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>

#include "tests/support/allocation_faults.h"
#include "tests/support/file_size_limit.h"
#include "tests/unit/commands/command_fixture.h"
#include "tslwnfs/commands/executor.h"
#include "tslwnfs/commands/files.h"

namespace fs = std::filesystem;

namespace {

class MoveTest : public CommandTest {
  protected:
    MoveTest() {
        commandtype = kMove;
        pbsz = 512;
    }

    Outcome move(const std::string &source, const std::string &destination, const std::string &answers = "") {
        return run([&] { return movefile(source.c_str(), destination.c_str()); }, answers);
    }

    bool remote_exists(const std::string &path) const { return fake_.volume.find(path) != nullptr; }

    static std::string exists(const std::string &path) {
        return "TWNFS-65018: The file " + path + " already exists.\n";
    }
};
using MoveDeathTest = MoveTest;

const std::vector<std::string> kCalls = {"create", "resize",  "reidentify", "submit",
                                         "delete", "barrier", "commit",     "unidentify"};

std::string submitted(const std::string &request) {
    return "submit requests=1 timeout=0 count=0 [" + request + " flags=7 cleared=0 aligned]";
}

TEST_F(MoveTest, EveryDirectionKeepsEveryByteAndTakesTheSourceAway) {
    for (const std::size_t size : {0, 1, 511, 512, 513, 32257, 32700, 32768, 65300, 100001}) {
        const std::string text = sample_text(size);
        for (const std::string &source : {directory_.path("src"), std::string("/m/src")}) {
            for (const std::string &destination : {directory_.path("dst"), std::string("/m/dst")}) {
                fs::remove(directory_.path("dst"));
                fake_.volume.remove_file("/m/dst");
                if (source == "/m/src") {
                    fake_.volume.add_file(source, text);
                } else {
                    write_file(source, text);
                }
                EXPECT_EQ(move(source, destination).status, 0u) << size;
                EXPECT_FALSE(source == "/m/src" ? remote_exists(source) : fs::exists(source)) << size;
                EXPECT_EQ(destination == "/m/dst" ? fake_.volume.content(destination) : read_file(destination), text);
            }
        }
    }
}

TEST_F(MoveTest, TheSourceIsDeletedBeforeTheDestinationIsFinished) {
    fake_.volume.add_file("/m/src", sample_text(32868));
    EXPECT_EQ(move("/m/src", "/m/dst").status, 0u);
    EXPECT_THAT(
        fake_.calls_of(kCalls),
        ElementsAre("resize file=1 size=33280", "reidentify file=1 flags=0",
                    "create /m/dst size=33280 type=2 mode=2 length=513", submitted("read file=2 offset=0 count=32768"),
                    submitted("write file=3 offset=0 count=32768"), submitted("read file=2 offset=32768 count=512"),
                    submitted("write file=3 offset=32768 count=512"), "barrier wait=0 timeout=4294967295",
                    "delete /m/src", "resize file=3 size=32868", "commit file=3"));
    EXPECT_THAT(trace_of("movefile"),
                ElementsAre("movefile tdm_resize successful:source ", "movefile tdm_reidentify successful:source ",
                            "movefile TWNFS-65036: Identification of /m/dst returned code 3.",
                            "movefile tdm_create of file /m/dst successful ", "movefile tdm_resize successful:dest ",
                            "movefile tdm_commit successful "));
}

TEST_F(MoveTest, EveryRecordOfSuccessIsOfLevelOne) {
    fake_.volume.add_file("/m/src", "x");
    trace_level(2);
    EXPECT_EQ(move("/m/src", "/m/dst").status, 0u);
    EXPECT_THAT(trace_of("movefile"), ElementsAre("movefile TWNFS-65036: Identification of /m/dst returned code 3."));
}

TEST_F(MoveTest, ALocalSourceIsRemovedWhenTheServerHasItsBytes) {
    EXPECT_EQ(move(directory_.file("src", "text"), "/m/dst").status, 0u);
    EXPECT_THAT(
        fake_.calls_of(kCalls),
        ElementsAre("create /m/dst size=512 type=2 mode=2 length=513", submitted("write file=1 offset=0 count=512"),
                    "barrier wait=0 timeout=4294967295", "resize file=1 size=4", "commit file=1"));
}

TEST_F(MoveTest, ALocalSourceStaysWhenTheServerMayHaveLostIt) {
    const std::string source = directory_.file("src", "text");
    fake_.answer("barrier", 1, {.status = 28, .location = {}});
    EXPECT_EQ(move(source, "/m/dst").status, 1u);
    EXPECT_EQ(read_file(source), "text");
    EXPECT_EQ(trace().back(), "movefile TWNFS-65065: A storage request did not complete (code 28).");
    EXPECT_THAT(fake_.calls_of({"commit"}), IsEmpty());
    EXPECT_TRUE(fake_.every_answer_was_given());
}

TEST_F(MoveTest, TheSourceStaysWhenARequestFailed) {
    const std::string text = sample_text(100000);
    for (const uint32_t request : {1U, 2U, 7U, 8U}) {
        fake_.reset();
        fake_.volume.add_file("/m/src", text);
        fake_.complete_request(request, 5);
        EXPECT_EQ(move("/m/src", "/m/dst").status, 1u) << request;
        EXPECT_EQ(fake_.volume.content("/m/src"), text) << request;
        EXPECT_EQ(trace().back(), "movefile /m/src is kept: 1 requests failed") << request;
        EXPECT_TRUE(fake_.every_answer_was_given());
    }
}

TEST_F(MoveDeathTest, ABrokenTransferEndsTheProcessWithTheSourceIntact) {
    const std::string source = directory_.file("src", "text");
    fake_.answer("reap", 1, {.status = 110, .location = {}});
    EXPECT_EXIT(movefile(source.c_str(), "/m/dst"), testing::ExitedWithCode(1), "");
    EXPECT_EQ(read_file(source), "text");
}

TEST_F(MoveTest, TheSourceStaysWhenTheLocalDestinationLosesData) {
    fake_.volume.add_file("/m/src", sample_text(4000));
    const std::string destination = directory_.path("dst");
    {
        const FileSizeLimit limit(3000);
        EXPECT_EQ(move("/m/src", destination).status, 1u);
    }
    EXPECT_EQ(fake_.volume.content("/m/src"), sample_text(4000));
    EXPECT_EQ(trace().back(), "movefile TWNFS-65061: The file " + destination + " could not be opened.");
}

TEST_F(MoveTest, SpecialFilesAreNeverMovedNorMovedOnto) {
    const std::string pipe = directory_.path("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    fs::create_symlink("/dev/null", directory_.path("link"));
    fake_.volume.add_file("/m/src", "text");
    fake_.volume.add_file("/m/pipe", "")->attributes.type = 7;
    for (const std::string &special : {pipe, directory_.path("link"), std::string("/m/pipe")}) {
        for (const auto &[from, to] :
             {std::pair{special, std::string("/m/new")}, std::pair{std::string("/m/src"), special}}) {
            EXPECT_EQ(move(from, to).status, 1u);
            EXPECT_EQ(trace().back(), "movefile " + special + " is a special file; nothing is moved");
        }
    }
    EXPECT_THAT(fake_.calls_of({"create", "delete"}), IsEmpty());
    EXPECT_TRUE(fs::exists(pipe));
}

TEST_F(MoveTest, ALocalMoveCopiesAndRemoves) {
    const std::string source = directory_.file("src", "text");
    struct stat before;
    ASSERT_EQ(stat(source.c_str(), &before), 0);
    EXPECT_EQ(move(source, directory_.path("dst")).status, 0u);
    struct stat after;
    ASSERT_EQ(stat(directory_.path("dst").c_str(), &after), 0);
    EXPECT_NE(before.st_ino, after.st_ino);
    EXPECT_FALSE(fs::exists(source));
    EXPECT_THAT(trace_of("movefile"),
                ElementsAre("movefile TWNFS-65036: Identification of " + source + " returned code 2.",
                            "movefile TWNFS-65036: Identification of " + directory_.path("dst") + " returned code 2.",
                            "movefile TWNFS-65029: " + directory_.path("dst") +
                                " could not be created on the server (status 95); it may be treated as a local file."));
}

TEST_F(MoveTest, ALocalSourceThatCannotBeRemovedStaysBesideItsCopy) {
    // Readable by everyone, removable by nobody.
    EXPECT_EQ(move("/proc/version", directory_.path("dst")).status, 1u);
    EXPECT_TRUE(fs::exists(directory_.path("dst")));
    EXPECT_EQ(trace().back(), "movefile TWNFS-65038: The file /proc/version could not be deleted.");
    EXPECT_EQ(move("/proc/version", "/m/dst").status, 1u);
    EXPECT_THAT(fake_.calls_of({"commit"}), IsEmpty());
}

TEST_F(MoveTest, ALocalSourceThatVanishesMeanwhileLeavesTheDestinationUnfinished) {
    const std::string source = directory_.file("src", "text");
    fake_.when("submit", [&] { fs::remove(source); });
    EXPECT_EQ(move(source, "/m/dst").status, 1u);
    EXPECT_EQ(trace().back(), "movefile TWNFS-65061: The file " + source + " could not be opened.");
    EXPECT_EQ(fake_.volume.content("/m/dst"), "text" + std::string(508, '\0'));
    EXPECT_THAT(fake_.calls_of({"resize", "commit"}), IsEmpty());
}

TEST_F(MoveTest, ARemoteSourceThatCannotBeDeletedLeavesTheDestinationUnfinished) {
    fake_.volume.add_file("/m/src", "text");
    fake_.answer("delete", 1, {.status = 13, .location = 2});
    EXPECT_EQ(move("/m/src", "/m/dst").status, 1u);
    EXPECT_EQ(trace().back(), "movefile TWNFS-65030: /m/src could not be deleted on the server (status 13).");
    EXPECT_EQ(fake_.volume.content("/m/dst"), "text" + std::string(508, '\0'));
    EXPECT_THAT(fake_.calls_of({"commit", "unidentify"}), IsEmpty());
    // The source that could not be deleted is as it was.
    EXPECT_EQ(fake_.volume.content("/m/src"), "text");

    fake_.answer("delete", 2, {.status = 0, .location = 1});
    EXPECT_EQ(move("/m/src", "/m/other").status, 1u);
    EXPECT_EQ(trace().back(), "movefile TWNFS-65030: /m/src could not be deleted on the server (status 1).");
}

TEST_F(MoveTest, ADestinationThatCannotBeResizedFailsAfterTheDeletion) {
    fake_.volume.add_file("/m/src", sample_text(512));
    fake_.answer("resize", 1, {.status = 28, .location = {}});
    EXPECT_EQ(move("/m/src", "/m/dst").status, 1u);
    EXPECT_FALSE(remote_exists("/m/src"));
    EXPECT_EQ(fake_.volume.content("/m/dst"), sample_text(512));
    EXPECT_EQ(trace().back(), "movefile TWNFS-65045: The size of the file could not be changed (status 28).");
}

TEST_F(MoveTest, FailuresToCommitAndToReleaseAreTracedOnly) {
    fake_.volume.add_file("/m/a", "");
    fake_.volume.add_file("/m/b", "");
    fake_.volume.add_file("/m/old", "");
    fake_.answer("commit", 1, {.status = 5, .location = {}});
    fake_.answer("unidentify", 1, {.status = 9, .location = {}});
    EXPECT_EQ(move("/m/a", "/m/new").status, 0u);
    EXPECT_EQ(trace().back(), "movefile TWNFS-65046: The new file could not be committed (status 5).");
    EXPECT_EQ(move("/m/b", "/m/old").status, 0u);
    EXPECT_EQ(trace().back(), "movefile TWNFS-65050: /m/old could not be released (status 9).");
    EXPECT_TRUE(fake_.every_answer_was_given());
}

TEST_F(MoveTest, AnExistingRemoteDestinationIsReleasedAndTheSourceIsNot) {
    fake_.volume.add_file("/m/src", sample_text(512));
    fake_.volume.add_file("/m/dst", sample_text(5000));
    const Outcome outcome = move("/m/src", "/m/dst");
    EXPECT_EQ(outcome.status, 0u);
    EXPECT_EQ(outcome.output,
              "/m/src not a directory/m/dst not a directory" + exists("/m/dst") + "will overwrite...\n");
    EXPECT_EQ(fake_.volume.content("/m/dst"), sample_text(512));
    EXPECT_THAT(fake_.calls_of({"delete", "resize", "commit", "unidentify"}),
                ElementsAre("delete /m/src", "resize file=2 size=512", "unidentify file=2"));
}

TEST_F(MoveTest, DecliningLeavesEverythingAsItIs) {
    COMMAND_OPTION = kFileInteractive;
    fake_.volume.add_file("/m/src", "x");
    fake_.volume.add_file("/m/dst", "old");
    const Outcome outcome = move("/m/src", "/m/dst", "Y\nno\n");
    EXPECT_EQ(outcome.status, 1u);
    EXPECT_TRUE(outcome.output.ends_with("overwrite /m/dst? y/n : overwrite /m/dst? y/n : "));
    EXPECT_EQ(fake_.volume.content("/m/src").size(), 512u);  // as long as it was made
    EXPECT_EQ(fake_.volume.content("/m/dst"), "old");
    EXPECT_EQ(move("/m/src", "/m/dst").status, 1u);  // the end of the input
    EXPECT_EQ(fake_.volume.content("/m/dst"), "old");

    const std::string source = directory_.file("src", "new");
    const std::string destination = directory_.file("dst", "old");
    EXPECT_EQ(move(source, destination, "n\n").status, 1u);
    EXPECT_EQ(read_file(source) + read_file(destination), "newold");
    EXPECT_EQ(move(source, destination, "y\n").status, 0u);
    EXPECT_EQ(read_file(destination), "new");
}

TEST_F(MoveTest, OnlyTheQuestionStaysOnStandardOutputWhenTheLogIsOn) {
    COMMAND_OPTION = kFileInteractive;
    turn_log_on();
    fake_.volume.add_file("/m/dst", "old");
    const Outcome outcome = move(directory_.file("src", "new"), "/m/dst", "yes\n");
    EXPECT_EQ(outcome.status, 0u);
    EXPECT_EQ(outcome.output, "overwrite /m/dst? y/n : ");
    EXPECT_EQ(outcome.log, "/m/dst not a directory" + exists("/m/dst") + "will overwrite...\n");
}

TEST_F(MoveTest, ADirectoryIsNeitherMovedNorMovedInto) {
    COMMAND_OPTION = kFileRecursive;
    const std::string directory = directory_.directory("d");
    const Outcome source = move(directory, directory_.path("new"));
    EXPECT_EQ(source.status, 1u);
    EXPECT_EQ(source.output, "");
    EXPECT_FALSE(fs::exists(directory_.path("new")));

    const std::string file = directory_.file("f", "text");
    const Outcome destination = move(file, directory);
    EXPECT_EQ(destination.status, 1u);
    EXPECT_TRUE(fs::is_empty(directory));
    EXPECT_EQ(read_file(file), "text");

    fake_.volume.add_file("/m/src", "x");
    fake_.volume.add_directory("/m/d");
    EXPECT_EQ(move("/m/src", "/m/d").status, 1u);
    EXPECT_EQ(fake_.volume.content("/m/src"), "x");
}

TEST_F(MoveTest, AFileIsNeverMovedOntoItself) {
    const std::string source = directory_.file("src", "text");
    fs::create_hard_link(source, directory_.path("hard"));
    EXPECT_EQ(move(source, source).status, 1u);
    EXPECT_EQ(move(source, directory_.path("hard")).status, 1u);
    EXPECT_EQ(read_file(source), "text");
    fake_.volume.add_file("/m/f", "remote");
    EXPECT_EQ(move("/m/f", "/m/f").status, 1u);
    EXPECT_EQ(fake_.volume.content("/m/f"), "remote");
}

TEST_F(MoveTest, AFileIsNotMovedOntoItselfThroughAnotherMount) {
    const FakeNodePointer file = fake_.volume.add_file("/m/a/f", "the only copy");
    fake_.volume.add_directory("/m/b")->entries.emplace_back("f", file);
    file->attributes.file_system_id = 7;
    EXPECT_EQ(move("/m/a/f", "/m/b/f").status, 1u);
    EXPECT_EQ(trace().back(), "movefile /m/a/f and /m/b/f are the same file");
    EXPECT_EQ(fake_.volume.content("/m/a/f"), "the only copy");
    EXPECT_THAT(fake_.calls_of({"submit", "delete"}), IsEmpty());
}

TEST_F(MoveTest, AFileThatBecomesTheDestinationMeanwhileIsNotDeleted) {
    pbsz = 1;
    const std::string source = directory_.file("src", "text");
    fake_.when("submit", [&] {
        struct stat status;
        stat(source.c_str(), &status);
        FakeNodePointer made = fake_.volume.find("/m/dst");
        made->attributes.file_id = status.st_ino;
        made->attributes.modification_seconds = static_cast<uint64_t>(status.st_mtim.tv_sec);
    });
    EXPECT_EQ(move(source, "/m/dst").status, 1u);
    EXPECT_EQ(read_file(source), "text");
}

TEST_F(MoveTest, ALocalSourceThatChangedMeanwhileIsKept) {
    const std::string source = directory_.file("src", "text");
    fake_.when("submit", [&] { std::ofstream(source, std::ios::app) << "more"; });
    EXPECT_EQ(move(source, "/m/dst").status, 1u);
    EXPECT_EQ(read_file(source), "textmore");
    EXPECT_EQ(trace().back(), "movefile " + source + " is kept: it was changed or replaced while it was moved");
    EXPECT_EQ(fake_.volume.content("/m/dst").substr(0, 4), "text");

    directory_.file("new", "other");
    fake_.when("submit", [&] { fs::rename(directory_.path("new"), source); });
    EXPECT_EQ(move(source, "/m/dst").status, 1u);
    EXPECT_EQ(read_file(source), "other");

    fake_.when("barrier", [&] { fs::permissions(source, fs::perms::owner_read); });
    EXPECT_EQ(move(source, "/m/dst").status, 1u);
    EXPECT_EQ(move(source, "/m/dst").status, 0u);
    EXPECT_FALSE(fs::exists(source));
}

TEST_F(MoveTest, ARemoteSourceThatChangedMeanwhileIsKept) {
    pbsz = 1;
    const std::string kept = "movefile /m/src is kept: it was changed or replaced while it was moved";
    const FakeNodePointer file = fake_.volume.add_file("/m/src", "text");
    const std::vector<std::function<void()>> changes = {
        [&] { file->data += "more"; },
        [&] { ++file->attributes.modification_seconds; },
        [&] { ++file->attributes.modification_nanoseconds; },
        [&] { ++file->attributes.change_seconds; },
        [&] { ++file->attributes.change_nanoseconds; },
        [&] { ++file->attributes.handle_digest; },
        [&] { ++file->attributes.file_system_id; },
        [&] { ++file->attributes.file_id; },
    };
    for (const std::string &destination : {std::string("/m/dst"), directory_.path("dst")}) {
        for (const auto &change : changes) {
            fake_.when("submit", change);
            EXPECT_EQ(move("/m/src", destination).status, 1u);
            EXPECT_EQ(trace().back(), kept);
        }
    }
    fake_.when("submit", [&] { fake_.volume.remove_file("/m/src"); });
    EXPECT_EQ(move("/m/src", "/m/dst").status, 1u);
    EXPECT_EQ(trace().back(), kept);
    EXPECT_THAT(fake_.calls_of({"delete"}), IsEmpty());
}

TEST_F(MoveTest, AGrownSourceIsComparedWithWhatItWasGrownTo) {
    const FakeNodePointer file = fake_.volume.add_file("/m/src", "text");
    fake_.when("submit", [&] { ++file->attributes.change_seconds; });
    EXPECT_EQ(move("/m/src", "/m/dst").status, 1u);
    EXPECT_EQ(fake_.volume.content("/m/src"), "text");
    EXPECT_EQ(move("/m/src", "/m/dst").status, 0u);
    EXPECT_EQ(fake_.volume.content("/m/dst"), "text");
}

TEST_F(MoveTest, AMovedLinkIsDeletedWhateverBecomesOfItsTarget) {
    const std::string target = directory_.file("target", "text");
    const std::string link = directory_.path("link");
    fs::create_symlink(target, link);
    fake_.when("submit", [&] { std::ofstream(target, std::ios::app) << "more"; });
    EXPECT_EQ(move(link, "/m/dst").status, 0u);
    EXPECT_FALSE(fs::is_symlink(link));
    EXPECT_EQ(read_file(target), "textmore");

    fs::create_symlink(target, link);
    fake_.when("submit", [&] {
        fs::remove(link);
        fs::rename(target, link);
    });
    EXPECT_EQ(move(link, "/m/dst").status, 1u);
    EXPECT_EQ(read_file(link), "textmore");
}

TEST_F(MoveTest, TheSourceIsKeptWhenTheDestinationIsNotFoundAgain) {
    pbsz = 1;
    const std::vector<std::function<void()>> losses = {
        [&] { fake_.volume.remove_file("/m/dst"); },
        [&] { fake_.volume.find("/m/dst")->data += "x"; },
        [&] { fake_.volume.find("/m/dst")->data.clear(); },
        [&] { ++fake_.volume.find("/m/dst")->attributes.handle_digest; },
        [&] {
            fake_.volume.remove_file("/m/dst");
            fake_.volume.add_file("/m/dst", "text");
        },
    };
    const std::string local = directory_.file("src", "text");
    fake_.volume.add_file("/m/src", "text");
    for (const std::string &source : {local, std::string("/m/src")}) {
        for (const auto &lose : losses) {
            fake_.when("barrier", lose);
            EXPECT_EQ(move(source, "/m/dst").status, 1u);
            EXPECT_EQ(trace().back(), "movefile " + source + " is kept: /m/dst is not the file that was written");
        }
        EXPECT_EQ(source == local ? read_file(source) : fake_.volume.content(source), "text");
    }
    const std::string destination = directory_.path("dst");
    fake_.when("barrier", [&] { fs::remove(destination); });
    EXPECT_EQ(move("/m/src", destination).status, 1u);
    EXPECT_EQ(trace().back(), "movefile /m/src is kept: " + destination + " is not the file that was written");
    EXPECT_THAT(fake_.calls_of({"delete"}), IsEmpty());
}

TEST_F(MoveTest, ADestinationLongerThanTheSourceIsFoundAgainAtItsOldLength) {
    fake_.volume.add_file("/m/dst", sample_text(100000));
    EXPECT_EQ(move(directory_.file("src", "text"), "/m/dst").status, 0u);
    EXPECT_EQ(fake_.volume.content("/m/dst"), "text");
}

TEST_F(MoveTest, AFileThatItsServerDoesNotTakeStaysWhereItIs) {
    const std::string source = directory_.file("src", "text");
    const std::string destination = directory_.path("dst");
    fake_.answer("create", 0, {.status = 30, .location = {}});
    fake_.answer("identify", 2, {.status = 2, .location = 3});
    fake_.answer("identify", 4, {.status = 0, .location = 3});
    fake_.answer("identify", 6, {.status = 110, .location = 2});
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(move(source, destination).status, 1u) << i;
        EXPECT_EQ(trace().back(), "movefile TWNFS-65029: " + destination +
                                      " could not be created on the server (status 30); it may be treated as a "
                                      "local file.");
        EXPECT_EQ(read_file(source), "text");
        EXPECT_FALSE(fs::exists(destination));
    }
    EXPECT_TRUE(fake_.every_answer_was_given());
    // On no mount: as good as it gets.
    EXPECT_EQ(move(source, destination).status, 0u);
    EXPECT_EQ(read_file(destination), "text");
}

TEST_F(MoveTest, FailuresBeforeTheTransfer) {
    EXPECT_EQ(move("/m/missing", "/m/dst").status, 1u);
    EXPECT_EQ(trace().back(), "movefile TWNFS-65036: Identification of /m/missing returned code 3.");
    EXPECT_EQ(move(directory_.path("missing"), directory_.path("dst")).status, 1u);
    EXPECT_EQ(trace().back(), "movefile TWNFS-65061: The file " + directory_.path("missing") + " could not be opened.");
    EXPECT_FALSE(fs::exists(directory_.path("dst")));

    fake_.volume.add_file("/m/src", "x");
    fake_.answer("identify", 3, {.status = 0, .location = 3});
    fake_.answer("identify", 4, {.status = 5, .location = 1});
    for (const char *code : {"3", "1"}) {
        EXPECT_EQ(move("/m/src", "/m/dst").status, 1u);
        EXPECT_EQ(trace().back(),
                  std::string("movefile TWNFS-65036: Identification of /m/src returned code ") + code + ".");
    }
    fake_.answer("resize", 1, {.status = 30, .location = {}});
    EXPECT_EQ(move("/m/src", "/m/dst").status, 1u);
    EXPECT_EQ(trace().back(), "movefile TWNFS-65045: The size of the file could not be changed (status 30).");
    fake_.answer("reidentify", 1, {.status = 70, .location = {}});
    EXPECT_EQ(move("/m/src", "/m/dst").status, 1u);
    EXPECT_EQ(trace().back(),
              "movefile TWNFS-65035: The file could not be identified again after its size was changed (status 70).");
    EXPECT_EQ(move("/m/src", directory_.path("missing/dst")).status, 1u);
    EXPECT_EQ(trace().back(),
              "movefile TWNFS-65061: The file " + directory_.path("missing/dst") + " could not be opened.");
    EXPECT_EQ(fake_.volume.content("/m/src"), "x");
    EXPECT_THAT(fake_.calls_of({"delete"}), IsEmpty());
}

TEST_F(MoveTest, MissingMemoryLeavesTheSource) {
    fake_.volume.add_file("/m/src", "x");
    for (const std::size_t bytes : {std::size_t{32768}, std::size_t{69632}}) {
        const AllocationFault fault(bytes);
        EXPECT_EQ(move("/m/src", "/m/dst").status, 1u);
        EXPECT_EQ(trace().back(),
                  "movefile TWNFS-65060: " + std::to_string(bytes) + " bytes of memory could not be allocated.");
    }
    EXPECT_EQ(fake_.volume.content("/m/src"), "x");
}

TEST_F(MoveTest, AMissingOperandFails) {
    EXPECT_EQ(run([] { return movefile(nullptr, "/m/x"); }).status, 1u);
    const Outcome outcome = run([] { return movefile("/m/x", nullptr); });
    EXPECT_EQ(outcome.status, 1u);
    EXPECT_EQ(outcome.output, "TWNFS-65017: The second operand is missing.\n");
    EXPECT_EQ(move("..", "/m/x").status, 1u);
    EXPECT_EQ(move("/m/x", "..").status, 1u);
    EXPECT_THAT(trace(), ElementsAre("movefile TWNFS-65016: The first operand is missing.",
                                     "movefile TWNFS-65059: The path .. could not be resolved.",
                                     "movefile TWNFS-65059: The path .. could not be resolved."));
}

TEST_F(MoveTest, ThroughTheExecutorAFileGoesIntoADirectory) {
    const std::string source = directory_.file("NAME", "text");
    const std::string directory = directory_.directory("Dir");
    const Outcome outcome = run([&] { return exec_command(source.c_str(), directory.c_str()); });
    EXPECT_EQ(outcome.status, 0u);
    EXPECT_EQ(outcome.output, "MOVE " + source + " to " + directory + "/name: \n" +
                                  "TWNFS-65023: The command completed successfully.\n");
    EXPECT_EQ(read_file(directory + "/name"), "text");
    EXPECT_FALSE(fs::exists(source));
    // A directory of that very name is in the way.
    directory_.file("other", "text");
    directory_.directory("Dir/other");
    EXPECT_EQ(run([&] { return exec_command(directory_.path("other").c_str(), directory.c_str()); }).status, 1u);
    EXPECT_EQ(read_file(directory_.path("other")), "text");
}

}  // namespace
