// SPDX-License-Identifier: Apache-2.0
#include "tools/loopnfsd/files/permissions.h"

#include <gtest/gtest.h>

namespace {

using namespace loopnfsd;

struct statx object(uint32_t mode) {
    struct statx status {};
    status.stx_mode = static_cast<uint16_t>(mode);
    status.stx_uid = 10;
    status.stx_gid = 20;
    return status;
}

const Credentials kOwner{"", 10, 99, {}};
const Credentials kMember{"", 11, 99, {7, 20}};
const Credentials kStranger{"", 11, 99, {}};
const Credentials kRoot{"", 0, 0, {}};

TEST(Permissions, TheBitsOfTheCallersClassDecide) {
    const auto status = object(S_IFDIR | 0754);
    EXPECT_TRUE(has_permission(kOwner, status, kWantRead | kWantWrite | kWantExecute));
    EXPECT_TRUE(has_permission(kMember, status, kWantRead | kWantExecute));
    EXPECT_FALSE(has_permission(kMember, status, kWantWrite));
    EXPECT_TRUE(has_permission(kStranger, status, kWantRead));
    EXPECT_FALSE(has_permission(kStranger, status, kWantRead | kWantExecute));
}

TEST(Permissions, AnEarlierClassIsNotHelpedByALaterOne) {
    EXPECT_FALSE(has_permission(kOwner, object(S_IFDIR | 0077), kWantRead));
    EXPECT_FALSE(has_permission(kMember, object(S_IFDIR | 0707), kWantRead));
}

TEST(Permissions, TheOwnerMayAlwaysReadAndWriteAFile) {
    EXPECT_TRUE(has_permission(kOwner, object(S_IFREG), kWantRead | kWantWrite));
    EXPECT_FALSE(has_permission(kOwner, object(S_IFREG), kWantExecute));
    EXPECT_FALSE(has_permission(kStranger, object(S_IFREG), kWantRead));
}

TEST(Permissions, SomeThingsAreTheOwnersAlone) {
    EXPECT_TRUE(has_permission(kOwner, object(S_IFREG), kWantOwner));
    EXPECT_FALSE(has_permission(kMember, object(S_IFREG | 0777), kWantOwner));
}

TEST(Permissions, RootMayDoEverything) {
    EXPECT_TRUE(has_permission(kRoot, object(S_IFREG), kWantRead | kWantWrite | kWantExecute | kWantOwner));
}

}  // namespace
