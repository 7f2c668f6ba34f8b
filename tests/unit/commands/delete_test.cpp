// SPDX-License-Identifier: Apache-2.0
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "tests/unit/commands/command_fixture.h"
#include "tslwnfs/commands/executor.h"
#include "tslwnfs/commands/files.h"

namespace fs = std::filesystem;

namespace {

constexpr const char *kDone = "TWNFS-65023: The command completed successfully.\n";
constexpr const char *kFailed = "TWNFS-65022: The command failed with status 1.\n";

class DeleteTest : public CommandTest {
  protected:
    DeleteTest() { commandtype = kDelete; }

    Outcome del(const std::string &path, const std::string &answers = "") {
        return run([&] { return delfile(path.c_str()); }, answers);
    }

    static std::string question(const std::string &path) { return "delete " + path + "? y/n : "; }
    static std::string remark(const std::string &path) {
        return "delfile TWNFS-65036: Identification of " + path + " returned code 2.";
    }
};

TEST_F(DeleteTest, ALocalFileIsRemoved) {
    const std::string path = directory_.file("f", "text");
    const Outcome outcome = del(path);
    EXPECT_EQ(outcome.status, 0u);
    EXPECT_EQ(outcome.output, "");
    EXPECT_FALSE(fs::exists(path));
    EXPECT_THAT(trace_of("delfile"), ElementsAre(remark(path)));
}

TEST_F(DeleteTest, ARemoteFileIsDeletedByNameAndNotReleased) {
    fake_.volume.add_file("/m/f", "text");
    const Outcome outcome = del("/m/f");
    EXPECT_EQ(outcome.status, 0u);
    EXPECT_EQ(outcome.output, "/m/f not a directory");
    EXPECT_EQ(fake_.volume.find("/m/f"), nullptr);
    EXPECT_THAT(fake_.calls(),
                ElementsAre("getattr /m/f", "identify /m/f key=0 mode=2 length=513 flags=0", "delete /m/f"));
    EXPECT_THAT(trace(), IsEmpty());
}

TEST_F(DeleteTest, ALocalFileThatIsMissingFails) {
    const std::string path = directory_.path("missing");
    EXPECT_EQ(del(path).status, 1u);
    EXPECT_THAT(trace_of("delfile"),
                ElementsAre(remark(path), "delfile TWNFS-65061: The file " + path + " could not be opened."));
}

// Root reads every file: while one lives, a test that runs as root is somebody else.
class OrdinaryUser {
  public:
    OrdinaryUser() : user_(geteuid()) {
        if (user_ == 0) {
            EXPECT_EQ(seteuid(65534), 0);
        }
    }
    ~OrdinaryUser() {
        if (user_ == 0) {
            EXPECT_EQ(seteuid(0), 0);
        }
    }
    OrdinaryUser(const OrdinaryUser &) = delete;
    OrdinaryUser &operator=(const OrdinaryUser &) = delete;

  private:
    uid_t user_;
};

TEST_F(DeleteTest, AnUnreadableLocalFileIsNotRemoved) {
    const std::string path = directory_.file("f", "text");
    chmod(path.c_str(), 0200);
    chmod(directory_.path().c_str(), 0777);  // the caller could remove it
    const OrdinaryUser user;
    EXPECT_EQ(del(path).status, 1u);
    EXPECT_TRUE(fs::exists(path));
    EXPECT_EQ(trace_of("delfile").back(), "delfile TWNFS-65061: The file " + path + " could not be opened.");
}

TEST_F(DeleteTest, AFileThatCannotBeRemovedFails) {
    // Readable by everyone, removable by nobody.
    EXPECT_EQ(del("/proc/version").status, 1u);
    EXPECT_EQ(trace_of("delfile").back(), "delfile TWNFS-65038: The file /proc/version could not be deleted.");
}

TEST_F(DeleteTest, ALinkIsDeletedAndWhatItLeadsToStays) {
    const std::string target = directory_.directory("target");
    directory_.file("target/f", "text");
    fs::create_symlink(target, directory_.path("link"));
    fs::create_symlink("nowhere", directory_.path("dangling"));
    COMMAND_OPTION = kFileRecursive;
    EXPECT_EQ(del(directory_.path("link")).status, 0u);
    EXPECT_EQ(del(directory_.path("dangling")).status, 0u);
    EXPECT_FALSE(fs::is_symlink(directory_.path("link")));
    EXPECT_FALSE(fs::is_symlink(directory_.path("dangling")));
    EXPECT_TRUE(fs::exists(target + "/f"));
}

TEST_F(DeleteTest, ASpecialFileIsDeletedWithoutALookInside) {
    const std::string pipe = directory_.path("d/pipe");
    directory_.directory("d");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0), 0);
    EXPECT_EQ(del(pipe).status, 0u);
    EXPECT_FALSE(fs::exists(pipe));
    ASSERT_EQ(mkfifo(pipe.c_str(), 0), 0);
    fake_.volume.add_file("/m/d/pipe", "")->attributes.type = 7;
    COMMAND_OPTION = kFileRecursive;
    EXPECT_EQ(del("/m/d").status, 0u);
    EXPECT_EQ(del(directory_.path("d")).status, 0u);
    EXPECT_EQ(fake_.volume.find("/m/d"), nullptr);
    EXPECT_FALSE(fs::exists(directory_.path("d")));
    EXPECT_THAT(fake_.calls_of({"identify"}), IsEmpty());
}

TEST_F(DeleteTest, ARemoteLinkIsDeletedAsALink) {
    COMMAND_OPTION = kFileRecursive;
    fake_.volume.add_file("/m/kept/f", "");
    fake_.volume.add_link("/m/d/dangling", "/m/nowhere");
    fake_.volume.add_link("/m/d/directory", "/m/kept");
    fake_.volume.add_link("/m/d/local", "/etc");
    // Nothing that follows a link works here.
    fake_.answer("identify", 0, {.status = 40, .location = {}});
    EXPECT_EQ(del("/m/d").status, 0u);
    EXPECT_THAT(fake_.calls_of({"identify", "delete", "rmdir"}),
                ElementsAre("delete /m/d/dangling", "delete /m/d/directory", "delete /m/d/local", "rmdir /m/d"));
    EXPECT_NE(fake_.volume.find("/m/kept/f"), nullptr);
}

TEST_F(DeleteTest, RemoteFailuresAreTracedWithTheDeletionStatus) {
    fake_.volume.add_file("/m/f", "");
    fake_.answer("delete", 1, {.status = 0, .location = 1});
    fake_.answer("delete", 2, {.status = 30, .location = 2});
    EXPECT_EQ(del("/m/f").status, 1u);
    EXPECT_EQ(del("/m/f").status, 1u);
    EXPECT_THAT(trace(), ElementsAre("delfile TWNFS-65030: /m/f could not be deleted on the server (status 1).",
                                     "delfile TWNFS-65030: /m/f could not be deleted on the server (status 2)."));
}

TEST_F(DeleteTest, AFileThatCannotBeIdentifiedFails) {
    EXPECT_EQ(del("/m/missing").status, 1u);
    fake_.volume.add_file("/m/f", "");
    fake_.answer("identify", 2, {.status = 0, .location = 3});
    EXPECT_EQ(del("/m/f").status, 1u);
    fake_.answer("identify", 3, {.status = 5, .location = 1});
    EXPECT_EQ(del("/m/f").status, 1u);
    EXPECT_THAT(trace_of("delfile"), ElementsAre("delfile TWNFS-65036: Identification of /m/missing returned code 3.",
                                                 "delfile TWNFS-65036: Identification of /m/f returned code 3.",
                                                 "delfile TWNFS-65036: Identification of /m/f returned code 1."));
    EXPECT_NE(fake_.volume.find("/m/f"), nullptr);
}

TEST_F(DeleteTest, AnUnknownCodeStandsForARemoteFile) {
    fake_.volume.add_file("/m/f", "");
    fake_.answer("identify", 1, {.status = 0, .location = 7});
    EXPECT_EQ(del("/m/f").status, 0u);
    EXPECT_EQ(fake_.volume.find("/m/f"), nullptr);
}

TEST_F(DeleteTest, TheQuestionNamesTheResolvedPath) {
    COMMAND_OPTION = kFileInteractive;
    pass_flag = 1;  // answers other questions than this one
    const std::string path = directory_.file("f", "");
    const std::string unresolved = directory_.path() + "/./f";
    for (const char *refusal : {"n\n", "nope\n", "Y\nmaybe\nn\n"}) {
        EXPECT_EQ(del(unresolved, refusal).status, 1u);
        EXPECT_TRUE(fs::exists(path));
    }
    const Outcome outcome = del(unresolved, "Y\nyes\n");
    EXPECT_EQ(outcome.status, 0u);
    EXPECT_EQ(outcome.output, question(path) + question(path));
    EXPECT_FALSE(fs::exists(path));
    fake_.volume.add_file("/m/f", "");
    EXPECT_EQ(del("/m/./f", "n\n").output, "/m/f not a directory" + question("/m/f"));
    EXPECT_NE(fake_.volume.find("/m/f"), nullptr);
}

TEST_F(DeleteTest, OnlyTheQuestionsStayOnStandardOutputWhenTheLogIsOn) {
    COMMAND_OPTION = kFileRecursive | kFileInteractive;
    const std::string path = directory_.directory("d");
    const std::string file = directory_.file("d/f", "");
    turn_log_on();
    const Outcome outcome = del(path, "y\ny\n");
    EXPECT_EQ(outcome.status, 0u);
    EXPECT_EQ(outcome.output, question(file) + question(path));
    EXPECT_EQ(outcome.log, "DEL " + file + " : \n" + kDone);
}

TEST_F(DeleteTest, TheEndOfTheInputRefuses) {
    COMMAND_OPTION = kFileInteractive;
    const std::string path = directory_.file("f", "");
    EXPECT_EQ(del(path).status, 1u);
    EXPECT_TRUE(fs::exists(path));
    fake_.volume.add_file("/m/f", "");
    EXPECT_EQ(del("/m/f").status, 1u);
    EXPECT_THAT(fake_.calls_of({"delete"}), IsEmpty());
}

TEST_F(DeleteTest, ADirectoryNeedsTheRecursiveOption) {
    const std::string path = directory_.directory("d");
    const Outcome outcome = del(path);
    EXPECT_EQ(outcome.status, 1u);
    EXPECT_EQ(outcome.output, "");
    EXPECT_TRUE(fs::exists(path));
    EXPECT_THAT(trace_of("delfile"), IsEmpty());
}

TEST_F(DeleteTest, ATreeIsDeletedFromItsLeaves) {
    COMMAND_OPTION = kFileRecursive;
    fake_.volume.add_file("/m/d/sub/f", "");
    fake_.volume.add_file("/m/d/.dot", "");
    const Outcome outcome = del("/m/d");
    EXPECT_EQ(outcome.status, 0u);
    EXPECT_EQ(fake_.volume.find("/m/d"), nullptr);
    EXPECT_EQ(outcome.output, "DEL /m/d/sub : \nDEL /m/d/sub/f : \n/m/d/sub/f not a directory" + std::string(kDone) +
                                  kDone + "DEL /m/d/.dot : \n/m/d/.dot not a directory" + kDone);
    EXPECT_THAT(fake_.calls_of({"delete", "rmdir"}),
                ElementsAre("delete /m/d/sub/f", "rmdir /m/d/sub", "delete /m/d/.dot", "rmdir /m/d"));
}

TEST_F(DeleteTest, ADirectoryWithNamesThatNoPathCanHoldIsKeptAndFails) {
    COMMAND_OPTION = kFileRecursive;
    fake_.volume.add_file("/m/d/f", "");
    fake_.names_left_out = 2;
    EXPECT_EQ(del("/m/d").status, 1u);
    EXPECT_THAT(fake_.calls_of({"delete", "rmdir"}), ElementsAre("delete /m/d/f"));
    EXPECT_THAT(trace_of("delfile"), ElementsAre("delfile /m/d is kept: it has names that no path can hold"));
}

TEST_F(DeleteTest, ALocalTreeIsDeleted) {
    COMMAND_OPTION = kFileRecursive;
    const std::string path = directory_.directory("d/sub");
    directory_.file("d/sub/f", "");
    fs::create_symlink(directory_.path(), directory_.path("d/back"));
    EXPECT_EQ(del(directory_.path("d")).status, 0u);
    EXPECT_FALSE(fs::exists(directory_.path("d")));
    EXPECT_TRUE(fs::exists(directory_.path()));
}

TEST_F(DeleteTest, AListedNameIsUsedAsItIs) {
    COMMAND_OPTION = kFileRecursive;
    fake_.volume.add_file("/m/kept", "");
    fake_.volume.add_file("/m/d/x..\\y", "");
    fake_.volume.add_file("/m/d/sub..\\*/..\\f", "");
    EXPECT_EQ(del("/m/d").status, 0u);
    EXPECT_THAT(fake_.calls_of({"delete", "rmdir"}),
                ElementsAre("delete /m/d/x..\\y", "delete /m/d/sub..\\*/..\\f", "rmdir /m/d/sub..\\*", "rmdir /m/d"));
    EXPECT_NE(fake_.volume.find("/m/kept"), nullptr);
    directory_.directory("d/sub..\\x");
    directory_.file("d/sub..\\x/..\\f", "");
    EXPECT_EQ(del(directory_.path("d")).status, 0u);
    EXPECT_FALSE(fs::exists(directory_.path("d")));
}

TEST_F(DeleteTest, AListedNameThatLeadsOutOfTheDirectoryIsRefused) {
    COMMAND_OPTION = kFileRecursive;
    fake_.volume.add_file("/m/kept", "");
    const FakeNodePointer directory = fake_.volume.add_directory("/m/d");
    for (const char *name : {"..", ".", "", "../kept", "/m"}) {
        directory->entries.emplace_back(name, directory);
    }
    EXPECT_EQ(del("/m/d").status, 1u);
    EXPECT_THAT(fake_.calls_of({"delete", "rmdir"}), ElementsAre("rmdir /m/d"));
    EXPECT_EQ(trace_of("exec_command").size(), 5u);
}

TEST_F(DeleteTest, ADirectoryThatIsExchangedForALinkLeadsNowhereElse) {
    COMMAND_OPTION = kFileRecursive;
    const std::string tree = directory_.directory("d");
    directory_.directory("d/sub");
    directory_.file("d/sub/f", "theirs");
    directory_.directory("outside");
    directory_.file("outside/f", "ours");
    fake_.when("identify", [&] {
        fs::rename(tree + "/sub", directory_.path("moved"));
        fs::create_symlink(directory_.path("outside"), tree + "/sub");
    });
    EXPECT_EQ(del(tree).status, 1u);
    EXPECT_EQ(read_file(directory_.path("outside/f")), "ours");
    EXPECT_FALSE(fs::exists(directory_.path("moved/f")));
    EXPECT_TRUE(fs::is_symlink(tree + "/sub"));
}

TEST_F(DeleteTest, ADirectoryThatIsExchangedBeforeItIsListedLeadsNowhereElse) {
    COMMAND_OPTION = kFileRecursive;
    const std::string tree = directory_.directory("d");
    directory_.directory("d/sub");
    directory_.file("d/sub/f", "theirs");
    directory_.directory("outside");
    directory_.file("outside/f", "ours");
    // The first question about the directory below is whether it is one; what follows lists it.
    fake_.when("fsinfo", [&] {
        fake_.when("fsinfo", [&] {
            fs::rename(tree + "/sub", directory_.path("moved"));
            fs::create_symlink(directory_.path("outside"), tree + "/sub");
        });
    });
    EXPECT_EQ(del(tree).status, 1u);
    EXPECT_EQ(read_file(directory_.path("outside/f")), "ours");
}

TEST_F(DeleteTest, ADirectoryIsAskedAboutWhenItsContentIsGone) {
    COMMAND_OPTION = kFileRecursive | kFileInteractive;
    const std::string path = directory_.directory("d");
    const std::string file = directory_.file("d/f", "");
    const Outcome outcome = del(path, "y\nn\n");
    EXPECT_EQ(outcome.status, 1u);
    EXPECT_EQ(outcome.output, "DEL " + file + " : \n" + question(file) + kDone + question(path));
    EXPECT_TRUE(fs::is_empty(path));
}

TEST_F(DeleteTest, WhatRemainsInADirectoryFailsIt) {
    COMMAND_OPTION = kFileRecursive | kFileInteractive;
    const std::string path = directory_.directory("d");
    const std::string file = directory_.file("d/f", "");
    const Outcome outcome = del(path, "n\ny\n");
    EXPECT_EQ(outcome.status, 1u);
    EXPECT_EQ(outcome.output, "DEL " + file + " : \n" + question(file) + kFailed + question(path));
    EXPECT_EQ(trace_of("removedir").back(), "removedir TWNFS-65034: The directory " + path + " could not be removed.");
    EXPECT_TRUE(fs::exists(file));
}

TEST_F(DeleteTest, AWildcardDeletesUnderTheNameInLowerCase) {
    const std::string pattern = directory_.path("*.LOG");
    const auto deletion = [&] { return exec_command(pattern.c_str(), nullptr); };
    const std::string upper = directory_.file("A.LOG", "");
    const std::string lower = directory_.path("a.log");
    const std::string failed = "DEL " + lower + " : \n" + kFailed;
    Outcome outcome = run(deletion);
    EXPECT_EQ(outcome.status, 1u);
    EXPECT_EQ(outcome.output, failed);
    // Another file of that name is hit instead, once.
    write_file(lower, "");
    outcome = run(deletion);
    EXPECT_EQ(outcome.status, 1u);
    EXPECT_EQ(outcome.output, "DEL " + lower + " : \n" + kDone + failed);
    EXPECT_FALSE(fs::exists(lower));
    EXPECT_TRUE(fs::exists(upper));
}

TEST_F(DeleteTest, OtherCommandsBitsDeleteNothingRecursively) {
    commandtype = kMakeDirectory;
    COMMAND_OPTION = kFileRecursive;
    EXPECT_EQ(del(directory_.directory("d")).status, 1u);
}

TEST_F(DeleteTest, APathTooLongForTheTreePatternIsRefused) {
    COMMAND_OPTION = kFileRecursive;
    const std::string path = "/m/" + std::string(254, 'a') + "/" + std::string(254, 'b');
    fake_.volume.add_directory(path);
    EXPECT_EQ(del(path).status, 1u);
    EXPECT_NE(fake_.volume.find(path), nullptr);
    EXPECT_THAT(trace_of("delfile").back(), testing::StartsWith("delfile TWNFS-65059: "));
}

TEST_F(DeleteTest, AMissingOrUnresolvablePathFails) {
    EXPECT_EQ(run([] { return delfile(nullptr); }).status, 1u);
    EXPECT_EQ(del("..").status, 1u);
    EXPECT_THAT(trace(), ElementsAre("delfile TWNFS-65016: The first operand is missing.",
                                     "delfile TWNFS-65059: The path .. could not be resolved."));
}

}  // namespace
