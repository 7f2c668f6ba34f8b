// SPDX-License-Identifier: Apache-2.0
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <optional>

#include "tests/support/command_fixture.h"
#include "tslwnfs/config/config.h"

namespace {

class MountScripts : public CommandTest {
  protected:
    MountScripts() { use_base(directory()); }

    void use_base(const std::string &base) { base_.emplace("TESSEL_BASE", base.c_str()); }
    void use_no_base() { base_.emplace("TESSEL_BASE", nullptr); }

    std::string scripts() const { return directory() + "/tslwnfs_Scripts"; }
    std::string script() const { return scripts() + "/mount_script.sh"; }
    std::string unscript() const { return scripts() + "/umount_script.sh"; }

    static Outcome mount(const char *export_path = "srv:/vol", const char *mount_point = "/u02") {
        return run([=] { return mount_script(export_path, mount_point); });
    }
    static Outcome umount(const char *mount_point = "/u02") {
        return run([=] { return umount_script(mount_point); });
    }
    static Outcome created(const std::string &path) {
        return {0, "script creation successful. Location : " + path + "\n"};
    }

  private:
    std::optional<ScopedEnvironment> base_;
};

TEST_F(MountScripts, HoldOneLineEach) {
    EXPECT_EQ(mount(), created(script()));
    EXPECT_EQ(umount(), created(unscript()));
    EXPECT_EQ(read_file(script()),
              "mount -o rw,bg,hard,nointr,rsize=32768,wsize=32768,tcp,actimeo=0,vers=3,timeo=600 srv:/vol /u02\n");
    EXPECT_EQ(read_file(unscript()), "umount -f /u02\n");
}

TEST_F(MountScripts, AreForTheirOwnerToReadBeforeTheyAreRun) {
    EXPECT_EQ(mount(), created(script()));
    EXPECT_EQ(mode_of(scripts()), 0700u);
    EXPECT_EQ(mode_of(script()) & 0111, 0u);
}

TEST_F(MountScripts, AreOverwrittenEachTimeInADirectoryOfAnyMode) {
    std::filesystem::create_directory(scripts());
    set_mode(scripts(), 0755);
    EXPECT_EQ(umount(("/" + std::string(200, 'x')).c_str()).result, 0u);
    EXPECT_EQ(umount("/m"), created(unscript()));
    EXPECT_EQ(read_file(unscript()), "umount -f /m\n");
    EXPECT_EQ(mode_of(scripts()), 0755u);
}

TEST_F(MountScripts, NeedABase) {
    const Outcome failed = {1, "envfetch failed for : TESSEL_BASE\n"};
    use_no_base();
    EXPECT_EQ(mount(), failed);
    use_base("");
    EXPECT_EQ(umount(), failed);
    use_base(std::string(1024, 'b'));
    EXPECT_EQ(mount(), failed);
}

TEST_F(MountScripts, TakeABaseOf1023Characters) {
    std::string base = directory();
    while (base.size() < 1023)
        base += "/" + std::string(std::min<std::size_t>(200, 1023 - base.size() - 1), 'b');
    base.resize(1023, 'b');
    std::filesystem::create_directories(base);
    use_base(base);
    EXPECT_EQ(mount(), created(base + "/tslwnfs_Scripts/mount_script.sh"));
}

TEST_F(MountScripts, NeedADirectoryInTheirPlace) {
    write_file(scripts(), "a file");
    EXPECT_EQ(mount(), (Outcome{1, ""}));
    EXPECT_EQ(umount(), (Outcome{1, ""}));
    const std::string reason = scripts() + " is not a directory.";
    EXPECT_EQ(trace(), record("mount_script", 65028, reason) + record("umount_script", 65028, reason));
}

TEST_F(MountScripts, NeedAPlaceThatCanBeLookedUp) {
    write_file(directory() + "/file", "");
    use_base(directory() + "/file");
    EXPECT_EQ(mount(), (Outcome{1, ""}));
    EXPECT_EQ(trace(), record("mount_script", 65013,
                              "The status of " + directory() + "/file/tslwnfs_Scripts could not be read."));
}

TEST_F(MountScripts, NeedABaseThatStands) {
    use_base(directory() + "/none");
    EXPECT_EQ(umount(), (Outcome{1, ""}));
    EXPECT_EQ(trace(), record("umount_script", 65062,
                              "The directory " + directory() + "/none/tslwnfs_Scripts could not be created (error " +
                                  std::to_string(ENOENT) + ")."));
}

TEST_F(MountScripts, SayWhenAScriptCannotBeWritten) {
    std::filesystem::create_directories(script());
    EXPECT_EQ(mount(), (Outcome{1, "fopen failed for : " + script() + "\n"}));
    std::filesystem::create_symlink("/dev/full", unscript());
    EXPECT_EQ(umount(), (Outcome{1, "fopen failed for : " + unscript() + "\n"}));
}

TEST_F(MountScripts, AreNotPutWhereOthersCouldExchangeThem) {
    std::filesystem::create_directory(scripts());
    set_mode(scripts(), 0777);
    EXPECT_EQ(mount(), (Outcome{1, ""}));
    EXPECT_EQ(trace(), "[n],mount_script " + scripts() + " is writable by others\n");
    set_mode(scripts(), 0755);
    if (geteuid() != 0) GTEST_SKIP() << "only root may give a directory away";
    ASSERT_EQ(chown(scripts().c_str(), 1234, static_cast<gid_t>(-1)), 0);
    EXPECT_EQ(umount(), (Outcome{1, ""}));
    EXPECT_EQ(trace(), "[n],umount_script " + scripts() + " belongs to another user\n");
    EXPECT_TRUE(std::filesystem::is_empty(scripts()));
}

TEST_F(MountScripts, AreNotWrittenThroughLinks) {
    std::filesystem::create_directory(scripts());
    write_file(directory() + "/kept", "kept");
    std::filesystem::create_symlink(directory() + "/kept", script());
    EXPECT_EQ(mount(), (Outcome{1, "fopen failed for : " + script() + "\n"}));
    EXPECT_EQ(read_file(directory() + "/kept"), "kept");
    std::filesystem::remove_all(scripts());
    std::filesystem::create_directory(directory() + "/elsewhere");
    std::filesystem::create_symlink(directory() + "/elsewhere", scripts());
    EXPECT_EQ(mount(), (Outcome{1, ""}));
    EXPECT_TRUE(std::filesystem::is_empty(directory() + "/elsewhere"));
}

TEST_F(MountScripts, AreNoPipes) {
    std::filesystem::create_directory(scripts());
    ASSERT_EQ(mkfifo(script().c_str(), 0600), 0);
    EXPECT_EQ(mount(), (Outcome{1, "fopen failed for : " + script() + "\n"}));
}

TEST_F(MountScripts, SpeakIntoTheLog) {
    ASSERT_TRUE(open_log_file((directory() + "/log").c_str()));
    EXPECT_EQ(mount(), (Outcome{0, ""}));
    use_no_base();
    EXPECT_EQ(mount(), (Outcome{1, ""}));
    ASSERT_TRUE(close_log());
    EXPECT_EQ(read_file(directory() + "/log"), created(script()).printed + "envfetch failed for : TESSEL_BASE\n");
}

}  // namespace
