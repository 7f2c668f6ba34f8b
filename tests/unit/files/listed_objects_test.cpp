// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/files/listed_objects.h"

#include <gtest/gtest.h>

namespace nfstdm::test {
namespace {

ListedObject numbered(uint64_t number) {
    ListedObject object;
    Attributes &attributes = object.attributes;
    attributes.type = FileType::fifo;
    attributes.mode = 07750;
    attributes.links = UINT32_MAX;
    attributes.uid = UINT32_MAX - 1;
    attributes.gid = 7;
    attributes.size = UINT64_MAX - number;
    attributes.used = number << 40;
    attributes.fsid = UINT64_MAX;
    attributes.fileid = number;
    attributes.access = {UINT64_MAX, 1};
    attributes.modification = {2, 999999999};
    attributes.change = {number, 3};
    object.handle_digest = ~number;
    return object;
}

void expect_same(const std::optional<ListedObject> &found, const ListedObject &wanted) {
    ASSERT_TRUE(found.has_value());
    const Attributes &one = found->attributes;
    const Attributes &other = wanted.attributes;
    EXPECT_EQ(found->handle_digest, wanted.handle_digest);
    EXPECT_EQ(one.type, other.type);
    EXPECT_EQ(one.mode, other.mode);
    EXPECT_EQ(one.links, other.links);
    EXPECT_EQ(one.uid, other.uid);
    EXPECT_EQ(one.gid, other.gid);
    EXPECT_EQ(one.size, other.size);
    EXPECT_EQ(one.used, other.used);
    EXPECT_EQ(one.fsid, other.fsid);
    EXPECT_EQ(one.fileid, other.fileid);
    EXPECT_EQ(one.access, other.access);
    EXPECT_EQ(one.modification, other.modification);
    EXPECT_EQ(one.change, other.change);
}

class ListedObjectsTest : public ::testing::Test {
  protected:
    static constexpr std::size_t kPart = 700;
    static constexpr std::size_t kCount = 5000;

    // Tags go down, so that no order of theirs helps.
    static uint64_t tag(std::size_t number) { return UINT64_MAX - number; }
    void fill(ListedObjects &objects) {
        for (std::size_t i = 0; i < kCount; ++i)
            objects.put(i / kPart, tag(i), numbered(i));
    }
    // How often the part had to be asked for is counted.
    std::optional<ListedObject> find(ListedObjects &objects, std::size_t number) {
        return objects.find(tag(number), [&] {
            ++parts_asked_;
            return std::optional<std::size_t>(number / kPart);
        });
    }
    std::size_t parts_asked_ = 0;
};

TEST_F(ListedObjectsTest, GiveBackWhatWasPutInAnyOrder) {
    ListedObjects objects(ListedObjects::kBytesMaximum);
    fill(objects);
    for (const std::size_t number : {4999U, 0U, 699U, 700U, 1024U, 1023U, 3U, 4900U})
        expect_same(find(objects, number), numbered(number));
    EXPECT_FALSE(objects.find(1, [] { return std::optional<std::size_t>(3); }));
    EXPECT_FALSE(objects.find(1, [] { return std::optional<std::size_t>(1000); }));
    EXPECT_FALSE(objects.find(1, [] { return std::optional<std::size_t>(); }));
}

TEST_F(ListedObjectsTest, AreFoundInTheirOrderWithoutAnySearch) {
    ListedObjects objects(ListedObjects::kBytesMaximum);
    fill(objects);
    for (std::size_t i = 0; i < kCount; ++i)
        ASSERT_EQ(find(objects, i).value().attributes.fileid, i);
    EXPECT_EQ(parts_asked_, 0U);
}

TEST_F(ListedObjectsTest, HoldNoMoreThanTheirMemory) {
    ListedObjects objects(50000);
    fill(objects);
    EXPECT_TRUE(objects.is_full());
    EXPECT_LE(objects.bytes(), 50100U);
    EXPECT_TRUE(find(objects, 900));
    EXPECT_FALSE(find(objects, kCount - 1));
    ListedObjects none(0);
    fill(none);
    EXPECT_EQ(none.bytes(), 0U);
}

TEST_F(ListedObjectsTest, ForgetAPartAndWhatIsBehindIt) {
    ListedObjects objects(ListedObjects::kBytesMaximum);
    fill(objects);
    EXPECT_TRUE(find(objects, 4000));
    objects.cut(2);
    EXPECT_TRUE(find(objects, 2 * kPart - 1));
    EXPECT_FALSE(find(objects, 2 * kPart));
    for (std::size_t i = 2 * kPart; i < kCount; ++i)
        objects.put(i / kPart, tag(i), numbered(i + 1));
    expect_same(find(objects, 2 * kPart), numbered(2 * kPart + 1));
    expect_same(find(objects, kCount - 1), numbered(kCount));
    expect_same(find(objects, 5), numbered(5));
}

// Of a large directory one is like the next in most things; made one after the other, or long since.
TEST_F(ListedObjectsTest, TakeAThirdOfTheirAttributesWhereTheseAreAsFilesHaveThem) {
    ListedObjects objects(ListedObjects::kBytesMaximum);
    for (std::size_t i = 0; i < kCount; ++i) {
        ListedObject object;
        Attributes &attributes = object.attributes;
        attributes.type = FileType::regular;
        attributes.mode = 0644;
        attributes.links = 1;
        attributes.fsid = 7;
        attributes.fileid = 1000000 + i * 7919 % 100000;
        attributes.size = i * 104729 % (1 << 24);
        attributes.used = attributes.size | 4095;
        attributes.change = {1700000000 + i * 7919 % 1000000, static_cast<uint32_t>(i * 104729 % 1000000000)};
        attributes.modification = attributes.access = attributes.change;
        object.handle_digest = ~i;
        objects.put(i / kPart, tag(i), object);
    }
    EXPECT_LT(objects.bytes(), kCount * 40);
}

TEST_F(ListedObjectsTest, AreAddedToAPartThatWasLeftWhenOthersWereForgotten) {
    ListedObjects objects(ListedObjects::kBytesMaximum);
    fill(objects);
    objects.cut(3);
    const std::size_t bytes = objects.bytes();
    objects.put(2, tag(kCount), numbered(4711));
    EXPECT_GT(objects.bytes(), bytes);
    const auto in_part_2 = [] { return std::optional<std::size_t>(2); };
    expect_same(objects.find(tag(kCount), in_part_2), numbered(4711));
    expect_same(find(objects, 2 * kPart + 1), numbered(2 * kPart + 1));
}

TEST_F(ListedObjectsTest, HoldNothingMoreOnceTheyWereReleased) {
    ListedObjects objects(ListedObjects::kBytesMaximum);
    fill(objects);
    objects.release();
    fill(objects);
    EXPECT_EQ(objects.bytes(), 0U);
    EXPECT_FALSE(find(objects, 1));
}

TEST_F(ListedObjectsTest, LeaveOutWhatLiesOnOneFileSystemTooMany) {
    ListedObjects objects(ListedObjects::kBytesMaximum);
    for (std::size_t i = 0; i < kCount; ++i) {
        ListedObject object = numbered(i);
        object.attributes.fsid = i;
        objects.put(0, tag(i), object);
    }
    EXPECT_EQ(find(objects, 20).value().attributes.fsid, 20U);
    EXPECT_FALSE(objects.find(tag(4000), [] { return std::optional<std::size_t>(0); }));
}

}  // namespace
}  // namespace nfstdm::test
