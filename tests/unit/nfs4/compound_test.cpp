// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/nfs4/compound.h"

#include <gtest/gtest.h>

#include "nfstdm/nfs4/arguments.h"
#include "nfstdm/nfs4/replies.h"
#include "nfstdm/rpc/message/message.h"
#include "tests/unit/nfs4/samples.h"

namespace nfstdm::nfs4 {
namespace {

TEST(Compounds, CountTheirOperationsAndKnowWhetherTheyChangeAnything) {
    Compound compound(1);
    put_plain(compound, Op::putrootfh);
    put_lookup(compound, "name");
    EXPECT_FALSE(compound.changes());
    put_remove(compound, "name");
    EXPECT_TRUE(compound.changes());
    EXPECT_TRUE(compound.ok());
    const auto bytes = compound.take();
    xdr::Reader reader(bytes);
    std::string_view tag;
    uint32_t minor = 0;
    uint32_t count = 0;
    ASSERT_TRUE(reader.get_string(tag, 0) && reader.get_u32(minor) && reader.get_u32(count));
    EXPECT_EQ(minor, 1U);
    EXPECT_EQ(count, 3U);
}

TEST(Compounds, FailWithANameThatIsTooLong) {
    Compound compound(1);
    put_lookup(compound, std::string(kNameMaximum + 1, 'x'));
    EXPECT_FALSE(compound.ok());
}

void put_head(xdr::Writer &writer, NfsStatus status, uint32_t count) {
    writer.put_u32(static_cast<uint32_t>(status));
    writer.put_string("tag");
    writer.put_u32(count);
}

void put_result(xdr::Writer &writer, Op op, NfsStatus status = NfsStatus::ok) {
    writer.put_u32(static_cast<uint32_t>(op));
    writer.put_u32(static_cast<uint32_t>(status));
}

TEST(CompoundResults, AreWalkedThroughInOrder) {
    xdr::Writer writer;
    put_head(writer, NfsStatus::ok, 2);
    put_result(writer, Op::putfh);
    put_result(writer, Op::lookup);
    Results results(writer.bytes());
    EXPECT_TRUE(results.next(Op::putfh));
    EXPECT_FALSE(results.finished());
    EXPECT_TRUE(results.next(Op::lookup));
    EXPECT_TRUE(results.finished());
}

TEST(CompoundResults, TellWhichFailureEndedThem) {
    xdr::Writer writer;
    put_head(writer, NfsStatus::noent, 2);
    put_result(writer, Op::putfh);
    put_result(writer, Op::lookup, NfsStatus::noent);
    Results results(writer.bytes());
    EXPECT_TRUE(results.next(Op::putfh));
    EXPECT_FALSE(results.next(Op::lookup));
    EXPECT_EQ(results.failure(), NfsStatus::noent);
    EXPECT_EQ(results.failed_op(), Op::lookup);
    EXPECT_FALSE(results.next(Op::getfh));
    EXPECT_EQ(results.failed_op(), Op::lookup);
}

TEST(CompoundResults, WithoutAnyTellTheFailureOfTheWhole) {
    xdr::Writer writer;
    put_head(writer, NfsStatus::minor_vers_mismatch, 0);
    Results results(writer.bytes());
    EXPECT_FALSE(results.next(Op::sequence));
    EXPECT_EQ(results.failure(), NfsStatus::minor_vers_mismatch);
}

TEST(CompoundResults, OfAnotherOperationAreNoResults) {
    xdr::Writer writer;
    put_head(writer, NfsStatus::ok, 1);
    put_result(writer, Op::getfh);
    Results results(writer.bytes());
    EXPECT_FALSE(results.next(Op::putfh));
    EXPECT_EQ(results.failure(), NfsStatus::ok);
    EXPECT_FALSE(results.finished());
}

TEST(CompoundResults, ThatEndEarlyAreNotWhole) {
    xdr::Writer writer;
    put_head(writer, NfsStatus::ok, 1);
    put_result(writer, Op::putfh);
    Results results(writer.bytes());
    EXPECT_TRUE(results.next(Op::putfh));
    EXPECT_FALSE(results.next(Op::lookup));
    EXPECT_FALSE(results.finished());
}

// A READ at the end of a compound, with or without an OPEN before it, and the bytes before its data.
std::vector<std::byte> read_results(bool with_open) {
    xdr::Writer writer;
    put_head(writer, NfsStatus::ok, with_open ? 4 : 3);
    put_result(writer, Op::sequence);
    samples::put_sequence(writer, {}, 1, 2, 3);
    put_result(writer, Op::putfh);
    if (with_open) {
        put_result(writer, Op::open);
        samples::put_open(writer, samples::state_id(1));
    }
    put_result(writer, Op::read);
    writer.put_bool(true);
    writer.put_u32(5);
    return writer.take();
}

TEST(ReadDataPosition, IsFoundHoweverFewBytesAreKnownAtFirst) {
    for (const bool with_open : {false, true}) {
        const auto head = read_results(with_open);
        auto all = head;
        all.resize(all.size() + 8, std::byte{0xFF});
        std::size_t known = 0;
        while (true) {
            const std::size_t position = read_data_position(std::span{all}.first(known));
            ASSERT_LE(position, head.size());
            if (position == known) break;
            ASSERT_GT(position, known) << "no step forward";
            known = position;
        }
        EXPECT_EQ(known, head.size());
    }
}

TEST(ReadDataPosition, IsNoneWhenTheCompoundFailed) {
    xdr::Writer writer;
    put_head(writer, NfsStatus::stale, 1);
    EXPECT_EQ(read_data_position(writer.bytes()), rpc::kWholeRecord);
}

}  // namespace
}  // namespace nfstdm::nfs4
