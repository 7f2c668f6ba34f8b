// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/files/buffer_pool.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace nfstdm {
namespace {

TEST(BufferPool, GivesBuffersUpToItsLimit) {
    BufferPool pool(3000);
    auto one = pool.take(1000);
    auto two = pool.take(1000);
    ASSERT_TRUE(one && two);
    EXPECT_EQ(one->span().size(), 1000U);
    EXPECT_EQ(pool.taken(), 2000U);
    EXPECT_TRUE(pool.has_room(1000));
    EXPECT_FALSE(pool.has_room(1001));
    EXPECT_FALSE(pool.take(1001));
    one.reset();
    EXPECT_EQ(pool.taken(), 1000U);
    EXPECT_TRUE(pool.take(2000));
}

TEST(BufferPool, GivesTheFirstBufferWhateverItsSize) {
    BufferPool pool(1);
    EXPECT_TRUE(pool.take(1000));
}

TEST(BufferPool, UsesMemoryAgain) {
    BufferPool pool(10000);
    auto buffer = pool.take(1000);
    const std::byte *memory = buffer->span().data();
    buffer.reset();
    EXPECT_EQ(pool.take(1000)->span().data(), memory);
}

TEST(BufferPool, BeginsABufferWithAPage) {
    BufferPool pool(100000);
    for (const std::size_t size : {1, 1000, 5000}) {
        const auto buffer = pool.take(size);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(buffer->span().data()) % 4096, 0U);
    }
}

// A request that is on the wire keeps its buffer until it is answered or its connection is gone, which may be later.
TEST(BufferPool, MayGoBeforeItsBuffers) {
    std::optional<Buffer> left;
    {
        BufferPool pool(1000);
        left = pool.take(1000);
    }
    left->span()[999] = std::byte{1};
    EXPECT_EQ(left->size(), 1000U);
}

}  // namespace
}  // namespace nfstdm
