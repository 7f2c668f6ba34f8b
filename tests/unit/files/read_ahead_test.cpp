// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/files/read_ahead.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>

#include "tests/unit/files/fake_volume.h"

namespace nfstdm {
namespace {

using test::FakeServer;
using test::FakeVolume;
using test::Op;
using test::pattern;

constexpr std::size_t kRequest = 8 << 10;
constexpr std::size_t kLarge = 256 << 10;  // bytes of one READ
constexpr std::size_t kPool = ReadAhead::kWidest * kLarge;

class ReadAheadTest : public ::testing::Test {
  protected:
    using Time = ReadAhead::Clock::time_point;

    void open(std::size_t size) {
        content_ = pattern(size);
        file_ = server_.add_file("/f", content_);
        window_.emplace(volume_, server_.handle(file_), kLarge, pool_, [this] { return now_; });
        window_->expect_size(size);
    }

    struct Read {
        std::vector<std::byte> bytes;
        std::optional<Status> result;
        bool is(std::span<const std::byte> expected) const {
            return result && result->ok() && bytes.size() == expected.size() &&
                   std::memcmp(bytes.data(), expected.data(), bytes.size()) == 0;
        }
    };
    std::shared_ptr<Read> start(uint64_t offset, std::size_t size) {
        auto read = std::make_shared<Read>();
        read->bytes.assign(size, std::byte{0xee});
        window_->read(offset, read->bytes, [read](Status status) {
            EXPECT_FALSE(read->result) << "completed twice";
            read->result = std::move(status);
        });
        return read;
    }
    // As a caller does: asks and waits.
    std::shared_ptr<Read> read(uint64_t offset, std::size_t size) {
        auto read = start(offset, size);
        if (volume_.held)
            while (!read->result)
                volume_.answer_first();
        else
            loop_.run_until([&] { return read->result.has_value(); });
        return read;
    }
    std::span<const std::byte> borrow(uint64_t offset, std::size_t most) {
        window_->ask(offset);
        while (!window_->has_come(offset)) {
            if (volume_.held)
                volume_.answer_first();
            else
                loop_.poll_once();
        }
        return window_->lend(offset, most);
    }
    std::span<const std::byte> content(uint64_t offset, std::size_t size) const {
        return std::span(content_).subspan(offset, size);
    }

    Time now_{std::chrono::seconds(1)};  // stands still unless the test moves it
    EventLoop loop_;
    FakeServer server_;
    FakeVolume volume_{loop_, server_};
    BufferPool pool_{kPool};
    std::vector<std::byte> content_;
    uint64_t file_ = 0;
    std::optional<ReadAhead> window_;
};

TEST_F(ReadAheadTest, SmallRequestsInSequenceKeepSeveralLargeReadsInFlight) {
    open(40 * kLarge);
    volume_.held = true;
    std::size_t least = SIZE_MAX;
    for (uint64_t offset = 0; offset < content_.size(); offset += kRequest) {
        ASSERT_TRUE(read(offset, kRequest)->is(content(offset, kRequest)));
        if (offset >= 4 * kLarge && offset < 20 * kLarge) least = std::min(least, volume_.waiting_for(Op::read));
    }
    EXPECT_GE(least, 2U);
    EXPECT_EQ(volume_.largest, kLarge);
    EXPECT_EQ(server_.calls[Op::read], 40U);
    EXPECT_LE(volume_.most_waiting, ReadAhead::kWidest);
}

// Plays a line on which a READ takes at least a time, and one ends a time after the other.
class ReadAheadOnALine : public ReadAheadTest {
  protected:
    using microseconds = std::chrono::microseconds;

    ReadAheadOnALine() {
        open(kReads * kLarge);
        volume_.held = true;
    }

    // Reads on, some READs long, over a line of this length on which READs end with this spacing.
    void transfer(std::size_t reads, microseconds length, microseconds spacing) {
        for (const std::size_t last = next_ + reads; next_ < last; ++next_) {
            const auto asked = start(next_ * kLarge, kLarge);
            while (!asked->result) {
                sent_.resize(volume_.waiting_for(Op::read), now_);
                most_ = std::max(most_, sent_.size());
                now_ = std::max(now_ + spacing, sent_.front() + length);
                sent_.pop_front();
                volume_.answer_first();
            }
        }
    }

    static constexpr std::size_t kReads = 120;
    std::size_t next_ = 0;
    std::size_t most_ = 0;   // READs that were on the wire at once
    std::deque<Time> sent_;  // when the READs on the wire were
};

TEST_F(ReadAheadOnALine, IsNarrowNextToTheServer) {
    transfer(40, microseconds(300), microseconds(300));
    EXPECT_EQ(most_, 3U);
}

TEST_F(ReadAheadOnALine, IsWideOverADistance) {
    transfer(40, microseconds(100000), microseconds(100));
    EXPECT_EQ(most_, ReadAhead::kWidest);
}

TEST_F(ReadAheadOnALine, BecomesNarrowWhereAWideWindowBringsNothing) {
    transfer(40, microseconds(1000), microseconds(100));
    EXPECT_EQ(most_, ReadAhead::kWidest);
    transfer(40, microseconds(1000), microseconds(1000));
    most_ = 0;
    transfer(20, microseconds(1000), microseconds(1000));
    EXPECT_EQ(most_, 3U);
}

TEST_F(ReadAheadTest, RandomRequestsReadOnlyWhatTheyAskFor) {
    open(20 * kLarge);
    volume_.held = true;
    for (const uint64_t offset : {7 * kLarge, 3 * kLarge, 15 * kLarge, 1 * kLarge, 11 * kLarge})
        ASSERT_TRUE(read(offset + 5, kRequest)->is(content(offset + 5, kRequest)));
    EXPECT_EQ(volume_.most_waiting, 1U);
    EXPECT_EQ(volume_.largest, kRequest);
    EXPECT_EQ(server_.calls[Op::read], 5U);
}

TEST_F(ReadAheadTest, AfterASeekTheWindowStartsNarrowWithTheNextRequest) {
    open(20 * kLarge);
    volume_.held = true;
    read(9 * kLarge, kRequest);
    start(9 * kLarge + kRequest, kRequest);
    EXPECT_GE(volume_.waiting_for(Op::read), 1U);
    EXPECT_LE(volume_.waiting_for(Op::read), 2U);
    volume_.answer_all();
}

TEST_F(ReadAheadTest, TheWindowIsWidenedOnlyWhenARequestHadToWait) {
    open(20 * kLarge);
    read(0, kRequest);
    const unsigned after_first = server_.calls[Op::read];
    for (uint64_t offset = kRequest; offset < kLarge; offset += kRequest)
        read(offset, kRequest);
    loop_.poll_once();
    EXPECT_LE(server_.calls[Op::read], 2 * after_first + 1);
}

TEST_F(ReadAheadTest, NothingIsReadBeyondTheKnownEnd) {
    open(10000);
    volume_.held = true;
    ASSERT_TRUE(read(0, 4096)->is(content(0, 4096)));
    EXPECT_EQ(server_.calls[Op::read], 1U);
    EXPECT_EQ(volume_.largest, 10000U);
    EXPECT_TRUE(volume_.waiting.empty());
}

TEST_F(ReadAheadTest, AtTheEndTheBytesThereAreComeAndTheRestIsZero) {
    open(kLarge + 100);
    for (uint64_t offset = 0; offset < kLarge; offset += kRequest)
        read(offset, kRequest);
    auto tail = content(kLarge, 100);
    std::vector<std::byte> expected(tail.begin(), tail.end());
    expected.resize(kRequest);
    EXPECT_TRUE(read(kLarge, kRequest)->is(expected));
    EXPECT_TRUE(read(kLarge + kRequest, kRequest)->is(std::vector<std::byte>(kRequest)));
}

TEST_F(ReadAheadTest, AFileThatEndsBeforeTheSizeThatWasToldIsAnErrorAndNoZeros) {
    open(kLarge + 100);
    window_->expect_size(kLarge + 101);
    for (uint64_t offset = 0; offset < kLarge; offset += kRequest)
        ASSERT_TRUE(read(offset, kRequest)->is(content(offset, kRequest)));
    EXPECT_EQ(read(kLarge, kRequest)->result->number(), uint32_t{EIO});
    EXPECT_TRUE(read(kLarge, 100)->is(content(kLarge, 100)));

    window_->expect_size(UINT64_MAX);
    EXPECT_EQ(read(kLarge + 50, kRequest)->result->number(), uint32_t{EIO});
    EXPECT_EQ(read(UINT64_MAX - kRequest, kRequest)->result->number(), uint32_t{EIO});
}

TEST_F(ReadAheadTest, AFileThatGrewIsReadToItsNewEnd) {
    open(1000);
    EXPECT_TRUE(read(0, 1000)->is(content(0, 1000)));
    content_ = pattern(5000);
    server_.node(file_).data = content_;
    server_.node(file_).attributes.size = 5000;
    EXPECT_TRUE(read(1000, 4000)->is(content(1000, 4000)));
}

TEST_F(ReadAheadTest, AShortReadBeforeTheEndIsContinued) {
    open(3 * kLarge + 17);
    server_.read_at_most = 100000;
    for (uint64_t offset = 0; offset + kRequest <= content_.size(); offset += kRequest)
        ASSERT_TRUE(read(offset, kRequest)->is(content(offset, kRequest)));
    EXPECT_TRUE(read(5, 2 * kLarge)->is(content(5, 2 * kLarge)));
}

TEST_F(ReadAheadTest, AReadOfNothingBeforeTheEndIsAnErrorAndNotAnEndlessLoop) {
    open(kLarge);
    server_.read_at_most = 0;
    EXPECT_EQ(read(0, kRequest)->result->number(), uint32_t{EIO});
    EXPECT_EQ(read(50, kRequest)->result->number(), uint32_t{EIO});
}

TEST_F(ReadAheadTest, ARequestAcrossSeveralReadsIsPutTogether) {
    open(5 * kLarge);
    read(0, kRequest);
    EXPECT_TRUE(read(kRequest, 3 * kLarge)->is(content(kRequest, 3 * kLarge)));
}

TEST_F(ReadAheadTest, RepliesInAnyOrderServeRequestsRight) {
    open(8 * kLarge);
    volume_.held = true;
    std::vector<std::shared_ptr<Read>> reads;
    for (uint64_t offset = 0; offset < 4 * kLarge; offset += kRequest)
        reads.push_back(start(offset, kRequest));
    while (!volume_.waiting.empty())
        volume_.answer_last();
    for (std::size_t i = 0; i < reads.size(); ++i)
        ASSERT_TRUE(reads[i]->is(content(i * kRequest, kRequest))) << i;
    EXPECT_TRUE(window_->idle());
}

TEST_F(ReadAheadTest, AFailureReachesTheRequestThatNeedsItAndAskingAgainReadsAgain) {
    open(4 * kLarge);
    volume_.held = true;
    server_.failures[Op::read] = {0, EIO};
    ASSERT_TRUE(read(0, kRequest)->is(content(0, kRequest)));
    volume_.answer_all();
    for (uint64_t offset = kRequest; offset < kLarge; offset += kRequest)
        ASSERT_TRUE(read(offset, kRequest)->is(content(offset, kRequest)));
    EXPECT_EQ(read(kLarge, kRequest)->result->number(), uint32_t{EIO});
    EXPECT_TRUE(read(kLarge, kRequest)->is(content(kLarge, kRequest)));
}

TEST_F(ReadAheadTest, WhatWasForgottenIsReadAgain) {
    open(2 * kLarge);
    read(0, kRequest);
    content_ = pattern(2 * kLarge, 2);
    server_.node(file_).data = content_;
    window_->forget();
    EXPECT_TRUE(read(kRequest, kRequest)->is(content(kRequest, kRequest)));
}

TEST_F(ReadAheadTest, RequestsThatWaitSurviveForgetting) {
    open(4 * kLarge);
    volume_.held = true;
    auto first = start(0, kRequest);
    window_->forget();
    volume_.answer_all();
    EXPECT_TRUE(first->is(content(0, kRequest)));
    EXPECT_TRUE(window_->idle());
}

TEST_F(ReadAheadTest, WithoutMemoryForAWindowRequestsAreReadByThemselves) {
    open(4 * kLarge);
    const auto hog = pool_.take(kPool);
    ASSERT_TRUE(hog);
    for (uint64_t offset = 0; offset < kLarge; offset += kRequest)
        ASSERT_TRUE(read(offset, kRequest)->is(content(offset, kRequest)));
    EXPECT_EQ(volume_.largest, kRequest);
}

TEST_F(ReadAheadTest, RepliesAfterTheWindowIsGoneTouchNothing) {
    open(4 * kLarge);
    volume_.held = true;
    read(0, kRequest);
    window_.reset();
    volume_.answer_all();
    EXPECT_EQ(pool_.taken(), 0U);
}

TEST_F(ReadAheadTest, AFileIsLentFromItsBeginningToItsEndAndNoByteOfItCopied) {
    open(20 * kLarge + 100);
    volume_.held = true;
    std::size_t least = SIZE_MAX;
    std::size_t loans = 0;
    for (uint64_t offset = 0; offset < content_.size(); ++loans) {
        const auto lent = borrow(offset, 200 << 10);
        ASSERT_FALSE(lent.empty());
        ASSERT_LE(lent.size(), 200U << 10);
        ASSERT_TRUE(std::ranges::equal(lent, content(offset, lent.size()))) << offset;
        offset += lent.size();
        if (offset >= 4 * kLarge && offset < 16 * kLarge) least = std::min(least, volume_.waiting_for(Op::read));
    }
    EXPECT_EQ(loans, 2 * 20 + 1U) << "of each READ 200 KiB, then the rest";
    EXPECT_GE(least, 2U);
    EXPECT_EQ(server_.calls[Op::read], 21U);
    EXPECT_TRUE(borrow(content_.size(), 1).empty()) << "behind the end";
}

TEST_F(ReadAheadTest, WhatIsLentStaysWhileLaterReadsArrive) {
    open(10 * kLarge);
    volume_.held = true;
    const auto lent = borrow(0, kLarge);
    volume_.answer_all();
    EXPECT_TRUE(std::ranges::equal(lent, content(0, kLarge)));
}

TEST_F(ReadAheadTest, LoansAndRequestsFollowEachOther) {
    open(6 * kLarge);
    for (uint64_t offset = 0; offset < content_.size();) {
        const auto lent = borrow(offset, 3000);
        ASSERT_TRUE(!lent.empty() && std::ranges::equal(lent, content(offset, lent.size()))) << offset;
        offset += lent.size();
        const std::size_t size = std::min<std::size_t>(kRequest, content_.size() - offset);
        ASSERT_TRUE(read(offset, size)->is(content(offset, size))) << offset;
        offset += size;
    }
    EXPECT_EQ(server_.calls[Op::read], 6U);
}

TEST_F(ReadAheadTest, NothingIsLentElsewhereUntilARequestHasGoneOnThere) {
    open(20 * kLarge);
    ASSERT_FALSE(borrow(0, kLarge).empty());
    EXPECT_TRUE(borrow(10 * kLarge, kLarge).empty());
    ASSERT_TRUE(read(10 * kLarge, kRequest)->is(content(10 * kLarge, kRequest)));
    const auto lent = borrow(10 * kLarge + kRequest, kRequest);
    EXPECT_TRUE(std::ranges::equal(lent, content(10 * kLarge + kRequest, kRequest)));
}

TEST_F(ReadAheadTest, AReadThatFailedIsNotLentAndTheRequestTellsWhyWithoutAskingAgain) {
    open(4 * kLarge);
    volume_.held = true;
    server_.failures[Op::read] = {0, EIO};
    ASSERT_FALSE(borrow(0, kLarge).empty());
    volume_.answer_all();
    const auto calls = server_.calls[Op::read];
    EXPECT_TRUE(borrow(kLarge, kLarge).empty());
    const auto failed = start(kLarge, kRequest);
    ASSERT_TRUE(failed->result);
    EXPECT_EQ(failed->result->number(), uint32_t{EIO});
    EXPECT_EQ(server_.calls[Op::read], calls);
}

TEST_F(ReadAheadTest, AFileThatEndsBeforeTheSizeThatWasToldIsLentAsFarAsItGoes) {
    open(kLarge + 100);
    window_->expect_size(2 * kLarge);
    EXPECT_EQ(borrow(0, kLarge).size(), kLarge);
    EXPECT_TRUE(std::ranges::equal(borrow(kLarge, kLarge), content(kLarge, 100)));
    EXPECT_TRUE(borrow(kLarge + 100, kLarge).empty());
    EXPECT_EQ(read(kLarge + 100, kRequest)->result->number(), uint32_t{EIO});
}

TEST_F(ReadAheadTest, NothingIsLentWhereThereIsNoMemoryForAWindow) {
    open(kLarge);
    const auto everything = pool_.take(kPool);
    EXPECT_TRUE(borrow(0, kLarge).empty());
}

TEST_F(ReadAheadTest, TheWindowNeverHoldsMoreThanItsPool) {
    open(64 * kLarge);
    for (uint64_t offset = 0; offset < content_.size(); offset += kRequest) {
        ASSERT_TRUE(read(offset, kRequest)->is(content(offset, kRequest)));
        ASSERT_LE(pool_.taken(), kPool);
    }
}

TEST_F(ReadAheadTest, RequestsOfAnySizeAndPlaceGiveTheFilesBytes) {
    open(3 * kLarge + 777);
    server_.read_at_most = 300000;
    uint64_t state = 42;
    const auto random = [&state](uint64_t below) {
        state = state * 6364136223846793005U + 1442695040888963407U;
        return (state >> 33) % below;
    };
    uint64_t offset = 0;
    for (int i = 0; i < 400; ++i) {
        if (random(4) == 0) offset = random(content_.size());
        const std::size_t size = random(5) == 0 ? random(2 * kLarge) : random(70000);
        std::vector<std::byte> expected(size);
        const auto available = std::min<uint64_t>(size, content_.size() - std::min<uint64_t>(offset, content_.size()));
        if (available > 0) std::ranges::copy(content(offset, available), expected.begin());
        ASSERT_TRUE(read(offset, size)->is(expected)) << "request " << i << " at " << offset << "+" << size;
        offset += size;
        if (offset > content_.size() + kLarge) offset = 0;
    }
}

}  // namespace
}  // namespace nfstdm
