// SPDX-License-Identifier: Apache-2.0
// The small services: banner, clock, caller, streams.
#include <fcntl.h>
#include <gtest/gtest.h>

#include "platform/banner.h"
#include "platform/caller.h"
#include "platform/clock.h"
#include "platform/stream.h"
#include "tests/support/temporary_directory.h"

namespace {

TEST(Banner, IsOneLineThatNamesTheProgramAndItsVersion) {
    const std::string banner = platform_banner("TSLWNFS");
    EXPECT_TRUE(banner.starts_with("TSLWNFS "));
    EXPECT_NE(banner.find(TSLWNFS_VERSION), std::string::npos);
    EXPECT_EQ(banner.find('\n'), banner.size() - 1);
}

TEST(Banner, HasAtMost255Characters) {
    EXPECT_EQ(platform_banner(std::string(400, 'x')).size(), 255u);
}

TEST(Clock, MovesOn) {
    const uint32_t start = platform_clock();
    while (platform_clock() == start) {
    }
    EXPECT_NE(platform_clock(), start);
}

TEST(Caller, IsAlwaysAllowed) {
    EXPECT_EQ(UserInTSLDBA(), 1);
}

TEST(Stream, IsClosedInProgramsThatThisOneRuns) {
    const TemporaryDirectory directory;
    Stream stream = open_stream((directory / "file").c_str(), "w");
    ASSERT_TRUE(stream);
    EXPECT_NE(fcntl(fileno(stream.get()), F_GETFD) & FD_CLOEXEC, 0);
    EXPECT_TRUE(close_stream(stream));
    EXPECT_FALSE(stream);
}

TEST(Stream, TellsAtTheCloseThatTheDiskWasFull) {
    Stream stream = open_stream("/dev/full", "w");
    ASSERT_TRUE(stream);
    std::fputs("lost", stream.get());
    EXPECT_FALSE(close_stream(stream));
}

TEST(Stream, ThatIsNotOpenClosesWell) {
    Stream stream;
    EXPECT_TRUE(close_stream(stream));
}

}  // namespace
