// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/nfs4/fields.h"

#include <gtest/gtest.h>

#include "nfstdm/nfs4/owners.h"
#include "tests/unit/nfs4/samples.h"

namespace nfstdm::nfs4 {
namespace {

TEST(AttributeSets, AreWrittenInAsManyWordsAsTheyNeed) {
    xdr::Writer none;
    AttributeSet{}.put(none);
    EXPECT_EQ(none.size(), 4U);
    xdr::Writer second;
    AttributeSet{Attribute::mode}.put(second);
    EXPECT_EQ(second.size(), 12U);
    AttributeSet back;
    xdr::Reader reader(second.bytes());
    ASSERT_TRUE(back.get(reader) && reader.finished());
    EXPECT_TRUE(back.has(Attribute::mode));
    EXPECT_FALSE(back.has(Attribute::type));
}

TEST(AttributeSets, WithBitsThatNobodyAskedForAreRefused) {
    xdr::Writer writer;
    for (const uint32_t word : {4U, 0U, 0U, 0U, 1U})
        writer.put_u32(word);
    AttributeSet set;
    xdr::Reader reader(writer.bytes());
    EXPECT_FALSE(set.get(reader));
}

TEST(AttributeValuesOfAnObject, AreTheRecordThatNfsv3Gives) {
    xdr::Writer writer;
    samples::put_attributes(writer, object_attributes(), 2, 99, "4321");
    AttributeValues values;
    xdr::Reader reader(writer.bytes());
    ASSERT_TRUE(get_attributes(reader, values) && reader.finished());
    const auto attributes = values.attributes({});
    ASSERT_TRUE(attributes);
    EXPECT_EQ(attributes->type, FileType::directory);
    EXPECT_EQ(attributes->mode, 0644U);
    EXPECT_EQ(attributes->links, 1U);
    EXPECT_EQ(attributes->uid, 4321U);
    EXPECT_EQ(attributes->gid, 100U);
    EXPECT_EQ(attributes->size, 99U);
    EXPECT_EQ(attributes->used, 4096U);
    EXPECT_EQ(attributes->fileid, 42U);
    EXPECT_EQ(attributes->access.seconds, 100U);
    EXPECT_EQ(attributes->modification.seconds, 200U);
    EXPECT_EQ(attributes->change.seconds, 300U);
    EXPECT_EQ(attributes->change.nanoseconds, 5U);
}

TEST(AttributeValuesOfAnObject, TellFileSystemsApartByBothWordsOfTheirNumber) {
    const auto fsid_of = [](uint64_t major, uint64_t minor) {
        xdr::Writer writer;
        AttributeSet{Attribute::fsid}.put(writer);
        writer.put_u32(16);
        writer.put_u64(major);
        writer.put_u64(minor);
        AttributeValues values;
        xdr::Reader reader(writer.bytes());
        EXPECT_TRUE(get_attributes(reader, values));
        return values.object.fsid;
    };
    EXPECT_NE(fsid_of(1, 2), fsid_of(2, 1));
    EXPECT_NE(fsid_of(1, 0), fsid_of(0, 1));
}

TEST(AttributeValuesOfAnObject, AreRefusedWithValuesThatDoNotFillThem) {
    xdr::Writer writer;
    AttributeSet{Attribute::size}.put(writer);
    writer.put_u32(12);
    writer.put_u64(1);
    writer.put_u32(2);
    AttributeValues values;
    xdr::Reader reader(writer.bytes());
    EXPECT_FALSE(get_attributes(reader, values));
}

TEST(AttributeValuesOfAnObject, NameEveryServerOfAFileSystem) {
    xdr::Writer writer;
    samples::put_attributes(writer, {Attribute::fs_locations});
    AttributeValues values;
    xdr::Reader reader(writer.bytes());
    ASSERT_TRUE(get_attributes(reader, values) && reader.finished());
    EXPECT_EQ(values.locations, (std::vector<std::string>{"nas7:/vol/data", "nas8:/vol/data"}));
}

TEST(AttributeValuesOfAnObject, AreRefusedWithAnAttributeWhoseLengthIsNotKnown) {
    xdr::Writer writer;
    AttributeSet{Attribute::supported}.put(writer);
    writer.put_u32(4);
    writer.put_u32(0);
    AttributeValues values;
    xdr::Reader reader(writer.bytes());
    EXPECT_FALSE(get_attributes(reader, values));
}

TEST(Owners, AreNumbersWhereTheServerSaysDigits) {
    EXPECT_EQ(user_number("0"), 0U);
    EXPECT_EQ(user_number("4294967294"), 4294967294U);
    EXPECT_EQ(group_number("77"), 77U);
}

TEST(Owners, AreLookedUpByTheirNameInFrontOfTheDomain) {
    EXPECT_EQ(user_number("root@example.org"), 0U);
    EXPECT_EQ(group_number("root@example.org"), 0U);
}

TEST(Owners, AreNobodyWhenTheSystemDoesNotKnowThem) {
    for (const std::string_view owner :
         {"", "@", "root", "no-such-user@x", "4294967296", "-1", "12x@y", "@example.org", "1@"})
        EXPECT_EQ(user_number(owner), kNobody) << owner;
    EXPECT_EQ(user_number(std::string_view("root\0@x", 7)), kNobody);
}

}  // namespace
}  // namespace nfstdm::nfs4
