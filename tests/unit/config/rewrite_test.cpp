// SPDX-License-Identifier: Apache-2.0
// What the rewriting commands leave behind when something fails on the way: a whole configuration, always.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "platform/descriptor.h"
#include "tests/support/command_fixture.h"
#include "tests/support/file_faults.h"
#include "tests/support/file_size_limit.h"
#include "tslwnfs/config/config.h"
#include "tslwnfs/config/tslnfstab_file.h"

namespace {

struct Rewriter {
    const char *function;
    uint32_t (*run)();
};

void PrintTo(const Rewriter &rewriter, std::ostream *stream) {
    *stream << rewriter.function;
}

const std::string kOther = "#<server block begin>\nserver: other\n#<server block end>\n";
const std::string kBefore = "#<server block begin>\nserver: a\nrdmaport: 1\n#<server block end>\n" + kOther;

class Rewrite : public CommandTest, public testing::WithParamInterface<Rewriter> {
  protected:
    Rewrite() { write_file(tslnfstab(), kBefore); }

    static Outcome rewrite() { return run(GetParam().run); }

    // What the command makes of the file when nothing fails.
    static std::string after() {
        const std::string function = GetParam().function;
        if (function == "delete_server") return kOther;
        if (function == "enablerdma") return kBefore;
        return "#<server block begin>\nserver: a\n#<server block end>\n" + kOther;
    }

    std::string unopened_backup(int error) const {
        return "could not open " + backup() + " errno " + std::to_string(error) + "\n";
    }
};

INSTANTIATE_TEST_SUITE_P(Commands, Rewrite,
                         testing::Values(Rewriter{"delete_server", [] { return delete_server("a", 1); }},
                                         Rewriter{"enablerdma", [] { return enablerdma("a", "2"); }},
                                         Rewriter{"disablerdma", [] { return disablerdma("a"); }}),
                         [](const auto &rewriter) { return rewriter.param.function; });

TEST_P(Rewrite, PutsTheNewFileInPlaceAndTakesTheBackupAway) {
    write_file(backup(), std::string(10000, 'x'));
    EXPECT_EQ(rewrite(), (Outcome{0, ""}));
    EXPECT_EQ(read_file(tslnfstab()), after());
    EXPECT_FALSE(exists(backup()));
}

TEST_P(Rewrite, KeepsThePermissionsOfTheFile) {
    set_mode(tslnfstab(), 0600);
    write_file(backup(), "old");
    set_mode(backup(), 0666);
    EXPECT_EQ(rewrite(), (Outcome{0, ""}));
    EXPECT_EQ(mode_of(tslnfstab()), 0600u);
}

TEST_P(Rewrite, KeepsTheOwnerOfTheFile) {
    if (geteuid() != 0) GTEST_SKIP() << "only root may give files away";
    ASSERT_EQ(chown(tslnfstab().c_str(), 1234, 4321), 0);
    EXPECT_EQ(rewrite(), (Outcome{0, ""}));
    struct stat status;
    ASSERT_EQ(stat(tslnfstab().c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, 1234u);
    EXPECT_EQ(status.st_gid, 4321u);
}

TEST_P(Rewrite, PutsAFileInPlaceOfALinkAndLeavesWhatItLedTo) {
    const std::string target = directory() + "/target";
    std::filesystem::rename(tslnfstab(), target);
    std::filesystem::create_symlink(target, tslnfstab());
    EXPECT_EQ(rewrite(), (Outcome{0, ""}));
    EXPECT_FALSE(std::filesystem::is_symlink(tslnfstab()));
    EXPECT_EQ(read_file(tslnfstab()), after());
    EXPECT_EQ(read_file(target), kBefore);
}

TEST_P(Rewrite, LeavesTheFileAloneWhenTheBackupCannotBeOpened) {
    std::filesystem::create_directory(backup());
    EXPECT_EQ(rewrite(), (Outcome{1, unopened_backup(EISDIR)}));
    EXPECT_EQ(read_file(tslnfstab()), kBefore);
}

TEST_P(Rewrite, LeavesTheFileAloneWhenTheBackupIsALinkToIt) {
    for (const bool symbolic : {true, false}) {
        std::filesystem::remove(backup());
        if (symbolic) {
            std::filesystem::create_symlink("tslnfstab", backup());
        } else {
            std::filesystem::create_hard_link(tslnfstab(), backup());
        }
        EXPECT_EQ(rewrite(), (Outcome{1, unopened_backup(EEXIST)}));
        EXPECT_EQ(read_file(tslnfstab()), kBefore);
    }
}

TEST_P(Rewrite, LeavesTheFileAloneWhenTheDiskIsFull) {
    std::filesystem::create_symlink("/dev/full", backup());
    EXPECT_EQ(rewrite(), (Outcome{1, unopened_backup(ENOSPC)}));
    EXPECT_EQ(read_file(tslnfstab()), kBefore);
    EXPECT_TRUE(exists(backup()));
    EXPECT_EQ(trace(), std::string("[n],") + GetParam().function + " " + backup() +
                           " could not be written whole (error " + std::to_string(ENOSPC) + ")\n");
}

TEST_P(Rewrite, LeavesTheFileAloneWhereverTheBackupStopsGrowing) {
    const std::string longer = kBefore + std::string(3000, '#') + "\n";
    for (const rlim_t limit : {1000, 2000, 2999}) {
        write_file(tslnfstab(), longer);
        const FileSizeLimit scope(limit);
        EXPECT_EQ(rewrite(), (Outcome{1, unopened_backup(EFBIG)}));
        EXPECT_EQ(read_file(tslnfstab()), longer);
    }
}

TEST_P(Rewrite, HasBothFilesWhenTheOldOneCannotBeRemoved) {
    for (const int error : {EBUSY, EPERM, EACCES}) {
        const FailingCall failing(FailingCall::Call::rename, backup(), error);
        EXPECT_EQ(rewrite(), (Outcome{0, ""}));
        EXPECT_EQ(failing.hits(), 1);
        EXPECT_EQ(read_file(tslnfstab()), kBefore);
        EXPECT_EQ(read_file(backup()), after());
        EXPECT_EQ(trace(), record(GetParam().function, 65038, "The file " + tslnfstab() + " could not be deleted."));
    }
}

TEST_P(Rewrite, HasBothFilesWhenTheBackupCannotBeRenamed) {
    const FailingCall failing(FailingCall::Call::rename, backup(), EXDEV);
    EXPECT_EQ(rewrite(), (Outcome{0, "Error: unable to rename " + backup() + " to " + tslnfstab()}));
    EXPECT_EQ(failing.hits(), 1);
    EXPECT_EQ(read_file(tslnfstab()), kBefore);
    EXPECT_EQ(read_file(backup()), after());
    EXPECT_EQ(trace(), "");
}

TEST_P(Rewrite, NeverTakesTheFileAwayOnItsOwn) {
    const FailingCall failing(FailingCall::Call::unlink, tslnfstab(), EBUSY);
    EXPECT_EQ(rewrite(), (Outcome{0, ""}));
    EXPECT_EQ(failing.hits(), 0);
    EXPECT_EQ(read_file(tslnfstab()), after());
}

TEST_P(Rewrite, LeavesAPipeInTheFilesPlaceAlone) {
    std::filesystem::remove(tslnfstab());
    ASSERT_EQ(mkfifo(tslnfstab().c_str(), 0600), 0);
    EXPECT_EQ(rewrite(), (Outcome{1, "could not open " + tslnfstab() + " errno " + std::to_string(EINVAL) + "\n"}));
    EXPECT_FALSE(exists(backup()));
}

TEST_P(Rewrite, GivesTheLockBack) {
    EXPECT_EQ(rewrite(), (Outcome{0, ""}));
    const Descriptor other(open((home() + "/dbs").c_str(), O_RDONLY | O_DIRECTORY));
    EXPECT_EQ(flock(other.get(), LOCK_EX | LOCK_NB), 0);
}

class Lock : public CommandTest {
  protected:
    Lock() { EXPECT_TRUE(find_tslnfstab("test", path_)); }
    PathBuffer path_;
};

TEST_F(Lock, IsNotTakenWhileAnotherRunHasIt) {
    ConfigurationLock first;
    ASSERT_TRUE(first.take("test", path_));
    EXPECT_TRUE(first.take("test", path_)) << "it has it";
    ConfigurationLock second(std::chrono::milliseconds(1));
    EXPECT_FALSE(second.take("test", path_));
    EXPECT_EQ(trace(),
              "[n],test another run has been changing the configuration in " + home() + "/dbs/ for 0 seconds\n");
    EXPECT_TRUE(std::filesystem::is_empty(home() + "/dbs"));
}

TEST_F(Lock, IsNotNeededWhereThereIsNothingToGuard) {
    std::filesystem::remove(home() + "/dbs");
    ConfigurationLock lock;
    EXPECT_TRUE(lock.take("test", path_));
    EXPECT_EQ(trace(), "");
}

class DroppedBackup : public CommandTest {};

TEST_F(DroppedBackup, IsReportedWhenItCannotBeDeleted) {
    write_file(tslnfstab(), kBefore);
    const FailingCall failing(FailingCall::Call::unlink, backup(), EPERM);
    const Outcome outcome = run([] { return disablerdma("none"); });
    EXPECT_EQ(outcome, (Outcome{1, "Requested server is not present in tslnfstab\n"}));
    EXPECT_EQ(failing.hits(), 1);
    EXPECT_EQ(trace(), record("disablerdma", 65038, "The file " + backup() + " could not be deleted."));
}

TEST_F(DroppedBackup, MayHaveVanished) {
    write_file(tslnfstab(), kBefore);
    const FailingCall failing(FailingCall::Call::unlink, backup(), ENOENT);
    EXPECT_EQ(run([] { return enablerdma("none", nullptr); }).result, 1u);
    EXPECT_EQ(failing.hits(), 1);
    EXPECT_EQ(trace(), "");
}

}  // namespace
