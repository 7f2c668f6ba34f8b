// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/files/write_behind.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <map>

#include "tests/unit/files/fake_volume.h"

namespace nfstdm {
namespace {

using test::FakeServer;
using test::FakeVolume;
using test::Op;
using test::pattern;

constexpr std::size_t kWrite = 64 << 10;  // bytes of one WRITE
constexpr std::size_t kPiece = 8 << 10;
constexpr std::size_t kMemory = 16 * kWrite;
constexpr std::size_t kCommitAfter = 8 * kWrite;

class WriteBehindTest : public ::testing::Test {
  protected:
    WriteBehindTest() { window_.emplace(volume_, server_.handle(file_), kWrite, kCommitAfter, pool_); }

    // As much as there is room for; gives the number of bytes accepted.
    std::size_t accept(std::span<const std::byte> data, uint64_t from = 0) {
        uint64_t offset = from;
        while (offset < data.size()) {
            const auto piece = data.subspan(offset, std::min(kPiece, data.size() - offset));
            const auto accepted = window_->accept(offset, piece);
            offset += accepted;
            if (accepted < piece.size()) break;
        }
        return offset - from;
    }
    void wait() {
        loop_.run_until([this] { return window_->settled(); });
    }
    Status flush() {
        window_->flush();
        wait();
        return window_->take_failure();
    }
    std::span<const std::byte> stable() { return server_.node(file_).stable; }
    bool is_stable(std::span<const std::byte> data) { return std::ranges::equal(stable(), data); }

    EventLoop loop_;
    FakeServer server_;
    uint64_t file_ = server_.add_file("/f");
    FakeVolume volume_{loop_, server_};
    BufferPool pool_{kMemory};
    std::optional<WriteBehind> window_;
};

TEST_F(WriteBehindTest, SmallWritesAreJoinedIntoLargeUnstableOnes) {
    const auto data = pattern(4 * kWrite);
    EXPECT_EQ(accept(data), data.size());
    EXPECT_TRUE(flush().ok());
    EXPECT_TRUE(is_stable(data));
    EXPECT_EQ(server_.calls[Op::write], 4U);
    EXPECT_EQ(server_.calls[Op::commit], 1U);
    EXPECT_EQ(server_.log.front(), "WRITE 0+65536 unstable");
}

TEST_F(WriteBehindTest, NothingIsStableAndNothingIsForgottenBeforeTheCommit) {
    accept(pattern(2 * kWrite));
    while (server_.calls[Op::write] < 2)
        loop_.poll_once();
    EXPECT_TRUE(stable().empty());
    EXPECT_FALSE(window_->clean());
    EXPECT_EQ(window_->held(), 2 * kWrite);
    EXPECT_TRUE(flush().ok());
    EXPECT_TRUE(window_->clean());
    EXPECT_EQ(window_->held(), 0U);
    EXPECT_EQ(pool_.taken(), 0U);
}

TEST_F(WriteBehindTest, ALoneSmallWriteGoesToStableStorageInOneCall) {
    const auto data = pattern(4096);
    accept(data);
    EXPECT_TRUE(flush().ok());
    EXPECT_TRUE(is_stable(data));
    EXPECT_EQ(server_.log, std::vector<std::string>{"WRITE 0+4096 stable"});
}

TEST_F(WriteBehindTest, SeveralWritesAreOnTheWireAtOnce) {
    volume_.held = true;
    accept(pattern(8 * kWrite));
    EXPECT_EQ(volume_.waiting_for(Op::write), 8U);
    volume_.held = false;
    volume_.answer_all();
    EXPECT_TRUE(flush().ok());
}

TEST_F(WriteBehindTest, AChangedVerifierHasEverythingWrittenAgain) {
    const auto data = pattern(5 * kWrite + 100);
    accept(data);
    while (server_.calls[Op::write] < 5)
        loop_.poll_once();
    server_.restart();
    EXPECT_TRUE(flush().ok());
    EXPECT_TRUE(is_stable(data));
    EXPECT_EQ(server_.calls[Op::write], 11U);
    EXPECT_EQ(server_.calls[Op::commit], 2U);
}

TEST_F(WriteBehindTest, ARestartAtEveryPointOfAnUploadLosesNothing) {
    const auto data = pattern(6 * kWrite + 5);
    for (unsigned at = 1; at < 16; ++at) {
        file_ = server_.add_file("/f" + std::to_string(at));
        window_.emplace(volume_, server_.handle(file_), kWrite, 2 * kWrite, pool_);
        volume_.held = true;
        accept(data);
        window_->flush();
        for (unsigned step = 1; !window_->settled(); ++step) {
            if (step == at) server_.restart();
            volume_.answer_first();
        }
        EXPECT_TRUE(window_->take_failure().ok());
        EXPECT_TRUE(is_stable(data)) << "restart before answer " << at;
    }
}

TEST_F(WriteBehindTest, AServerThatLosesEverythingEachTimeIsAnErrorInTheEnd) {
    volume_.held = true;
    accept(pattern(2 * kWrite));
    window_->flush();
    while (!window_->settled()) {
        if (volume_.waiting.front().op == Op::commit) server_.restart();
        volume_.answer_first();
    }
    EXPECT_EQ(window_->take_failure().number(), uint32_t{EIO});
    EXPECT_TRUE(window_->clean());
}

TEST_F(WriteBehindTest, AShortWriteIsContinued) {
    server_.write_at_most = 1000;
    const auto data = pattern(2 * kWrite + 1);
    accept(data);
    EXPECT_TRUE(flush().ok());
    EXPECT_TRUE(is_stable(data));
}

TEST_F(WriteBehindTest, ARestartBetweenThePartsOfABlockHasTheWholeBlockWrittenAgain) {
    volume_.held = true;
    server_.write_at_most = kWrite / 2;
    const auto data = pattern(kWrite);
    accept(data);
    volume_.answer_first();
    server_.restart();
    volume_.held = false;
    volume_.answer_all();
    EXPECT_TRUE(flush().ok());
    EXPECT_TRUE(is_stable(data));
}

TEST_F(WriteBehindTest, AWriteOfNothingIsAnError) {
    server_.write_at_most = 0;
    accept(pattern(10));
    EXPECT_EQ(flush().number(), uint32_t{EIO});
}

TEST_F(WriteBehindTest, TheFirstFailureIsKeptNothingMoreIsSentAndTheMemoryIsFreed) {
    volume_.held = true;
    accept(pattern(4 * kWrite));
    server_.failures[Op::write] = {0, ENOSPC, EIO, 0};
    volume_.answer_all();
    wait();
    EXPECT_EQ(window_->failure().number(), uint32_t{ENOSPC});
    EXPECT_EQ(pool_.taken(), 0U);
    EXPECT_EQ(window_->take_failure().number(), uint32_t{ENOSPC});
    EXPECT_TRUE(window_->failure().ok());
    EXPECT_EQ(server_.calls[Op::commit], 0U);
}

TEST_F(WriteBehindTest, TellsHowFarTheServerHasAnswered) {
    EXPECT_EQ(window_->unanswered_from(), std::nullopt);
    volume_.held = true;
    accept(pattern(3 * kWrite + 10));
    EXPECT_EQ(window_->unanswered_from(), 0U);
    volume_.answer_last();
    EXPECT_EQ(window_->unanswered_from(), 0U);
    volume_.answer_first();
    EXPECT_EQ(window_->unanswered_from(), kWrite);
    volume_.answer_first();
    EXPECT_EQ(window_->unanswered_from(), 3 * kWrite);  // what no WRITE holds yet
    volume_.held = false;
    EXPECT_TRUE(flush().ok());
    EXPECT_EQ(window_->unanswered_from(), std::nullopt);
}

TEST_F(WriteBehindTest, KnowsWhatAFailureLostUntilMoreIsWritten) {
    accept(pattern(2 * kWrite));
    EXPECT_TRUE(flush().ok());
    server_.failures[Op::write] = {0, ENOSPC, 0};
    accept(pattern(5 * kWrite), 2 * kWrite);
    window_->flush();
    wait();
    EXPECT_EQ(window_->unanswered_from(), 2 * kWrite);  // what was not committed may be lost still
    EXPECT_EQ(window_->take_failure().number(), uint32_t{ENOSPC});
    EXPECT_EQ(window_->unanswered_from(), 2 * kWrite);
    accept(pattern(10));
    EXPECT_TRUE(flush().ok());
    EXPECT_EQ(window_->unanswered_from(), std::nullopt);
}

TEST_F(WriteBehindTest, WhatIsBeingCommittedWhenAWriteFailsMayBeConfirmedStill) {
    volume_.held = true;
    server_.failures[Op::write] = std::deque<uint32_t>(8);
    server_.failures[Op::write].push_back(ENOSPC);
    accept(pattern(9 * kWrite));
    while (server_.calls[Op::write] < 9)
        volume_.answer_first();
    EXPECT_EQ(window_->failure().number(), uint32_t{ENOSPC});
    volume_.answer_all();
    wait();
    EXPECT_EQ(server_.calls[Op::commit], 1U);
    EXPECT_EQ(window_->unanswered_from(), 8 * kWrite);
    EXPECT_EQ(window_->take_failure().number(), uint32_t{ENOSPC});
    EXPECT_EQ(pool_.taken(), 0U);
}

TEST_F(WriteBehindTest, WhatCouldNotBeCommittedIsLostThoughItWasAnsweredFor) {
    server_.fail_next(Op::commit, EDQUOT);
    accept(pattern(2 * kWrite));
    EXPECT_EQ(flush().number(), uint32_t{EDQUOT});
    EXPECT_EQ(window_->unanswered_from(), 0U);
}

TEST_F(WriteBehindTest, AfterAFailureWasTakenTheWindowWorksAgain) {
    server_.fail_next(Op::write, ENOSPC);
    accept(pattern(10));
    EXPECT_EQ(flush().number(), uint32_t{ENOSPC});
    const auto data = pattern(2 * kWrite);
    accept(data);
    EXPECT_TRUE(flush().ok());
    EXPECT_TRUE(is_stable(data));
    EXPECT_EQ(server_.log.front(), "WRITE 0+65536 unstable");
}

TEST_F(WriteBehindTest, AFailedCommitIsAFailure) {
    server_.fail_next(Op::commit, EDQUOT);
    accept(pattern(2 * kWrite));
    EXPECT_EQ(flush().number(), uint32_t{EDQUOT});
}

TEST_F(WriteBehindTest, MuchUncommittedDataIsCommittedWhileMoreIsAccepted) {
    const auto data = pattern(100 * kWrite);
    for (uint64_t done = 0; done < data.size();) {
        done += accept(data, done);
        ASSERT_LE(pool_.taken(), kMemory);
        loop_.run_until([&] { return pool_.has_room(kWrite); });
    }
    EXPECT_GE(server_.calls[Op::commit], 8U);
    EXPECT_LE(server_.calls[Op::commit], 20U);
    EXPECT_TRUE(flush().ok());
    EXPECT_TRUE(is_stable(data));
    EXPECT_EQ(server_.calls[Op::write], 100U);
}

TEST_F(WriteBehindTest, BlocksWrittenAfterTheCommitWasSentAreNotTakenForCommitted) {
    volume_.held = true;
    const auto data = pattern(kCommitAfter + 2 * kWrite);
    accept(std::span(data).first(kCommitAfter));
    while (volume_.waiting_for(Op::commit) == 0)
        volume_.answer_first();
    accept(data, kCommitAfter);
    while (volume_.waiting_for(Op::write) > 0)
        volume_.answer_last();
    volume_.answer_all();
    EXPECT_EQ(window_->held(), 2 * kWrite);
    volume_.held = false;
    EXPECT_TRUE(flush().ok());
    EXPECT_TRUE(is_stable(data));
}

TEST_F(WriteBehindTest, BytesThatAreHeldOverlapWithWritesOfThem) {
    window_->accept(100, pattern(50));
    EXPECT_TRUE(window_->overlaps(100, 50));
    EXPECT_TRUE(window_->overlaps(0, 101));
    EXPECT_TRUE(window_->overlaps(149, 1));
    EXPECT_FALSE(window_->overlaps(0, 100));
    EXPECT_FALSE(window_->overlaps(150, 10));
    EXPECT_TRUE(flush().ok());
    EXPECT_FALSE(window_->overlaps(100, 50));
}

TEST_F(WriteBehindTest, WritesApartFromEachOtherKeepTheirPlaces) {
    const auto data = pattern(3000);
    window_->accept(5000, std::span(data).subspan(2000, 1000));
    window_->accept(3000, std::span(data).first(1000));
    window_->accept(4000, std::span(data).subspan(1000, 1000));
    EXPECT_TRUE(flush().ok());
    EXPECT_TRUE(std::ranges::equal(stable().subspan(3000), data));
}

TEST_F(WriteBehindTest, AfterAStaleHandleTheBytesWaitUntilItIsKnownAgain) {
    const auto data = pattern(3 * kWrite + 9);
    accept(data);
    server_.make_handles_stale();
    window_->flush();
    wait();
    EXPECT_EQ(window_->failure().number(), uint32_t{ESTALE});
    server_.make_handles_known_again();
    window_->restart();
    wait();
    EXPECT_TRUE(window_->take_failure().ok());
    EXPECT_TRUE(is_stable(data));
}

TEST_F(WriteBehindTest, RepliesAfterTheWindowIsGoneTouchNothing) {
    volume_.held = true;
    accept(pattern(3 * kWrite));
    window_.reset();
    volume_.answer_all();
    EXPECT_EQ(pool_.taken(), 0U);
}

}  // namespace
}  // namespace nfstdm
