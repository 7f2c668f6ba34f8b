// SPDX-License-Identifier: Apache-2.0
#include <sys/stat.h>

#include <filesystem>

#include "tests/unit/commands/command_fixture.h"
#include "tslwnfs/commands/files.h"

namespace {

class DirectoriesTest : public CommandTest {
  protected:
    DirectoriesTest() { commandtype = kMakeDirectory; }

    static void with_parents() { COMMAND_OPTION = kMkdirParents; }

    static bool is_directory(const std::string &path) { return std::filesystem::is_directory(path); }
    bool is_remote_directory(const std::string &path) const {
        const FakeNodePointer node = fake_.volume.find(path);
        return node != nullptr && node->is_directory();
    }
};

TEST_F(DirectoriesTest, ALocalDirectoryIsMadeForItsOwnerOnly) {
    const mode_t mask = umask(0);
    EXPECT_EQ(makedir(directory_.path("new").c_str()), 0u);
    umask(mask);
    struct stat status;
    ASSERT_EQ(stat(directory_.path("new").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0700u);
    EXPECT_THAT(trace(), ElementsAre("makedir TWNFS-65063: Creating the directory " + directory_.path("new") +
                                     ": location code 1."));
}

TEST_F(DirectoriesTest, AnExistingLocalDirectoryFailsWithItsErrorNumber) {
    EXPECT_EQ(makedir(directory_.path().c_str()), 1u);
    EXPECT_THAT(
        trace(),
        ElementsAre("makedir TWNFS-65063: Creating the directory " + directory_.path() + ": location code 1.",
                    "makedir TWNFS-65062: The directory " + directory_.path() + " could not be created (error 17)."));
}

TEST_F(DirectoriesTest, WithParentsAnExistingDirectoryIsFine) {
    with_parents();
    EXPECT_EQ(makedir(directory_.path().c_str()), 0u);
    fake_.volume.add_directory("/m/d/e");
    EXPECT_EQ(makedir("/m/d/e"), 0u);
}

TEST_F(DirectoriesTest, WithParentsAFileOfThatNameIsAFailure) {
    with_parents();
    EXPECT_EQ(makedir(directory_.file("f", "").c_str()), 1u);
}

TEST_F(DirectoriesTest, WithParentsEveryMissingLevelIsMade) {
    EXPECT_EQ(makedir(directory_.path("a/b/c").c_str()), 1u);
    EXPECT_FALSE(is_directory(directory_.path("a")));
    with_parents();
    EXPECT_EQ(makedir(directory_.path("a/b/c").c_str()), 0u);
    EXPECT_TRUE(is_directory(directory_.path("a/b/c")));
}

TEST_F(DirectoriesTest, WithParentsEveryMissingRemoteLevelIsMade) {
    with_parents();
    EXPECT_EQ(makedir("/m/a/b"), 0u);
    EXPECT_TRUE(is_remote_directory("/m/a/b"));
    EXPECT_THAT(fake_.calls(), ElementsAre("mkdir /m/a/b", "getattr /m/a", "mkdir /m/a", "mkdir /m/a/b"));
}

TEST_F(DirectoriesTest, TheParentsOptionBelongsToMkdirAlone) {
    with_parents();
    commandtype = kCopy;  // there the same bit asks questions
    EXPECT_EQ(makedir(directory_.path("a/b").c_str()), 1u);
    EXPECT_FALSE(is_directory(directory_.path("a")));
}

TEST_F(DirectoriesTest, AParentThatIsAFileOrALinkStopsTheClimb) {
    with_parents();
    const std::string file = directory_.file("file", "");
    EXPECT_EQ(makedir((file + "/new").c_str()), 1u);
    directory_.directory("target/old");
    std::filesystem::create_symlink(directory_.path("target"), directory_.path("link"));
    EXPECT_EQ(makedir(directory_.path("link/old").c_str()), 1u);
}

TEST_F(DirectoriesTest, ABackslashEndsTheParentToo) {
    with_parents();
    EXPECT_EQ(makedir("/m/a\\b"), 0u);  // one component here
    fake_.forget_calls();
    fake_.answer("mkdir", 2, {.status = 13, .location = {}});
    EXPECT_EQ(makedir("/m/c\\d"), 0u);
    EXPECT_THAT(fake_.calls(), ElementsAre("mkdir /m/c\\d", "getattr /m/c", "mkdir /m/c", "mkdir /m/c\\d"));
}

TEST_F(DirectoriesTest, TheClimbEndsAtTheRoot) {
    with_parents();
    fake_.answer("mkdir", 0, {.status = 13, .location = {}});
    fake_.answer("getattr", 0, {.status = 13, .location = {}});
    EXPECT_EQ(makedir("/a/b"), 1u);
    EXPECT_THAT(fake_.calls(), ElementsAre("mkdir /a/b", "getattr /a", "mkdir /a"));
}

TEST_F(DirectoriesTest, AServerThatContradictsItselfDoesNotHoldTheClimbForEver) {
    with_parents();
    // The parent counts as made and is never there.
    fake_.answer("getattr", 0, {.status = 2, .location = {}});
    fake_.answer("mkdir", 0, {.status = 0, .location = 2});
    for (uint32_t call = 2; call < 2000; call += 2) {
        fake_.answer("mkdir", call, {.status = 0, .location = 4});
    }
    EXPECT_EQ(makedir("/m/a/b"), 1u);
}

TEST_F(DirectoriesTest, AnUnresolvablePathFailsEvenWithParents) {
    with_parents();
    EXPECT_EQ(makedir(".."), 1u);
    EXPECT_EQ(makedir(nullptr), 1u);
    EXPECT_THAT(trace(), ElementsAre("makedir TWNFS-65059: The path .. could not be resolved.",
                                     "makedir TWNFS-65016: The first operand is missing."));
}

TEST_F(DirectoriesTest, RemoteAnswersOfMkdir) {
    const auto answer_of = [&](uint32_t status, uint32_t location) {
        fake_.answer("mkdir", 0, {status, location});
        return makedir("/m/new");
    };
    EXPECT_EQ(answer_of(0, 0), 0u);
    EXPECT_EQ(answer_of(0, 4), 0u);
    EXPECT_THAT(trace(), IsEmpty());
    EXPECT_EQ(answer_of(0, 2), 1u);
    EXPECT_EQ(answer_of(0, 3), 1u);
    EXPECT_EQ(answer_of(30, 0), 1u);
    EXPECT_THAT(trace(), ElementsAre("makedir TWNFS-65063: Creating the directory /m/new: location code 2.",
                                     "makedir TWNFS-65063: Creating the directory /m/new: location code 3.",
                                     "makedir TWNFS-65063: Creating the directory /m/new: location code 0."));
}

TEST_F(DirectoriesTest, AnEmptyLocalDirectoryIsRemoved) {
    const std::string path = directory_.directory("empty");
    EXPECT_EQ(removedir(path.c_str()), 0u);
    EXPECT_FALSE(is_directory(path));
    EXPECT_THAT(trace(), ElementsAre("removedir TWNFS-65069: Removing the directory " + path + ": location code 1."));
}

TEST_F(DirectoriesTest, ALocalDirectoryWithContentStays) {
    directory_.file("f", "");
    EXPECT_EQ(removedir(directory_.path().c_str()), 1u);
    EXPECT_THAT(trace(),
                ElementsAre("removedir TWNFS-65069: Removing the directory " + directory_.path() + ": location code 1.",
                            "removedir TWNFS-65034: The directory " + directory_.path() + " could not be removed."));
}

TEST_F(DirectoriesTest, ARemoteDirectoryIsRemoved) {
    fake_.volume.add_directory("/m/d");
    EXPECT_EQ(removedir("/m/d"), 0u);
    EXPECT_FALSE(is_remote_directory("/m/d"));
    EXPECT_EQ(removedir("/m/d"), 1u);
    EXPECT_THAT(trace(), ElementsAre("removedir TWNFS-65069: Removing the directory /m/d: location code 2."));
}

TEST_F(DirectoriesTest, RmdirCountsFourAsAFailureAndFiveAsDone) {
    for (const uint32_t location : {2U, 3U, 4U}) {
        fake_.answer("rmdir", 0, {.status = 0, .location = location});
        EXPECT_EQ(removedir("/m/d"), 1u) << location;
    }
    fake_.answer("rmdir", 0, {.status = 0, .location = 5});
    EXPECT_EQ(removedir("/m/d"), 0u);
    EXPECT_EQ(trace().size(), 3u);
    EXPECT_EQ(trace().back(), "removedir TWNFS-65069: Removing the directory /m/d: location code 4.");
}

TEST_F(DirectoriesTest, RmdirNeedsAPath) {
    EXPECT_EQ(removedir(nullptr), 1u);
    EXPECT_EQ(removedir(".."), 1u);
    EXPECT_THAT(trace(), ElementsAre("removedir TWNFS-65016: The first operand is missing.",
                                     "removedir TWNFS-65059: The path .. could not be resolved."));
}

}  // namespace
