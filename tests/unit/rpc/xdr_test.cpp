// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "nfstdm/xdr/reader.h"
#include "nfstdm/xdr/writer.h"

namespace nfstdm::xdr {
namespace {

using testing::ElementsAre;

std::vector<std::byte> bytes(std::initializer_list<int> values) {
    std::vector<std::byte> result;
    for (const int value : values)
        result.push_back(static_cast<std::byte>(value));
    return result;
}

TEST(XdrWriter, PutsWordsMostSignificantByteFirst) {
    Writer writer;
    writer.put_u32(0x01020304);
    writer.put_u64(0x1112131415161718);
    writer.put_bool(true);
    writer.put_bool(false);
    EXPECT_EQ(writer.take(),
              bytes({1, 2, 3, 4, 0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17, 0x18, 0, 0, 0, 1, 0, 0, 0, 0}));
}

TEST(XdrWriter, PadsOpaqueDataToFullWordsWithZeros) {
    for (std::size_t size = 0; size <= 9; ++size) {
        Writer writer;
        writer.put_opaque(std::vector<std::byte>(size, std::byte{0xFF}));
        ASSERT_EQ(writer.size(), 4 + (size + 3) / 4 * 4);
        for (std::size_t i = 4 + size; i < writer.size(); ++i)
            EXPECT_EQ(writer.bytes()[i], std::byte{0});
    }
}

TEST(XdrWriter, WritesNothingMoreOnceItsLimitWasHit) {
    Writer writer(8);
    writer.put_u32(1);
    writer.put_u64(2);  // half of it would fit
    EXPECT_FALSE(writer.ok());
    const std::size_t size = writer.size();
    EXPECT_LE(size, 8U);
    writer.put_u32(3);
    EXPECT_EQ(writer.size(), size);
}

TEST(XdrWriter, FillsItsLimitToTheLastByte) {
    Writer writer(12);
    writer.put_string("abcdefgh");
    EXPECT_TRUE(writer.ok());
    EXPECT_EQ(writer.size(), 12U);
    Writer smaller(11);
    smaller.put_string("abcdefgh");
    EXPECT_FALSE(smaller.ok());
}

TEST(XdrWriter, CountsPaddingAgainstItsLimit) {
    Writer writer(5);
    writer.put_string("a");
    EXPECT_FALSE(writer.ok());
}

TEST(XdrWriter, RefusesAValueBeyondItsMaximum) {
    Writer fits;
    fits.put_string("abcd", 4);
    EXPECT_TRUE(fits.ok());
    Writer too_long;
    too_long.put_string("abcde", 4);
    EXPECT_FALSE(too_long.ok());
    EXPECT_EQ(too_long.size(), 0U);
}

TEST(XdrWriter, PatchesAWordInsideAndNothingOutside) {
    Writer writer;
    writer.put_u64(0);
    writer.patch_u32(4, 0x01020304);
    writer.patch_u32(5, 0xFFFFFFFF);
    writer.patch_u32(static_cast<std::size_t>(-1), 0xFFFFFFFF);
    EXPECT_EQ(writer.take(), bytes({0, 0, 0, 0, 1, 2, 3, 4}));
}

TEST(XdrReader, GetsWhatTheWriterPut) {
    Writer writer;
    writer.put_u32(7);
    writer.put_u64(0xFFFFFFFFFFFFFFFF);
    writer.put_bool(true);
    writer.put_string("hello");
    writer.put_opaque(bytes({9}));
    writer.put_fixed(bytes({1, 2, 3}));

    Reader reader(writer.bytes());
    uint32_t word = 0;
    uint64_t large = 0;
    bool flag = false;
    std::string_view text;
    std::span<const std::byte> opaque, fixed;
    EXPECT_TRUE(reader.get_u32(word) && reader.get_u64(large) && reader.get_bool(flag) && reader.get_string(text, 5) &&
                reader.get_opaque(opaque, 1) && reader.get_fixed(fixed, 3));
    EXPECT_TRUE(reader.finished());
    EXPECT_EQ(word, 7U);
    EXPECT_EQ(large, 0xFFFFFFFFFFFFFFFF);
    EXPECT_TRUE(flag);
    EXPECT_EQ(text, "hello");
    EXPECT_THAT(opaque, ElementsAre(std::byte{9}));
    EXPECT_THAT(fixed, ElementsAre(std::byte{1}, std::byte{2}, std::byte{3}));
}

// Every get on every cut of bytes that hold it: fails, leaves zero or nothing, and makes all further gets fail.
template <class Value, class Get>
void expect_every_truncation_to_fail(const std::vector<std::byte> &whole, Value value, Get get) {
    for (std::size_t size = 0; size < whole.size(); ++size) {
        SCOPED_TRACE(size);
        Reader reader(std::span{whole}.first(size));
        Value got = value;
        EXPECT_FALSE(get(reader, got));
        EXPECT_FALSE(reader.ok());
        EXPECT_FALSE(reader.finished());
        EXPECT_EQ(reader.left(), 0U);
        uint32_t next = 1;
        EXPECT_FALSE(reader.get_u32(next));
        EXPECT_EQ(next, 0U);
        EXPECT_FALSE(reader.skip(0));
    }
    Reader reader(whole);
    Value got = value;
    EXPECT_TRUE(get(reader, got));
    EXPECT_TRUE(reader.finished());
}

TEST(XdrReader, FailsOnEveryTruncation) {
    expect_every_truncation_to_fail(bytes({0, 0, 0, 5}), uint32_t{1},
                                    [](Reader &reader, uint32_t &value) { return reader.get_u32(value); });
    expect_every_truncation_to_fail(bytes({0, 0, 0, 5, 0, 0, 0, 5}), uint64_t{1},
                                    [](Reader &reader, uint64_t &value) { return reader.get_u64(value); });
    expect_every_truncation_to_fail(bytes({0, 0, 0, 1}), true,
                                    [](Reader &reader, bool &value) { return reader.get_bool(value); });
    expect_every_truncation_to_fail(bytes({0, 0, 0, 5, 1, 2, 3, 4, 5, 0, 0, 0}), std::string_view("old"),
                                    [](Reader &reader, std::string_view &value) {
                                        const bool got = reader.get_string(value, 100);
                                        EXPECT_EQ(value.empty(), !got);
                                        return got;
                                    });
    expect_every_truncation_to_fail(bytes({1, 2, 3, 4, 5, 0, 0, 0}), std::span<const std::byte>{},
                                    [](Reader &reader, std::span<const std::byte> &value) {
                                        const bool got = reader.get_fixed(value, 5);
                                        EXPECT_EQ(value.empty(), !got);
                                        return got;
                                    });
}

TEST(XdrReader, TakesNoBooleanButZeroAndOne) {
    bool value = true;
    EXPECT_FALSE(Reader(bytes({0, 0, 0, 2})).get_bool(value));
    EXPECT_FALSE(value);
    EXPECT_FALSE(Reader(bytes({0x80, 0, 0, 0})).get_bool(value));
}

TEST(XdrReader, EnforcesTheMaximumOfAnOpaque) {
    const auto four = bytes({0, 0, 0, 4, 1, 2, 3, 4});
    std::span<const std::byte> value;
    EXPECT_TRUE(Reader(four).get_opaque(value, 4));
    EXPECT_FALSE(Reader(four).get_opaque(value, 3));
    EXPECT_TRUE(value.empty());
}

TEST(XdrReader, SurvivesLengthsThatWrapAround) {
    for (const int last : {0xFC, 0xFD, 0xFE, 0xFF}) {
        const auto hostile = bytes({0xFF, 0xFF, 0xFF, last, 1, 2, 3, 4});
        std::span<const std::byte> value;
        EXPECT_FALSE(Reader(hostile).get_opaque(value, static_cast<std::size_t>(-1)));
    }
    Reader reader(bytes({1, 2, 3, 4}));
    EXPECT_FALSE(reader.skip(static_cast<std::size_t>(-1)));
    EXPECT_FALSE(reader.skip(0));
}

TEST(XdrReader, IsNotFinishedWhileBytesAreLeft) {
    const auto two = bytes({0, 0, 0, 1, 0, 0, 0, 2});
    Reader reader(two);
    uint32_t value = 0;
    EXPECT_TRUE(reader.get_u32(value));
    EXPECT_TRUE(reader.ok());
    EXPECT_FALSE(reader.finished());
    EXPECT_EQ(reader.left(), 4U);
}

}  // namespace
}  // namespace nfstdm::xdr
