// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/rpc/message/starttls.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "nfstdm/rpc/message/constants.h"
#include "nfstdm/xdr/reader.h"
#include "nfstdm/xdr/writer.h"

namespace nfstdm::rpc {
namespace {

constexpr uint32_t kQuestionXid = 77;

class StartTlsTest : public testing::Test {
  protected:
    StartTlsTest() {
        answer_.put_u32(kQuestionXid);
        answer_.put_u32(kReply);
    }

    void accept(uint32_t flavour, std::string_view body, uint32_t state = 0) {
        answer_.put_u32(kMessageAccepted);
        answer_.put_u32(flavour);
        answer_.put_string(body);
        answer_.put_u32(state);
    }

    // Gives the answer as records come: in fragments of so many bytes.
    Status give(std::size_t fragment = 1000) {
        auto rest = answer_.bytes();
        while (!rest.empty()) {
            const std::size_t size = std::min(fragment, rest.size());
            xdr::Writer mark;
            mark.put_u32(static_cast<uint32_t>(size) | (size == rest.size() ? kLastFragment : 0));
            if (Status status = feed(mark.bytes()); !status.ok()) return status;
            if (Status status = feed(rest.first(size)); !status.ok()) return status;
            rest = rest.subspan(size);
        }
        return {};
    }

    Status feed(std::span<const std::byte> bytes) {
        while (!bytes.empty()) {
            const std::size_t size = std::min(bytes.size(), question_.missing());
            if (size == 0) return {EBADMSG, "more than the answer"};
            if (Status status = question_.take(bytes.first(size)); !status.ok()) return status;
            bytes = bytes.subspan(size);
        }
        return {};
    }

    Result<bool> outcome() {
        if (Status status = give(); !status.ok()) return status;
        EXPECT_EQ(question_.missing(), 0U);
        return question_.offered();
    }

    xdr::Writer answer_;
    StartTlsQuestion question_{100003, 3, kQuestionXid};
};

TEST_F(StartTlsTest, AsksWithANullCallOfTheProgramAndTheFlavourOfTls) {
    xdr::Reader reader(question_.call());
    const uint32_t expected[] = {
        kLastFragment | 40, kQuestionXid, kCall, kRpcVersion, 100003, 3, 0, 7, 0, kAuthNone, 0};
    for (const uint32_t word : expected) {
        uint32_t found = 0;
        ASSERT_TRUE(reader.get_u32(found));
        EXPECT_EQ(found, word);
    }
    EXPECT_TRUE(reader.finished());
}

TEST_F(StartTlsTest, TakesTheVerifierForAnOffer) {
    accept(kAuthNone, "STARTTLS");
    const auto offered = outcome();
    ASSERT_TRUE(offered.ok()) << offered.status().text();
    EXPECT_TRUE(offered.value());
}

TEST_F(StartTlsTest, TakesAnOfferInPieces) {
    accept(kAuthNone, "STARTTLS");
    ASSERT_TRUE(give(5).ok());
    EXPECT_EQ(question_.missing(), 0U);
    EXPECT_TRUE(question_.offered().value());
}

TEST_F(StartTlsTest, TakesAnEmptyVerifierForNoOffer) {
    accept(kAuthNone, "");
    const auto offered = outcome();
    ASSERT_TRUE(offered.ok()) << offered.status().text();
    EXPECT_FALSE(offered.value());
}

TEST_F(StartTlsTest, TakesARefusedFlavourForNoOffer) {
    answer_.put_u32(kMessageDenied);
    answer_.put_u32(static_cast<uint32_t>(RejectStatus::auth_error));
    answer_.put_u32(2);  // AUTH_REJECTEDCRED
    const auto offered = outcome();
    ASSERT_TRUE(offered.ok()) << offered.status().text();
    EXPECT_FALSE(offered.value());
}

TEST_F(StartTlsTest, TakesTheWordInAnotherFlavourForNoOffer) {
    accept(kAuthSys, "STARTTLS");
    EXPECT_FALSE(outcome().value());
}

TEST_F(StartTlsTest, TakesALongerWordForNoOffer) {
    accept(kAuthNone, "STARTTLS!");
    EXPECT_FALSE(outcome().value());
}

TEST_F(StartTlsTest, RefusesTheAnswerToAnotherCall) {
    answer_ = xdr::Writer();
    answer_.put_u32(kQuestionXid + 1);
    answer_.put_u32(kReply);
    accept(kAuthNone, "STARTTLS");
    EXPECT_EQ(outcome().status().number(), unsigned{EIO});
}

TEST_F(StartTlsTest, RefusesAnAnswerThatEndsEarly) {
    EXPECT_EQ(outcome().status().number(), unsigned{EIO});
}

TEST_F(StartTlsTest, RefusesARecordThatNoSuchAnswerNeeds) {
    xdr::Writer mark;
    mark.put_u32(kLastFragment | 100000);
    EXPECT_EQ(feed(mark.bytes()).number(), unsigned{EIO});
}

TEST_F(StartTlsTest, RefusesEmptyFragmentsThatCouldGoOnForEver) {
    xdr::Writer mark;
    mark.put_u32(0);
    EXPECT_EQ(feed(mark.bytes()).number(), unsigned{EIO});
}

}  // namespace
}  // namespace nfstdm::rpc
