// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/files/listing_index.h"

#include <gtest/gtest.h>

#include <string>

namespace nfstdm::test {
namespace {

// The reference's own vector: the key is 0, 1, 2 ... 15 and the text 0, 1, 2 ... 14.
TEST(KeyedHash, IsSipHashOf128Bits) {
    std::string text;
    for (char c = 0; c < 15; ++c)
        text += c;
    const HashKey key{0x0706050403020100, 0x0f0e0d0c0b0a0908};
    const Hash128 hash = keyed_hash(key, text);
    EXPECT_EQ(hash.low, 0x11a8b03399e99354U);
    EXPECT_EQ(hash.high, 0xd9c3cf970fec087eU);
    EXPECT_NE(keyed_hash({key.low + 1, key.high}, text).low, hash.low);
    EXPECT_NE(keyed_hash(key, text + '\0').low, hash.low);
}

class ListingIndexTest : public ::testing::Test {
  protected:
    // Parts of a thousand names each, one cookie a name.
    void fill(std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            if (i % 1000 == 0) index_.go_on({i, 9, i, 0});
            ASSERT_TRUE(index_.add("entry-" + std::to_string(i)));
        }
    }
    ListingIndex index_{FileHandle{}};
};

TEST_F(ListingIndexTest, TellsOfEveryNameWithWhichPartItCame) {
    fill(100000);
    for (std::size_t i = 0; i < 100000; ++i)
        ASSERT_EQ(index_.part_of("entry-" + std::to_string(i)), i / 1000);
    EXPECT_EQ(index_.part_of("another"), std::nullopt);
    EXPECT_EQ(index_.names(), 100000U);
    EXPECT_EQ(index_.part(7).cookie, 7000U);
    EXPECT_EQ(index_.part_at(7999), 7U);
    EXPECT_EQ(index_.part_at(8000), 8U);
}

TEST_F(ListingIndexTest, KnowsANameThatComesTwice) {
    fill(5000);
    index_.go_on({5000, 9, 5000, 0});
    for (std::size_t i = 0; i < 5000; ++i)
        ASSERT_FALSE(index_.add("entry-" + std::to_string(i)));
    EXPECT_EQ(index_.names(), 5000U);
}

TEST_F(ListingIndexTest, TakesFewBytesANameHoweverLongTheNamesAre) {
    fill(200000);
    EXPECT_LT(index_.bytes(), 200000U * 24);
}

TEST_F(ListingIndexTest, ForgetsWhatCameWithAPartAndBehindIt) {
    fill(5000);
    index_.cut(2);
    EXPECT_EQ(index_.names(), 2000U);
    EXPECT_EQ(index_.parts(), 2U);
    EXPECT_EQ(index_.part_of("entry-1999"), 1U);
    EXPECT_EQ(index_.part_of("entry-2000"), std::nullopt);
    index_.go_on({2000, 9, 2000, 0});
    EXPECT_TRUE(index_.add("entry-4999"));
    EXPECT_EQ(index_.part_of("entry-4999"), 2U);
}

TEST_F(ListingIndexTest, SmallRepliesShareAPart) {
    for (std::size_t i = 0; i < 6400; ++i) {
        index_.go_on({i, 9, i, 0});
        index_.add(std::to_string(i));
    }
    EXPECT_EQ(index_.parts(), 100U);
}

}  // namespace
}  // namespace nfstdm::test
