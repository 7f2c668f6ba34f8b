// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/config/whole_file.h"

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <tuple>

#include "platform/descriptor.h"
#include "tests/support/file_faults.h"
#include "tests/support/file_size_limit.h"
#include "tests/support/temporary_directory.h"

namespace {

class WholeFile : public testing::Test {
  protected:
    std::string path(const std::string &name = "file") const { return directory_ / name; }

    TemporaryDirectory directory_;
};

TEST_F(WholeFile, IsReadToItsLastByte) {
    std::string bytes;
    for (int i = 0; i < 10000; ++i)
        bytes += static_cast<char>(i * 7);
    write_file(path(), bytes);
    std::string contents = "old";
    ASSERT_TRUE(read_whole_file(path().c_str(), contents));
    EXPECT_EQ(contents, bytes);
}

TEST_F(WholeFile, IsNotReadFromADirectoryOrFromNothing) {
    std::string contents;
    EXPECT_FALSE(read_whole_file(directory_.path().c_str(), contents));
    EXPECT_EQ(errno, EISDIR);
    EXPECT_FALSE(read_whole_file(path().c_str(), contents));
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(WholeFile, IsNotWrittenOntoAFullDisk) {
    Stream full = open_stream("/dev/full", "w");
    ASSERT_TRUE(full);
    EXPECT_FALSE(write_and_close(full, "lost"));
    EXPECT_EQ(errno, ENOSPC);
}

TEST_F(WholeFile, GrowsAtItsEnd) {
    EXPECT_EQ(append_to_file(path().c_str(), "a\n"), Written::done);
    EXPECT_EQ(append_to_file(path().c_str(), "b\n"), Written::done);
    EXPECT_EQ(read_file(path()), "a\nb\n");
}

TEST_F(WholeFile, IsReplacedInOneStepAndKeepsItsPermissions) {
    write_file(path(), "old");
    ASSERT_EQ(chmod(path().c_str(), 0640), 0);
    const Descriptor before(open(path().c_str(), O_RDONLY | O_CLOEXEC));
    EXPECT_EQ(replace_file(path().c_str(), "a new one"), Written::done);
    EXPECT_EQ(read_file(path()), "a new one");
    struct stat status;
    ASSERT_EQ(stat(path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777u, 0640u);
    // Whoever had begun to read goes on in the old one.
    char bytes[8] = {};
    EXPECT_EQ(read(before.get(), bytes, sizeof bytes), 3);
    EXPECT_FALSE(std::filesystem::exists(path("file.new")));
}

TEST_F(WholeFile, IsReplacedWhereALinkLeads) {
    write_file(path("real"), "old");
    std::filesystem::create_symlink("real", path());
    EXPECT_EQ(replace_file(path().c_str(), "new"), Written::done);
    EXPECT_TRUE(std::filesystem::is_symlink(path()));
    EXPECT_EQ(read_file(path("real")), "new");
}

TEST_F(WholeFile, StaysAsItWasWhenWhatReplacesItDoesNotFit) {
    write_file(path(), "kept");
    {
        const FileSizeLimit limit(1000);
        EXPECT_EQ(replace_file(path().c_str(), std::string(2000, 'x')), Written::not_written);
        EXPECT_EQ(errno, EFBIG);
    }
    EXPECT_EQ(read_file(path()), "kept");
    EXPECT_FALSE(std::filesystem::exists(path("file.new")));
}

TEST_F(WholeFile, IsWrittenWhereItIsWhenNothingCanBeMovedThere) {
    write_file(path(), "old");
    const FailingCall failing(FailingCall::Call::rename, path("file.new"), EBUSY);
    EXPECT_EQ(replace_file(path().c_str(), "new"), Written::done);
    EXPECT_EQ(failing.hits(), 1);
    EXPECT_EQ(read_file(path()), "new");
    EXPECT_FALSE(std::filesystem::exists(path("file.new")));
}

TEST_F(WholeFile, TakesBackATextThatDoesNotFit) {
    write_file(path(), "kept\n");
    {
        const FileSizeLimit limit(1000);
        EXPECT_EQ(append_to_file(path().c_str(), std::string(2000, 'x')), Written::not_written);
    }
    EXPECT_EQ(read_file(path()), "kept\n");
}

TEST_F(WholeFile, IsNotOpenedWhereADirectoryStands) {
    EXPECT_EQ(append_to_file(directory_.path().c_str(), "a"), Written::not_opened);
    EXPECT_EQ(errno, EISDIR);
}

TEST_F(WholeFile, ExistsUnlessTheSystemSaysThatItDoesNot) {
    EXPECT_FALSE(may_exist(path().c_str()));
    write_file(path(), "");
    EXPECT_TRUE(may_exist(path().c_str()));
    EXPECT_TRUE(may_exist(std::string(5000, 'x').c_str()));  // a name too long to be looked up
}

TEST_F(WholeFile, IsKnownBehindALink) {
    write_file(path(), "");
    write_file(path("other"), "");
    std::filesystem::create_symlink("file", path("symbolic"));
    std::filesystem::create_hard_link(path(), path("hard"));
    EXPECT_TRUE(is_same_file(path().c_str(), path("symbolic").c_str()));
    EXPECT_TRUE(is_same_file(path().c_str(), path("hard").c_str()));
    EXPECT_FALSE(is_same_file(path().c_str(), path("other").c_str()));
    EXPECT_FALSE(is_same_file(path().c_str(), path("missing").c_str()));
}

TEST_F(WholeFile, TakesOverPermissions) {
    write_file(path("from"), "");
    ASSERT_EQ(chmod(path("from").c_str(), 0640), 0);
    Stream stream = open_stream(path().c_str(), "w");
    EXPECT_TRUE(take_permissions(stream, path("from").c_str()));
    struct stat status;
    ASSERT_EQ(stat(path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640u);
}

TEST_F(WholeFile, IsLimitedToPermissionsWithoutBeingGivenMore) {
    for (const auto &[own, limit, left] : {std::tuple{0644, 0600, 0600}, {0600, 0644, 0600}, {0664, 0640, 0640}}) {
        write_file(path(), "");
        write_file(path("from"), "");
        ASSERT_EQ(chmod(path().c_str(), static_cast<mode_t>(own)), 0);
        ASSERT_EQ(chmod(path("from").c_str(), static_cast<mode_t>(limit)), 0);
        EXPECT_TRUE(limit_permissions(open_for_writing(path().c_str(), Writing::anew), path("from").c_str()));
        struct stat status;
        ASSERT_EQ(stat(path().c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777, static_cast<mode_t>(left));
    }
}

TEST_F(WholeFile, IsForItsOwnerAloneUntilItsPermissionsAreGiven) {
    ASSERT_TRUE(open_for_writing(path().c_str(), Writing::anew));
    struct stat status;
    ASSERT_EQ(stat(path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600u);
}

// The permissions of a file that is made with a mode and a umask in a directory with a mode.
mode_t made_with(const std::string &directory, mode_t directory_mode, mode_t mask, mode_t mode) {
    EXPECT_EQ(chmod(directory.c_str(), directory_mode), 0);
    const std::string name = directory + "/made";
    std::filesystem::remove(name);
    const mode_t before = umask(mask);
    EXPECT_TRUE(open_for_writing(name.c_str(), Writing::at_end, mode));
    EXPECT_EQ(umask(before), mask);
    struct stat status = {};
    EXPECT_EQ(stat(name.c_str(), &status), 0);
    return status.st_mode & 07777;
}

TEST_F(WholeFile, IsTheGroupsToChangeInADirectoryThatIsTheGroups) {
    const std::string shared = path("shared");
    std::filesystem::create_directory(shared);
    EXPECT_EQ(made_with(shared, 02775, 022, 0666), 0664u);
    EXPECT_EQ(made_with(shared, 02775, 077, 0666), 0660u);
    EXPECT_EQ(made_with(shared, 02770, 027, 0640), 0660u);
    EXPECT_EQ(made_with(shared, 02775, 022, 0600), 0600u);
}

TEST_F(WholeFile, IsMadeAsTheUmaskSaysInAnyOtherDirectory) {
    const std::string own = path("own");
    std::filesystem::create_directory(own);
    EXPECT_EQ(made_with(own, 0775, 022, 0666), 0644u);
    EXPECT_EQ(made_with(own, 02755, 022, 0666), 0644u);
    EXPECT_EQ(made_with(own, 0777, 077, 0666), 0600u);
}

// The parts of a test that need an ordinary user of one group only run in a child that has become one.
template <class Part>
int as_member_of(gid_t group, gid_t other_group, Part part) {
    const pid_t child = fork();
    if (child == 0) {
        const gid_t groups[] = {group, other_group};
        if (setgroups(2, groups) != 0 || setgid(group) != 0 || setuid(1234) != 0) _exit(99);
        _exit(part() ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST_F(WholeFile, KeepsTheGroupThatAMemberMayGive) {
    if (geteuid() != 0) GTEST_SKIP() << "only root may become somebody else";
    ASSERT_EQ(chmod(directory_.path().c_str(), 0777), 0);
    write_file(path("from"), "");
    ASSERT_EQ(chown(path("from").c_str(), 0, 4321), 0);
    ASSERT_EQ(chmod(path("from").c_str(), 0664), 0);
    const auto copy = [this] {
        return take_permissions(open_for_writing(path().c_str(), Writing::anew), path("from").c_str());
    };
    ASSERT_EQ(as_member_of(5000, 4321, copy), 0);
    struct stat status;
    ASSERT_EQ(stat(path().c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, 1234u);
    EXPECT_EQ(status.st_gid, 4321u);
    EXPECT_EQ(status.st_mode & 07777, 0664u);
}

TEST_F(WholeFile, IsForItsOwnerAloneWhenTheGroupCannotBeKept) {
    if (geteuid() != 0) GTEST_SKIP() << "only root may become somebody else";
    ASSERT_EQ(chmod(directory_.path().c_str(), 0777), 0);
    write_file(path("from"), "");
    ASSERT_EQ(chown(path("from").c_str(), 0, 4321), 0);
    ASSERT_EQ(chmod(path("from").c_str(), 0664), 0);
    const auto copy = [this] {
        return take_permissions(open_for_writing(path().c_str(), Writing::anew), path("from").c_str());
    };
    ASSERT_EQ(as_member_of(5000, 5001, copy), 0);
    struct stat status;
    ASSERT_EQ(stat(path().c_str(), &status), 0);
    EXPECT_EQ(status.st_gid, 5000u);
    EXPECT_EQ(status.st_mode & 07777, 0600u);
}

TEST_F(WholeFile, OfSomebodyElseIsNotWrittenWhenItIsOpenToMore) {
    if (geteuid() != 0) GTEST_SKIP() << "only root may become somebody else";
    ASSERT_EQ(chmod(directory_.path().c_str(), 0777), 0);
    write_file(path("from"), "");
    write_file(path(), "");
    ASSERT_EQ(chmod(path("from").c_str(), 0600), 0);
    ASSERT_EQ(chmod(path().c_str(), 0666), 0);
    const auto limit = [this] {
        return limit_permissions(open_for_writing(path().c_str(), Writing::anew), path("from").c_str());
    };
    EXPECT_EQ(as_member_of(5000, 5001, limit), 1);
}

TEST_F(WholeFile, IsNotWrittenThroughALinkThatSomebodyElseMade) {
    if (geteuid() != 0) GTEST_SKIP() << "only root may give a link away";
    write_file(path("precious"), "precious");
    std::filesystem::create_symlink(path("precious"), path());
    EXPECT_TRUE(may_follow(path().c_str()));
    ASSERT_EQ(lchown(path().c_str(), 1234, 1234), 0);
    EXPECT_FALSE(may_follow(path().c_str()));
    EXPECT_FALSE(open_for_writing(path().c_str(), Writing::anew));
    EXPECT_EQ(errno, ELOOP);
    EXPECT_EQ(append_to_file(path().c_str(), "more"), Written::not_opened);
    EXPECT_EQ(replace_file(path().c_str(), "new"), Written::done);
    EXPECT_EQ(read_file(path()), "new");
    EXPECT_FALSE(std::filesystem::is_symlink(path()));
    EXPECT_EQ(read_file(path("precious")), "precious");
}

TEST_F(WholeFile, IsWrittenThroughALinkOfTheOwnerOfItsDirectory) {
    if (geteuid() != 0) GTEST_SKIP() << "only root may give a link away";
    write_file(path("elsewhere"), "a");
    std::filesystem::create_symlink(path("elsewhere"), path());
    ASSERT_EQ(lchown(path().c_str(), 1234, 1234), 0);
    ASSERT_EQ(chown(directory_.path().c_str(), 1234, 1234), 0);
    EXPECT_EQ(append_to_file(path().c_str(), "b"), Written::done);
    EXPECT_EQ(read_file(path("elsewhere")), "ab");
}

TEST_F(WholeFile, IsNoPipe) {
    ASSERT_EQ(mkfifo(path().c_str(), 0600), 0);
    std::string contents;
    EXPECT_FALSE(read_whole_file(path().c_str(), contents));
    EXPECT_EQ(errno, EINVAL);
    EXPECT_FALSE(open_for_writing(path().c_str(), Writing::anew));
    EXPECT_EQ(append_to_file(path().c_str(), "a"), Written::not_opened);
    // Nor is one that somebody reads, which would take what is written.
    const Descriptor reader(open(path().c_str(), O_RDONLY | O_NONBLOCK));
    EXPECT_FALSE(open_for_writing(path().c_str(), Writing::anew));
    EXPECT_EQ(append_to_file(path().c_str(), "a"), Written::not_opened);
}

TEST_F(WholeFile, LeavesDevicesAsTheyAre) {
    struct stat before, after;
    ASSERT_EQ(stat("/dev/full", &before), 0);
    write_file(path("from"), "");
    ASSERT_EQ(chmod(path("from").c_str(), 0600), 0);
    const Stream device = open_stream("/dev/full", "w");
    EXPECT_TRUE(take_permissions(device, path("from").c_str()));
    ASSERT_EQ(stat("/dev/full", &after), 0);
    EXPECT_EQ(after.st_mode, before.st_mode);
}

}  // namespace
