// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/config/mount_table.h"

#include <cerrno>
#include <cstring>

#include "tests/support/command_fixture.h"
#include "tests/support/file_faults.h"
#include "tests/support/file_size_limit.h"

namespace {

class MountTable : public CommandTest {
  protected:
    static Outcome mount(const char *export_path = "srv:/vol", const char *mount_point = "/m") {
        return run([=] { return mount_otab(export_path, mount_point); });
    }
    static Outcome umount(const char *mount_point) {
        return run([=] { return umount_otab(mount_point); });
    }
    std::string filtered() const { return tslnfstab() + ".bakfile"; }

    // What umount leaves of a file in the copy; the file itself has to stay as it is.
    std::string left_by_umount(const std::string &file, const char *mount_point) {
        write_file(tslnfstab(), file);
        EXPECT_EQ(umount(mount_point), (Outcome{0, ""}));
        EXPECT_EQ(read_file(tslnfstab()), file);
        return read_file(filtered());
    }
};

TEST_F(MountTable, GetsALineFeedFirstEvenInANewFile) {
    EXPECT_EQ(mount(), (Outcome{0, ""}));
    EXPECT_EQ(read_file(tslnfstab()), "\nexport: srv:/vol\nmount: /m\n");
}

TEST_F(MountTable, GrowsAtItsEnd) {
    write_file(tslnfstab(), "server: a");
    EXPECT_EQ(mount(), (Outcome{0, ""}));
    EXPECT_EQ(read_file(tslnfstab()), "server: a\nexport: srv:/vol\nmount: /m\n");
}

TEST_F(MountTable, TakesTheServersDescriptionInItsFixedOrder) {
    new_sinfo.pairs = std::vector<LocalPathPair>{{"10.0.0.1", "10.0.0.2"}};
    new_sinfo.server = "filer";
    new_sinfo.uid = 0;
    new_sinfo.gid = 4294967295;
    EXPECT_EQ(mount(), (Outcome{0, ""}));
    EXPECT_EQ(read_file(tslnfstab()),
              "\nuid: 0\ngid: 4294967295\nserver: filer\nlocal: 10.0.0.1\npath: 10.0.0.2\n"
              "export: srv:/vol\nmount: /m\n");
}

TEST_F(MountTable, TakesTextsOf512Characters) {
    const std::string longest(512, 's');
    new_sinfo.server = longest;
    EXPECT_EQ(mount(), (Outcome{0, ""}));
    EXPECT_EQ(read_file(tslnfstab()), "\nserver: " + longest + "\nexport: srv:/vol\nmount: /m\n");
}

TEST_F(MountTable, IsBegunAnewOnDemand) {
    write_file(tslnfstab(), "server: a\n");
    new_sinfo.replace = true;
    EXPECT_EQ(mount(), (Outcome{0, ""}));
    EXPECT_EQ(read_file(tslnfstab()), "export: srv:/vol\nmount: /m\n");
}

TEST_F(MountTable, StaysAsItIsWhenWhatIsBegunAnewDoesNotFit) {
    write_file(tslnfstab(), "server: a\n");
    new_sinfo.replace = true;
    {
        const FileSizeLimit limit(10);
        EXPECT_EQ(mount(), (Outcome{1, ""}));
    }
    EXPECT_EQ(read_file(tslnfstab()), "server: a\n");
}

TEST_F(MountTable, NeedsTheDirectoryOfItsFile) {
    use_home(directory() + "/none");
    const std::string refusal = "The file " + directory() + "/none/dbs/tslnfstab could not be opened.";
    for (const bool replace : {false, true}) {
        new_sinfo.replace = replace;
        EXPECT_EQ(mount(), (Outcome{1, ""}));
        EXPECT_EQ(trace(), record("tslwnfs_mount_otab", 65061, refusal));
    }
    EXPECT_EQ(umount("/m"), (Outcome{1, ""}));
    EXPECT_EQ(trace(), record("tslwnfs_umount_otab", 65061, refusal));
}

TEST_F(MountTable, StaysAsItIsWhenTheBlockDoesNotFit) {
    const std::string before(990, '#');
    write_file(tslnfstab(), before);
    {
        const FileSizeLimit limit(1000);
        EXPECT_EQ(mount(), (Outcome{1, ""}));
    }
    EXPECT_EQ(read_file(tslnfstab()), before);
    EXPECT_EQ(trace(), "[n],tslwnfs_mount_otab " + tslnfstab() + " could not be written whole (error " +
                           std::to_string(EFBIG) + ")\n");
}

TEST_F(MountTable, LosesAMountWithItsExportInTheCopyOnly) {
    EXPECT_EQ(left_by_umount("server: a\nexport: /e\nmount: /m\nexport: /f\nmount: /n\n", "/m"),
              "\nserver: a \nexport: /f\nmount: /n ");
}

TEST_F(MountTable, ComparesMountPointsWithoutRegardToCase) {
    EXPECT_EQ(left_by_umount("export: /E\nmount: /U02/Data\nexport: /F\nmount: /Kept\n", "/u02/dAtA"),
              "\nexport: /F\nmount: /Kept ");
}

TEST_F(MountTable, KeepsAllOtherPairs) {
    EXPECT_EQ(left_by_umount("uid: 5\n\n\tlocal: a \t path: b\nexport: /e \t mount: /m\tsecurity: sys\n", "/x"),
              "\nuid: 5 \nlocal: a \npath: b \nexport: /e\nmount: /m \nsecurity: sys ");
}

TEST_F(MountTable, KeepsTheSecurityOfADroppedMount) {
    EXPECT_EQ(left_by_umount("export: /e \t mount: /m\tsecurity: sys\n", "/m"), "\nsecurity: sys ");
}

TEST_F(MountTable, DropsAnExportWithoutAMount) {
    EXPECT_EQ(left_by_umount("export: /e\nexport: /f\nmount: /m\nexport: /g\n", "/x"), "\nexport: /f\nmount: /m ");
}

TEST_F(MountTable, WritesAnEmptyExportForAMountWithoutOne) {
    EXPECT_EQ(left_by_umount("mount: /m\n", "/x"), "\nexport: \nmount: /m ");
}

TEST_F(MountTable, RepeatsTheLastExportForASecondMount) {
    EXPECT_EQ(left_by_umount("export: /e\nmount: /m\nmount: /n\n", "/x"),
              "\nexport: /e\nmount: /m \nexport: /e\nmount: /n ");
}

TEST_F(MountTable, CopiesCommentsBehindABlank) {
    EXPECT_EQ(left_by_umount("#<server block begin>\nserver: a\n#<server block end>\n#x\n# y", "/x"),
              " #<server block begin>\n\nserver: a  #<server block end>\n #x\n # y");
}

TEST_F(MountTable, TakesTheFirstWordOfACommentForAMissingValue) {
    EXPECT_EQ(left_by_umount("server: #note on it\nuid: 5\n", "/x"), " #note on it\n\nserver: #note \nuid: 5 ");
}

TEST_F(MountTable, RepeatsTheFirstWordOfACommentAtEachBreak) {
    const std::string piece(1023, 'c'), shorter(1021, 'c');
    EXPECT_EQ(left_by_umount("# " + piece.substr(1) + piece + "end\n", "/x"),
              " # " + piece.substr(1) + " #" + piece + " #end\n");
    // A piece that ends the line, or the file, is not followed by another one.
    EXPECT_EQ(left_by_umount("# " + shorter + "\nserver: a", "/x"), " # " + shorter + "\n\nserver: a ");
    EXPECT_EQ(left_by_umount("# " + piece.substr(1), "/x"), " # " + piece.substr(1) + " #");
}

TEST_F(MountTable, ReadsWordsOfMoreThan512CharactersInPieces) {
    const std::string longest(512, 'v');
    EXPECT_EQ(left_by_umount("server: " + longest + "\n", "/x"), "\nserver: " + longest + " ");
    EXPECT_EQ(left_by_umount("server: " + longest + "rest\nuid: 5\n", "/x"), "\nserver: " + longest + " \nrest uid: ");
}

TEST_F(MountTable, DropsAKeyWithoutAValueAtTheEnd) {
    EXPECT_EQ(left_by_umount("uid: 5\nserver:", "/x"), "\nuid: 5 ");
    EXPECT_EQ(left_by_umount("", "/x"), "");
}

TEST_F(MountTable, ReplacesAnOlderCopy) {
    write_file(filtered(), std::string(5000, 'x'));
    EXPECT_EQ(left_by_umount("uid: 5\n", "/x"), "\nuid: 5 ");
}

TEST_F(MountTable, CannotBeCopiedWhereADirectoryStands) {
    write_file(tslnfstab(), "uid: 5\n");
    std::filesystem::create_directory(filtered());
    EXPECT_EQ(umount("/m"), (Outcome{1, ""}));
    EXPECT_EQ(trace(), record("tslwnfs_umount_otab", 65061, "The file " + filtered() + " could not be opened."));
}

TEST_F(MountTable, IsNotOverwrittenThroughACopyThatIsALinkToIt) {
    write_file(tslnfstab(), "uid: 5\n");
    std::filesystem::create_symlink("tslnfstab", filtered());
    EXPECT_EQ(umount("/m"), (Outcome{1, ""}));
    EXPECT_EQ(read_file(tslnfstab()), "uid: 5\n");
}

TEST_F(MountTable, RefusesAMountPointThatCannotBeResolved) {
    EXPECT_EQ(umount(""), (Outcome{1, ""}));
    EXPECT_EQ(trace(), record("sslnrmc", 65059, "The path  could not be resolved.") +
                           record("umount_otab", 65059, "The path  could not be resolved."));
}

}  // namespace
