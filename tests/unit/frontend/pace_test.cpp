// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/frontend/pace.h"

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;

TEST(PaceOfFiles, IsAWaitWhenTheTimeWentByWithoutWorkAndWithoutBytes) {
    EXPECT_TRUE(Pace::is_wait(1100us, 50us, 4096)) << "a round trip of a millisecond";
    EXPECT_FALSE(Pace::is_wait(600us, 50us, 4096)) << "a server next door";
    EXPECT_FALSE(Pace::is_wait(3ms, 2900us, 4096)) << "computed";
    EXPECT_FALSE(Pace::is_wait(1s, 10ms, 110'000'000)) << "a line that is full";
    EXPECT_TRUE(Pace::is_wait(100ms, 1ms, 5'000'000)) << "a line that is not";
}

TEST(PaceOfFiles, WaitsOnceSeveralInARowDid) {
    Pace pace;
    for (int i = 0; i < 100; ++i) {
        pace.begin();
        pace.end();
    }
    EXPECT_FALSE(pace.is_waiting());
}

}  // namespace
