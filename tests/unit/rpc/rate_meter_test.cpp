// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/rpc/rate_meter.h"

#include <gtest/gtest.h>

namespace nfstdm::rpc {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr double kMegabyte = 1e6;

class RateMeterTest : public testing::Test {
  protected:
    // Moves so many bytes in so long a time.
    void move(uint64_t bytes, milliseconds time, bool busy_afterwards = true) {
        if (!meter_.busy()) meter_.look(now_, progress_, true);
        progress_ += bytes;
        now_ += time;
        meter_.look(now_, progress_, busy_afterwards);
    }

    RateMeter meter_;
    RateMeter::Clock::time_point now_{seconds(1000)};
    uint64_t progress_ = 12345;
};

TEST_F(RateMeterTest, KnowsNothingBeforeAnAnswerOrAWhile) {
    EXPECT_FALSE(meter_.known(now_));
    move(1'000'000, milliseconds(10));  // into some buffer, perhaps
    EXPECT_FALSE(meter_.known(now_));
    meter_.answered();
    EXPECT_TRUE(meter_.known(now_));
    EXPECT_DOUBLE_EQ(meter_.rate(), 100 * kMegabyte);
}

TEST_F(RateMeterTest, TrustsWhatItSawForAWhileWithoutAnAnswer) {
    move(100'000, milliseconds(100));
    EXPECT_TRUE(meter_.known(now_));
    EXPECT_DOUBLE_EQ(meter_.rate(), kMegabyte);
}

TEST_F(RateMeterTest, DoesNotCountTheTimeInWhichNothingWasUnderWay) {
    move(1'000'000, milliseconds(100), false);
    now_ += milliseconds(500);
    move(1'000'000, milliseconds(100), false);
    EXPECT_DOUBLE_EQ(meter_.rate(), 10 * kMegabyte);
}

TEST_F(RateMeterTest, FollowsALineThatBecomesSlow) {
    for (int i = 0; i < 20; ++i)
        move(5'000'000, milliseconds(100));
    EXPECT_NEAR(meter_.rate(), 50 * kMegabyte, kMegabyte);
    for (int i = 0; i < 10; ++i)
        move(0, milliseconds(100));
    EXPECT_LT(meter_.rate(), kMegabyte);
    EXPECT_GT(meter_.rate(), 0);
}

TEST_F(RateMeterTest, ForgetsASlowLineLaterThanAFastOne) {
    move(1 << 20, milliseconds(100), false);
    EXPECT_TRUE(meter_.known(now_ + seconds(1)));
    EXPECT_FALSE(meter_.known(now_ + seconds(3)));
    for (int i = 0; i < 20; ++i)
        move((1 << 20) / 10, milliseconds(100), i < 19);
    EXPECT_TRUE(meter_.known(now_ + seconds(15)));
    EXPECT_FALSE(meter_.known(now_ + seconds(30)));
}

TEST_F(RateMeterTest, TriesALineAgainThatStoodStill) {
    for (int i = 0; i < 100; ++i)
        move(0, milliseconds(100), i < 99);
    EXPECT_TRUE(meter_.known(now_ + seconds(30)));
    EXPECT_FALSE(meter_.known(now_ + seconds(61)));
}

TEST_F(RateMeterTest, KnowsNothingOfANewConnection) {
    move(100'000, milliseconds(100));
    meter_.forget();
    EXPECT_FALSE(meter_.known(now_));
    EXPECT_FALSE(meter_.busy());
}

}  // namespace
}  // namespace nfstdm::rpc
