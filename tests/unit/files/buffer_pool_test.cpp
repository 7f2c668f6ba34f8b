// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/files/buffer_pool.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace nfstdm {
namespace {

constexpr std::size_t kPage = 4096;

TEST(BufferPool, GivesBuffersUpToItsLimit) {
    BufferPool pool(3 * kPage);
    auto one = pool.take(kPage);
    auto two = pool.take(kPage);
    ASSERT_TRUE(one && two);
    EXPECT_EQ(one->span().size(), kPage);
    EXPECT_EQ(pool.taken(), 2 * kPage);
    EXPECT_TRUE(pool.has_room(kPage));
    EXPECT_FALSE(pool.has_room(kPage + 1));
    EXPECT_FALSE(pool.take(kPage + 1));
    one.reset();
    EXPECT_EQ(pool.taken(), kPage);
    EXPECT_TRUE(pool.take(2 * kPage));
}

TEST(BufferPool, ChargesTheWholePagesThatABufferTakes) {
    BufferPool pool(4 * kPage);
    std::vector<Buffer> buffers;
    while (auto buffer = pool.take(1))
        buffers.push_back(std::move(*buffer));
    EXPECT_EQ(buffers.size(), 4U);
    buffers.clear();
    EXPECT_EQ(pool.taken(), 0U);
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
