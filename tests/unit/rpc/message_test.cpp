// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/rpc/message/message.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

#include "nfstdm/rpc/message/constants.h"
#include "nfstdm/xdr/reader.h"
#include "tests/unit/rpc/scripted_server.h"

namespace nfstdm::rpc {
namespace {

using test::begin_reply;
using test::Bytes;
using testing::HasSubstr;

Bytes words(std::initializer_list<uint32_t> values) {
    xdr::Writer writer;
    for (const uint32_t value : values)
        writer.put_u32(value);
    return writer.take();
}

Status judge(const Bytes &reply) {
    return read_reply_header(reply).status;
}

TEST(Call, CarriesItsMarkXidAndNumbers) {
    xdr::Writer writer;
    begin_call(writer, 77, {100003, 3}, 6);
    writer.put_u32(0xABCD);
    Bytes head = writer.take();
    mark_call(head, 12);
    const auto size = static_cast<uint32_t>(head.size() - 4 + 12);
    EXPECT_EQ(head, words({kLastFragment | size, 77, kCall, 2, 100003, 3, 6, 0xABCD}));
}

TEST(ReplyHeader, ShowsWhereTheResultsBegin) {
    for (const std::size_t verifier : {0, 1, 4, 400}) {
        xdr::Writer reply = begin_reply(1, verifier);
        const std::size_t position = reply.size();
        reply.put_u32(5);
        const ReplyHeader header = read_reply_header(reply.bytes());
        EXPECT_TRUE(header.status.ok());
        EXPECT_EQ(header.results, position);
        EXPECT_EQ(results_position(reply.bytes()), position);
    }
}

TEST(ReplyHeader, AsksForMoreBytesUntilTheResultsAreFound) {
    const Bytes reply = begin_reply(1, 10).take();
    std::size_t known = 0;
    while (known < reply.size()) {
        const std::size_t need = results_position(std::span{reply}.first(known));
        ASSERT_GT(need, known);
        ASSERT_LE(need, reply.size());
        known = need;
    }
    EXPECT_EQ(results_position(reply), reply.size());
}

TEST(ReplyHeader, HasNoResultsWhenTheServerRefused) {
    EXPECT_EQ(results_position(words({1, kReply, kMessageDenied, 1, 1, 0})), kWholeRecord);
    EXPECT_EQ(results_position(words({1, kReply, kMessageAccepted, 0, 0, 3})), kWholeRecord);
    EXPECT_EQ(results_position(words({1, kReply, kMessageAccepted, 0, 401, 0})), kWholeRecord);
    EXPECT_EQ(results_position(words({1, kCall, kMessageAccepted, 0, 0, 0})), kWholeRecord);
}

TEST(ReplyHeader, SaysWhatTheServerRefused) {
    const auto accepted = [](uint32_t state) { return words({1, kReply, kMessageAccepted, 0, 0, state, 2, 4}); };
    EXPECT_EQ(judge(accepted(1)).number(), static_cast<uint32_t>(EPROTONOSUPPORT));
    EXPECT_EQ(judge(accepted(2)).number(), static_cast<uint32_t>(EPROTONOSUPPORT));
    EXPECT_THAT(judge(accepted(2)).text(), HasSubstr("versions 2 to 4"));
    EXPECT_EQ(judge(accepted(3)).number(), static_cast<uint32_t>(ENOTSUP));
    EXPECT_EQ(judge(accepted(4)).number(), static_cast<uint32_t>(EIO));
    EXPECT_EQ(judge(accepted(5)).number(), static_cast<uint32_t>(EIO));
    EXPECT_EQ(judge(accepted(6)).number(), static_cast<uint32_t>(EIO));
}

TEST(ReplyHeader, SaysWhatCanBeDoneAboutARefusal) {
    const auto accepted = [](uint32_t state) { return judge(words({1, kReply, kMessageAccepted, 0, 0, state, 2, 4})); };
    EXPECT_TRUE(accepted(1).is(Condition::not_offered));
    EXPECT_TRUE(accepted(2).is(Condition::not_offered));
    EXPECT_TRUE(accepted(3).is(Condition::no_operation));
    EXPECT_TRUE(accepted(5).is(Condition::none));
    EXPECT_EQ(accepted(5).cause().source, Cause::Source::rpc);
    EXPECT_EQ(accepted(5).cause().number, 5U);
    const Status denied = judge(words({1, kReply, kMessageDenied, 1, 3}));
    EXPECT_TRUE(denied.is(Condition::credential));
    EXPECT_EQ(denied.cause().number, 3U);
}

TEST(ReplyHeader, SaysWhyTheIdentityWasRefused) {
    const auto denied = [](uint32_t reason) { return judge(words({1, kReply, kMessageDenied, 1, reason})); };
    EXPECT_EQ(denied(5).number(), static_cast<uint32_t>(EACCES));
    EXPECT_THAT(denied(5).text(), HasSubstr("too weak"));
    EXPECT_THAT(denied(1).text(), HasSubstr("bad credential"));
    EXPECT_THAT(denied(0xFFFFFFFF).text(), HasSubstr("no reason given"));
    EXPECT_EQ(judge(words({1, kReply, kMessageDenied, 0, 2, 2})).number(), static_cast<uint32_t>(EPROTONOSUPPORT));
    EXPECT_EQ(judge(words({1, kReply, kMessageDenied, 2, 2})).number(), static_cast<uint32_t>(EIO));
}

TEST(ReplyHeader, IsRefusedAtEveryTruncation) {
    for (const Bytes &whole : {begin_reply(1, 6).take(), words({1, kReply, kMessageDenied, 1, 5}),
                               words({1, kReply, kMessageAccepted, 0, 0, 2, 2, 4})}) {
        for (std::size_t size = 0; size < whole.size(); ++size)
            EXPECT_FALSE(judge(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size))).ok());
    }
}

}  // namespace
}  // namespace nfstdm::rpc
