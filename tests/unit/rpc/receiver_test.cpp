// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/rpc/receiver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <random>

#include "nfstdm/rpc/message/constants.h"
#include "tests/unit/rpc/scripted_server.h"

namespace nfstdm::rpc {
namespace {

using test::Bytes;
using test::bytes_of;
using test::joined;
using test::record;

struct Arrival {
    uint32_t xid;
    Bytes reply;
    std::size_t landed;
    bool whole;
};

// Results that are one word and then opaque data.
std::size_t after_one_word(std::span<const std::byte>) {
    return 8;
}

class ReceiverTest : public testing::Test, public RecordSink {
  protected:
    Request *expected(uint32_t xid) override {
        const auto found = requests.find(xid);
        return found == requests.end() ? nullptr : &found->second;
    }
    std::size_t record_maximum() const override { return maximum; }
    void record_received(Request &request, bool whole) override {
        arrivals.push_back({request.xid(), request.reply, request.landed, whole});
    }

    Request &expect(uint32_t xid, std::size_t results_maximum) {
        Request &request = requests[xid];
        request.sequence = xid;
        request.results_maximum = results_maximum;
        return request;
    }
    Request &expect_data(uint32_t xid, std::size_t size) {
        Request &request = expect(xid, 64);
        landing.assign(size, std::byte{0xEE});
        request.landing = landing;
        request.data_position = after_one_word;
        return request;
    }

    // Feeds bytes in pieces of at most step.
    Status feed(const Bytes &bytes, std::size_t step) {
        std::size_t at = 0;
        while (at < bytes.size()) {
            std::array<iovec, 2> areas;
            const std::size_t count = receiver.places(areas);
            std::size_t left = std::min(step, bytes.size() - at);
            std::size_t filled = 0;
            for (std::size_t i = 0; i < count; ++i) {
                const std::size_t size = std::min(left, areas[i].iov_len);
                std::memcpy(areas[i].iov_base, bytes.data() + at, size);
                at += size;
                left -= size;
                filled += size;
            }
            if (Status status = receiver.filled(filled); !status.ok()) return status;
        }
        return {};
    }
    Status feed(const Bytes &bytes) { return feed(bytes, bytes.size()); }

    std::map<uint32_t, Request> requests;
    Bytes landing;
    std::vector<Arrival> arrivals;
    std::size_t maximum = 1 << 20;
    Receiver receiver{*this};
};

Bytes plain_reply(uint32_t xid, std::string_view results) {
    xdr::Writer writer = test::begin_reply(xid);
    writer.put_fixed(bytes_of(results));
    return writer.take();
}

Bytes data_reply(uint32_t xid, std::string_view data, std::size_t verifier = 0) {
    xdr::Writer writer = test::begin_reply(xid, verifier);
    writer.put_u32(42);
    writer.put_string(data);
    return writer.take();
}

// The payload in two fragments.
Bytes fragments(const Bytes &payload, std::size_t first) {
    xdr::Writer one, two;
    one.put_u32(static_cast<uint32_t>(first));
    two.put_u32(kLastFragment | static_cast<uint32_t>(payload.size() - first));
    return joined({one.bytes(), std::span{payload}.first(first), two.bytes(), std::span{payload}.subspan(first)});
}

TEST_F(ReceiverTest, TakesRecordsInPiecesOfAnySize) {
    const Bytes stream =
        joined({record(plain_reply(1, "abcdefgh")), record(data_reply(2, "hello")), record(plain_reply(3, "ijkl"))});
    for (std::size_t step = 1; step <= stream.size(); ++step) {
        SCOPED_TRACE(step);
        arrivals.clear();
        expect(1, 64);
        expect_data(2, 5);
        expect(3, 64);
        ASSERT_TRUE(feed(stream, step).ok());
        ASSERT_EQ(arrivals.size(), 3U);
        EXPECT_EQ(arrivals[0].reply, plain_reply(1, "abcdefgh"));
        EXPECT_EQ(arrivals[1].landed, 5U);
        EXPECT_EQ(landing, bytes_of("hello"));
        EXPECT_EQ(arrivals[2].reply, plain_reply(3, "ijkl"));
        EXPECT_TRUE(arrivals[0].whole && arrivals[1].whole && arrivals[2].whole);
    }
}

TEST_F(ReceiverTest, JoinsFragmentsCutAnywhere) {
    const Bytes payload = data_reply(2, "hello", 8);
    for (std::size_t first = 1; first < payload.size(); ++first) {
        for (const std::size_t step : {std::size_t{1}, std::size_t{3}, std::size_t{1000}}) {
            SCOPED_TRACE(testing::Message() << first << " " << step);
            arrivals.clear();
            expect_data(2, 5);
            ASSERT_TRUE(feed(fragments(payload, first), step).ok());
            ASSERT_EQ(arrivals.size(), 1U);
            EXPECT_TRUE(arrivals[0].whole);
            EXPECT_EQ(landing, bytes_of("hello"));
        }
    }
}

TEST_F(ReceiverTest, OffersTheCallersBufferForTheData) {
    expect_data(2, 100000);
    const Bytes payload = data_reply(2, std::string(100000, 'x'));
    const Bytes stream = record(payload);
    ASSERT_TRUE(feed({stream.begin(), stream.begin() + 40}).ok());  // mark, header, word, length, four bytes of data
    ASSERT_EQ(receiver.state(), Receiver::State::data);
    std::array<iovec, 2> areas;
    ASSERT_EQ(receiver.places(areas), 2U);
    EXPECT_EQ(areas[0].iov_base, landing.data() + 4);
    EXPECT_EQ(areas[0].iov_len, landing.size() - 4);
}

TEST_F(ReceiverTest, SkipsWhatNobodyWaitsFor) {
    expect(7, 64);
    ASSERT_TRUE(
        feed(joined({record(plain_reply(6, std::string(5000, 'x'))), record(plain_reply(7, "good"))}), 100).ok());
    ASSERT_EQ(arrivals.size(), 1U);
    EXPECT_EQ(arrivals[0].xid, 7U);
}

TEST_F(ReceiverTest, RefusesARecordLargerThanAnythingAskedFor) {
    maximum = 1000;
    expect(1, 64);
    const Status status = feed({std::byte{0x80}, std::byte{0}, std::byte{3}, std::byte{0xE9}});  // a mark of 1001 bytes
    EXPECT_FALSE(status.ok());
    EXPECT_THAT(status.text(), testing::HasSubstr("larger"));
}

TEST_F(ReceiverTest, RefusesARecordLargerThanWhatItsRequestAskedFor) {
    Request &small = expect(1, 4);
    EXPECT_FALSE(feed(record(Bytes(plain_reply(1, std::string(small.record_maximum(), 'x'))))).ok());
    EXPECT_TRUE(arrivals.empty());
}

TEST_F(ReceiverTest, RefusesFragmentsThatAddUpToTooMuch) {
    maximum = 100;
    expect(1, 0);
    const Bytes half(60);
    EXPECT_FALSE(feed(fragments(joined({half, half}), 60)).ok());
}

TEST_F(ReceiverTest, RefusesEmptyFragmentsAndRecordsWithoutAnXid) {
    EXPECT_FALSE(feed(Bytes(4)).ok());
    receiver.reset();
    EXPECT_FALSE(feed(record(Bytes(3))).ok());
    receiver.reset();
    EXPECT_FALSE(feed(record({})).ok());
}

TEST_F(ReceiverTest, TakesAnEmptyLastFragment) {
    const Bytes payload = plain_reply(1, "abcd");
    expect(1, 64);
    ASSERT_TRUE(feed(fragments(payload, payload.size())).ok());
    ASSERT_EQ(arrivals.size(), 1U);
    EXPECT_TRUE(arrivals[0].whole);
    EXPECT_EQ(arrivals[0].reply, payload);
}

TEST_F(ReceiverTest, NeverPutsMoreIntoTheBufferThanItHolds) {
    expect_data(2, 4);
    Bytes guarded(16, std::byte{0xEE});
    requests[2].landing = std::span{guarded}.first(4);
    ASSERT_TRUE(feed(record(data_reply(2, "hello"))).ok());
    ASSERT_EQ(arrivals.size(), 1U);
    EXPECT_EQ(arrivals[0].landed, 0U);
    EXPECT_EQ(guarded, Bytes(16, std::byte{0xEE}));
}

TEST_F(ReceiverTest, SaysWhenARecordEndsBeforeItsDataOrGoesOnBehindIt) {
    const Bytes payload = data_reply(2, "hello");
    for (std::size_t size = 4; size < payload.size(); ++size) {
        expect_data(2, 5);
        arrivals.clear();
        ASSERT_TRUE(feed(record(std::span{payload}.first(size))).ok());
        ASSERT_EQ(arrivals.size(), 1U);
        EXPECT_FALSE(arrivals[0].whole) << size;
    }
    expect_data(2, 5);
    arrivals.clear();
    ASSERT_TRUE(feed(record(joined({payload, Bytes(4)}))).ok());
    EXPECT_FALSE(arrivals.at(0).whole);
}

TEST_F(ReceiverTest, CollectsARefusalLikeAnyReply) {
    expect_data(2, 5);
    xdr::Writer refused;
    for (const uint32_t word : {2U, kReply, kMessageDenied, 1U, 5U})
        refused.put_u32(word);
    ASSERT_TRUE(feed(record(joined({refused.bytes(), Bytes(4)})), 1).ok());
    ASSERT_EQ(arrivals.size(), 1U);
    EXPECT_TRUE(arrivals[0].whole);
    EXPECT_EQ(arrivals[0].landed, 0U);
}

TEST_F(ReceiverTest, LeavesTheBufferOfAnAbandonedRequestAlone) {
    const Bytes payload = data_reply(2, "hello, hello");
    for (std::size_t before = 1; before < payload.size() + 4; ++before) {
        expect_data(2, 12);
        expect(3, 64);
        arrivals.clear();
        receiver.reset();
        const Bytes stream = record(payload);
        const auto cut = stream.begin() + static_cast<std::ptrdiff_t>(before);
        ASSERT_TRUE(feed({stream.begin(), cut}).ok());
        receiver.abandon(requests[2]);
        requests.erase(2);
        const Bytes as_it_was = landing;
        ASSERT_TRUE(feed({cut, stream.end()}).ok());
        EXPECT_EQ(landing, as_it_was);
        ASSERT_TRUE(feed(record(plain_reply(3, "next"))).ok());
        ASSERT_EQ(arrivals.size(), 1U) << before;
        EXPECT_EQ(arrivals[0].xid, 3U);
    }
}

TEST_F(ReceiverTest, AbandonsBetweenTwoFragmentsToo) {
    const Bytes payload = data_reply(2, "hello");
    const Bytes stream = fragments(payload, 34);
    expect_data(2, 5);
    ASSERT_TRUE(feed({stream.begin(), stream.begin() + 38}).ok());
    ASSERT_EQ(receiver.state(), Receiver::State::mark);
    receiver.abandon(requests[2]);
    requests.erase(2);
    ASSERT_TRUE(feed({stream.begin() + 38, stream.end()}).ok());
    EXPECT_TRUE(arrivals.empty());
    EXPECT_EQ(receiver.state(), Receiver::State::mark);
}

TEST_F(ReceiverTest, StartsTheDataAnewWhenTheReplyComesAgain) {
    expect_data(2, 5);
    const Bytes stream = record(data_reply(2, "hello"));
    ASSERT_TRUE(feed({stream.begin(), stream.end() - 5}).ok());
    EXPECT_EQ(requests[2].landed, 3U);
    receiver.reset();  // the connection broke
    ASSERT_TRUE(feed(stream).ok());
    ASSERT_EQ(arrivals.size(), 1U);
    EXPECT_EQ(arrivals[0].landed, 5U);
    EXPECT_EQ(landing, bytes_of("hello"));
}

TEST_F(ReceiverTest, SurvivesEveryBitFlipAndRandomBytes) {
    maximum = 4096;
    const Bytes good = joined({record(data_reply(2, "hello", 8)), record(plain_reply(1, "abcd"))});
    const auto judge = [this](const Bytes &stream) {
        receiver.reset();
        expect(1, 64);
        expect_data(2, 5);
        static_cast<void>(feed(stream, 7));
        EXPECT_LE(requests[1].reply.size() + requests[2].reply.size(), 2 * maximum);
    };
    for (std::size_t bit = 0; bit < good.size() * 8; ++bit) {
        Bytes flipped = good;
        flipped[bit / 8] ^= static_cast<std::byte>(1 << bit % 8);
        judge(flipped);
    }
    std::minstd_rand random(1);
    for (int i = 0; i < 2000; ++i) {
        Bytes noise = good;
        for (int j = 0; j < 8; ++j)
            noise[random() % noise.size()] = static_cast<std::byte>(random());
        judge(noise);
    }
}

}  // namespace
}  // namespace nfstdm::rpc
