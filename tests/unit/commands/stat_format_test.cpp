// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/commands/stat_format.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

namespace {

class StatFormatTest : public ::testing::Test {
  protected:
    StatFormatTest() {
        setenv("TZ", "UTC", 1);
        tzset();
        remote_.type = TDM_TYPE_REGULAR;
        remote_.permissions = 0751;
        remote_.uid = 70000;
        remote_.gid = 65534;
        remote_.size = uint64_t{5} << 30;
        remote_.modification_seconds = 86400;
        local_.st_mode = S_IFREG | 0751;
        local_.st_uid = 70000;
        local_.st_gid = 65534;
        local_.st_size = 42;
        local_.st_ctime = 86400;
    }

    std::string remote(const char *format) const { return format_status(format, remote_, "/m/f"); }
    std::string local(const char *format) const { return format_status(format, local_, "/f"); }

    TdmAttributes remote_ = {};
    struct stat local_ = {};
};

TEST_F(StatFormatTest, RemoteDirectivesShowTheRecord) {
    EXPECT_EQ(remote("%A %F %u %g %s %n"), "rwxr-x--x f 70000 65534 5368709120 /m/f");
    EXPECT_EQ(remote("<%x>"), "<Thu Jan  1 00:00:00 1970\n>");
    EXPECT_EQ(remote("<%y>"), "<Fri Jan  2 00:00:00 1970\n>");
    EXPECT_EQ(remote("<%z>"), "<Thu Jan  1 00:00:00 1970\n>");
}

TEST_F(StatFormatTest, LocalDirectivesShowTheOwnersPermissionsAndSixteenBitOwners) {
    EXPECT_EQ(local("%A %F %u %g %n"), "rwx f 4464 -2 /f");
    EXPECT_EQ(local("%s"), std::string(62, ' ') + "42");
    EXPECT_EQ(local("%x%y"), "Thu Jan  1 00:00:00 1970\nThu Jan  1 00:00:00 1970\n");
    EXPECT_EQ(local("%z"), "Fri Jan  2 00:00:00 1970\n");
}

TEST_F(StatFormatTest, TypesAreLetters) {
    remote_.type = TDM_TYPE_DIRECTORY;
    local_.st_mode = S_IFDIR;
    EXPECT_EQ(remote("%F") + local("%F"), "dd");
    remote_.type = TDM_TYPE_LINK;
    local_.st_mode = S_IFLNK;
    EXPECT_EQ(remote("%F") + local("%F"), "--");
    local_.st_mode = S_IFSOCK;
    EXPECT_EQ(local("%F"), "-");
}

TEST_F(StatFormatTest, WhatIsNoDirectiveIsDroppedAndTextIsKept) {
    EXPECT_EQ(remote("a%Nb%oc"), "abc");
    EXPECT_EQ(remote("a%%b%5c%qd%"), "abcd");
    EXPECT_EQ(remote("%"), "");
    EXPECT_EQ(remote("plain \\n"), "plain \\n");
    EXPECT_EQ(remote(""), "");
    EXPECT_EQ(remote(nullptr), "");
}

TEST_F(StatFormatTest, ALongLineIsWhole) {
    const std::string text(100000, 'x');
    EXPECT_EQ(local((text + "%F" + text).c_str()), text + "f" + text);
}

}  // namespace
