// SPDX-License-Identifier: Apache-2.0
#include <cerrno>

#include "tests/support/command_fixture.h"
#include "tests/support/file_faults.h"
#include "tests/support/file_size_limit.h"
#include "tslwnfs/client/client.h"

namespace {

class SavedCopy : public CommandTest {
  protected:
    std::string saved() const { return tslnfstab() + ".sav"; }
    std::string save_question() const {
        return "File " + saved() + " already exist  do you want to overwrite ?( y/n)\n";
    }
    std::string restore_question() const {
        return "tslnfstab file already exists, do you want to overwrite " + tslnfstab() + " ? : (Yes/No)\n";
    }
    std::string unopened(const std::string &function, const std::string &path) const {
        return record(function, 65061, "The file " + path + " could not be opened.");
    }
    static std::string bytes() {
        std::string text("server: \0\xFF\r\n", 12);
        while (text.size() < 1000)
            text += text;
        return text;
    }
};

TEST_F(SavedCopy, HoldsEveryByteOfTheConfiguration) {
    for (const std::string &file : {std::string(), std::string("x"), std::string(128, 'x'), bytes()}) {
        std::filesystem::remove(saved());
        write_file(tslnfstab(), file);
        EXPECT_EQ(run(save), (Outcome{0, ""}));
        EXPECT_EQ(read_file(saved()), file);
        EXPECT_EQ(read_file(tslnfstab()), file);
    }
}

TEST_F(SavedCopy, IsNotMadeOfNothing) {
    EXPECT_EQ(run(save), (Outcome{1, ""}));
    EXPECT_EQ(trace(), unopened("save", tslnfstab()));
    EXPECT_FALSE(exists(saved()));
}

TEST_F(SavedCopy, IsOverwrittenAfterAYesOnly) {
    write_file(tslnfstab(), "new");
    for (const char *answer : {"n\n", "Y\n", ""}) {
        write_file(saved(), "old");
        EXPECT_EQ(run(save, answer), (Outcome{1, save_question()})) << answer;
        EXPECT_EQ(read_file(saved()), "old") << answer;
    }
    EXPECT_EQ(trace(), "");
    EXPECT_EQ(run(save, "y\n"), (Outcome{0, save_question()}));
    EXPECT_EQ(read_file(saved()), "new");
}

TEST_F(SavedCopy, IsOverwrittenUnaskedWhenTheLineSaidYes) {
    write_file(tslnfstab(), "new");
    write_file(saved(), "a longer old one");
    pass_flag = 1;
    EXPECT_EQ(run(save), (Outcome{0, ""}));
    EXPECT_EQ(read_file(saved()), "new");
}

TEST_F(SavedCopy, IsClosedToThoseToWhomTheConfigurationIs) {
    write_file(tslnfstab(), "community: secret\n");
    set_mode(tslnfstab(), 0600);
    EXPECT_EQ(run(save), (Outcome{0, ""}));
    EXPECT_EQ(mode_of(saved()), 0600u);
}

TEST_F(SavedCopy, IsClosedWhenAnOlderOneWasOpen) {
    write_file(tslnfstab(), "community: secret\n");
    set_mode(tslnfstab(), 0600);
    write_file(saved(), "old");
    set_mode(saved(), 0644);
    pass_flag = 1;
    EXPECT_EQ(run(save), (Outcome{0, ""}));
    EXPECT_EQ(mode_of(saved()), 0600u);
}

TEST_F(SavedCopy, StaysClosedBesideAnOpenConfiguration) {
    write_file(tslnfstab(), "server: a\n");
    set_mode(tslnfstab(), 0644);
    write_file(saved(), "old");
    set_mode(saved(), 0600);
    pass_flag = 1;
    EXPECT_EQ(run(save), (Outcome{0, ""}));
    EXPECT_EQ(mode_of(saved()), 0600u);
}

TEST_F(SavedCopy, MayBeALinkToTheConfiguration) {
    write_file(tslnfstab(), "kept\n");
    std::filesystem::create_symlink("tslnfstab", saved());
    pass_flag = 1;
    EXPECT_EQ(run(save), (Outcome{0, ""}));
    EXPECT_EQ(run(restore), (Outcome{0, ""}));
    EXPECT_EQ(read_file(tslnfstab()), "kept\n");
}

TEST_F(SavedCopy, FailsOnAFullDiskAndLeavesTheConfiguration) {
    write_file(tslnfstab(), "kept\n");
    std::filesystem::create_symlink("/dev/full", saved());
    pass_flag = 1;
    EXPECT_EQ(run(save), (Outcome{1, ""}));
    EXPECT_EQ(trace(), "[n],save " + saved() + " could not be written whole (error " + std::to_string(ENOSPC) + ")\n");
    EXPECT_EQ(read_file(tslnfstab()), "kept\n");
}

TEST_F(SavedCopy, FailsWhereADirectoryStands) {
    write_file(tslnfstab(), "kept\n");
    std::filesystem::create_directory(saved());
    EXPECT_EQ(run(save, "y"), (Outcome{1, save_question()}));
    EXPECT_EQ(trace(), unopened("save", saved()));
}

TEST_F(SavedCopy, ComesBackAndStays) {
    write_file(saved(), bytes());
    EXPECT_EQ(run(restore), (Outcome{0, ""}));
    EXPECT_EQ(read_file(tslnfstab()), bytes());
    EXPECT_EQ(read_file(saved()), bytes());
}

TEST_F(SavedCopy, ComesBackOverAConfigurationAfterAYesOnly) {
    write_file(saved(), "old");
    for (const char *answer : {"n\n", "Yes\n", "Y\n", ""}) {
        write_file(tslnfstab(), "current");
        EXPECT_EQ(run(restore, answer), (Outcome{1, restore_question()})) << answer;
        EXPECT_EQ(read_file(tslnfstab()), "current") << answer;
    }
    EXPECT_EQ(run(restore, "y\n"), (Outcome{0, restore_question()}));
    EXPECT_EQ(read_file(tslnfstab()), "old");
}

TEST_F(SavedCopy, ComesBackUnaskedWhenTheLineSaidYes) {
    write_file(saved(), "old");
    write_file(tslnfstab(), "a longer current one");
    set_mode(tslnfstab(), 0600);
    pass_flag = 1;
    EXPECT_EQ(run(restore), (Outcome{0, ""}));
    EXPECT_EQ(read_file(tslnfstab()), "old");
    EXPECT_EQ(mode_of(tslnfstab()), 0600u);
}

TEST_F(SavedCopy, MustBeReadableBeforeTheConfigurationIsTouched) {
    write_file(tslnfstab(), "current");
    pass_flag = 1;
    EXPECT_EQ(run(restore), (Outcome{1, ""}));
    EXPECT_EQ(trace(), unopened("restore", saved()));
    std::filesystem::create_directory(saved());
    EXPECT_EQ(run(restore), (Outcome{1, ""}));
    EXPECT_EQ(read_file(tslnfstab()), "current");
}

TEST_F(SavedCopy, StaysWholeWhenTheConfigurationCannotBeWritten) {
    const std::string old(3000, 'o');
    write_file(saved(), old);
    write_file(tslnfstab(), "current");
    pass_flag = 1;
    {
        const FileSizeLimit limit(2000);
        EXPECT_EQ(run(restore), (Outcome{1, ""}));
    }
    EXPECT_EQ(trace(),
              "[n],restore " + tslnfstab() + " could not be written whole (error " + std::to_string(EFBIG) + ")\n");
    EXPECT_EQ(read_file(saved()), old);
    EXPECT_EQ(read_file(tslnfstab()), "current");
}

TEST_F(SavedCopy, FailsToComeBackWhereADirectoryStands) {
    write_file(saved(), "old");
    std::filesystem::create_directory(tslnfstab());
    EXPECT_EQ(run(restore, "y"), (Outcome{1, restore_question()}));
    EXPECT_EQ(trace(), unopened("restore", tslnfstab()));
}

}  // namespace
