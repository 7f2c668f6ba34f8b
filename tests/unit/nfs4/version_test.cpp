// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/volume/version.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

namespace nfstdm {
namespace {

TEST(Versions, AreReadInAnyCaseWithOrWithoutTheLettersInFront) {
    for (const char *text : {"nfsv3", "NFSv3", "v3", "3", "NFS3"})
        EXPECT_EQ(parse_version(text).value().major, 3U) << text;
    for (const char *text : {"nfsv4.1", "NFSV4.1", "4.1", "v4.1"}) {
        EXPECT_EQ(parse_version(text).value().major, 4U) << text;
        EXPECT_EQ(parse_version(text).value().minor, 1U) << text;
    }
    EXPECT_EQ(parse_version("nfsv4.2").value().minor, 2U);
    EXPECT_EQ(parse_version("v4").value().minor, 0U);
}

TEST(Versions, TakeParallelNfsForItsMinorVersion) {
    const auto version = parse_version("pNFS");
    ASSERT_TRUE(version.ok());
    EXPECT_EQ(version.value().minor, 1U);
    EXPECT_TRUE(version.value().pnfs);
}

TEST(Versions, WithoutSessionsAreRefusedWithTheReason) {
    const auto version = parse_version("nfsv4.0");
    ASSERT_FALSE(version.ok());
    EXPECT_EQ(version.status().number(), static_cast<uint32_t>(EPROTONOSUPPORT));
    EXPECT_THAT(version.status().text(), testing::HasSubstr("sessions"));
}

TEST(Versions, ThatThereAreNotAreRefusedNamingThoseThereAre) {
    for (const char *text : {"", "nfs", "v", "nfsv2", "4.3", "nfsv41", "nfsv4.1 ", "x3"}) {
        const auto version = parse_version(text);
        ASSERT_FALSE(version.ok()) << text;
        EXPECT_THAT(version.status().text(), testing::HasSubstr("nfsv3, nfsv4, nfsv4.1 and nfsv4.2 are")) << text;
    }
}

}  // namespace
}  // namespace nfstdm
