// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/nfs4/slots.h"

#include <gtest/gtest.h>

namespace nfstdm::nfs4 {
namespace {

TEST(SlotTable, GivesTheLowestFreeSlotAndCountsItsRequests) {
    Slots slots;
    slots.reset(3);
    EXPECT_EQ(slots.take(), 0U);
    EXPECT_EQ(slots.take(), 1U);
    EXPECT_EQ(slots.highest(), 1U);
    EXPECT_EQ(slots.sequence(0), 1U);
    slots.executed(0);
    EXPECT_EQ(slots.take(), 0U);
    EXPECT_EQ(slots.sequence(0), 2U);
    EXPECT_EQ(slots.used(), 2U);
}

TEST(SlotTable, CountsNothingThatTheServerRefused) {
    Slots slots;
    slots.reset(1);
    ASSERT_EQ(slots.take(), 0U);
    slots.refused(0);
    EXPECT_EQ(slots.take(), 0U);
    EXPECT_EQ(slots.sequence(0), 1U);
    EXPECT_FALSE(slots.take().has_value());
}

TEST(SlotTable, NeverGivesASlotWhoseCountIsLost) {
    Slots slots;
    slots.reset(2);
    ASSERT_EQ(slots.take(), 0U);
    slots.lose(0);
    EXPECT_EQ(slots.take(), 1U);
    EXPECT_TRUE(slots.usable());
    slots.lose(1);
    EXPECT_FALSE(slots.usable());
    slots.reset(2);
    EXPECT_TRUE(slots.usable());
}

TEST(SlotTable, KeepsToWhatTheServerWantsUsed) {
    Slots slots;
    slots.reset(8);
    slots.set_target(0);
    EXPECT_EQ(slots.take(), 0U);
    EXPECT_FALSE(slots.take().has_value());
    slots.set_target(1);
    EXPECT_EQ(slots.take(), 1U);
    slots.cut(1);
    slots.set_target(7);
    EXPECT_FALSE(slots.take().has_value());
}

}  // namespace
}  // namespace nfstdm::nfs4
