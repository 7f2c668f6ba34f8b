// SPDX-License-Identifier: Apache-2.0
#include "tools/loopnfsd/store/held_writes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <optional>
#include <random>
#include <string>

namespace {

using loopnfsd::FileKey;
using loopnfsd::HeldWrites;

constexpr FileKey kFile{1, 1, 10, 1};
constexpr FileKey kOther{1, 1, 11, 1};

std::span<const std::byte> bytes(std::string_view text) {
    return std::as_bytes(std::span(text));
}

// What a read of so many bytes sees over a file of dots.
std::string seen(const HeldWrites &held, std::size_t size, uint64_t offset = 0) {
    std::string text(size, '.');
    held.overlay(kFile, offset, std::as_writable_bytes(std::span(text)));
    return text;
}

TEST(HeldWrites, AreSeenByReadsOfTheirFileOnly) {
    HeldWrites held;
    held.write(kOther, 0, bytes("zzz"));
    held.write(kFile, 2, bytes("abc"));
    EXPECT_EQ(seen(held, 8), "..abc...");
    EXPECT_EQ(seen(held, 2, 3), "bc");
    EXPECT_EQ(seen(held, 4, 100), "....");
    EXPECT_EQ(held.bytes(), 6U);
}

TEST(HeldWrites, NewerBytesHideOlderOnes) {
    HeldWrites held;
    held.write(kFile, 0, bytes("aaaaaaaa"));
    held.write(kFile, 2, bytes("bb"));
    EXPECT_EQ(seen(held, 8), "aabbaaaa");
    held.write(kFile, 3, bytes("cccccc"));
    EXPECT_EQ(seen(held, 9), "aabcccccc");
    EXPECT_EQ(held.bytes(), 9U);
}

TEST(HeldWrites, BehaveAsAFlatFileUnderAnySequence) {
    std::mt19937 random(5);  // NOLINT: the same sequence every time
    HeldWrites held;
    std::string model(200, '.');
    for (int step = 0; step < 5000; ++step) {
        const std::size_t begin = random() % model.size();
        const std::size_t size = 1 + random() % (model.size() - begin);
        if (random() % 5 == 0) {
            held.drop(kFile, begin, begin + size);
            model.replace(begin, size, size, '.');
        } else {
            const std::string data(size, static_cast<char>('a' + random() % 26));
            held.write(kFile, begin, bytes(data));
            model.replace(begin, size, data);
        }
        ASSERT_EQ(seen(held, model.size()), model) << step;
        ASSERT_EQ(held.bytes(), model.size() - static_cast<std::size_t>(std::ranges::count(model, '.'))) << step;
    }
}

TEST(HeldWrites, ShowInSizeAndTimes) {
    HeldWrites held;
    struct statx status {};
    status.stx_size = 4;
    held.adjust(kFile, status);
    EXPECT_EQ(status.stx_size, 4U);
    held.write(kFile, 10, bytes("abc"));
    held.adjust(kFile, status);
    EXPECT_EQ(status.stx_size, 13U);
    EXPECT_NE(status.stx_mtime.tv_sec, 0);
    status.stx_size = 100;
    held.adjust(kFile, status);
    EXPECT_EQ(status.stx_size, 100U);
}

TEST(HeldWrites, AreHandedOverOnceAndInOrder) {
    HeldWrites held;
    held.write(kFile, 5, bytes("late"));
    held.write(kFile, 0, bytes("soon"));
    std::map<uint64_t, std::size_t> stored;
    EXPECT_TRUE(
        held.drain(kFile, [&](uint64_t offset, auto data) { return stored.emplace(offset, data.size()).second; }));
    EXPECT_EQ(stored, (std::map<uint64_t, std::size_t>{{0, 4}, {5, 4}}));
    EXPECT_EQ(held.bytes(), 0U);
    EXPECT_TRUE(held.files().empty());
}

TEST(HeldWrites, StayHeldWhenTheyAreNotTaken) {
    HeldWrites held;
    held.write(kFile, 0, bytes("aaaa"));
    held.write(kFile, 10, bytes("bbbb"));
    int calls = 0;
    EXPECT_FALSE(held.drain(kFile, [&](uint64_t, auto) { return ++calls == 1; }));
    EXPECT_EQ(seen(held, 14), "..........bbbb");
    EXPECT_EQ(held.bytes(), 4U);
}

TEST(HeldWrites, AreGoneWhenDropped) {
    HeldWrites held;
    held.write(kFile, 0, bytes("aaaa"));
    held.write(kOther, 0, bytes("bb"));
    held.drop(kFile);
    EXPECT_EQ(held.bytes(), 2U);
    EXPECT_EQ(held.files(), std::vector{kOther});
    held.drop_all();
    EXPECT_EQ(held.bytes(), 0U);
    EXPECT_TRUE(held.files().empty());
}

}  // namespace
