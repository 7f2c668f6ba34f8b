// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include "nfstdm/nfs4/server_copy.h"
#include "tests/unit/nfs4/volume_fixture.h"

namespace nfstdm::nfs4 {
namespace {

using test::FakeNfs4;
using test::handle_of;
using testing::ElementsAre;
using testing::IsEmpty;

class CopiesTest : public test::Nfs4VolumeTest {
  protected:
    void SetUp() override {
        nfs.names["target"] = 'f';
        nfs.content.assign(1000, 'x');
    }
    void attach_with(uint32_t minor) {
        open("/export", {4, minor, false});
        ASSERT_TRUE(attach().ok());
    }
    Result<CopyReply> copy(const CopyRange &range) {
        if (!target_) target_ = volume->open(handle_of("target"), Access::write);
        return get<CopyReply>([&, this](auto done) { target_->copy_from(reading(), range, std::move(done)); });
    }
    // Bytes copied, or the failure below zero.
    int64_t copied(const CopyRange &range) {
        const auto reply = copy(range);
        return reply.ok() ? static_cast<int64_t>(reply.value().count) : -static_cast<int64_t>(reply.status().number());
    }
    std::pair<int64_t, int64_t> extent(uint64_t offset) {
        const auto found = get<Extent>([&, this](auto done) { reading().extent(offset, std::move(done)); });
        if (!found.ok()) return {-static_cast<int64_t>(found.status().number()), 0};
        return {static_cast<int64_t>(found.value().begin), static_cast<int64_t>(found.value().end)};
    }

  private:
    std::unique_ptr<VolumeFile> target_;
};

TEST_F(CopiesTest, AreMadeBySharingBlocksWhereTheServerCan) {
    attach_with(2);
    EXPECT_EQ(copied({4096, 8192, 1000}), 1000);
    EXPECT_THAT(nfs.clones, ElementsAre(FakeNfs4::Copied{4096, 8192, 1000}));
    EXPECT_THAT(nfs.copies, IsEmpty());
    EXPECT_EQ(nfs.compounds().back(), "SEQUENCE PUTFH SAVEFH PUTFH CLONE COMMIT");
}

TEST_F(CopiesTest, AreCopiesWhereTheServerSharesNoBlocksAndItIsNotAskedTwice) {
    attach_with(2);
    nfs.fail(Op::clone, NfsStatus::notsupp);
    EXPECT_EQ(copied({0, 0, 700}), 700);
    EXPECT_EQ(copied({0, 0, 600}), 600);
    EXPECT_THAT(nfs.copies, ElementsAre(FakeNfs4::Copied{0, 0, 700}, FakeNfs4::Copied{0, 0, 600}));
    EXPECT_THAT(nfs.clones, IsEmpty());
}

TEST_F(CopiesTest, ShareNoBlocksOnlyThisTimeWhereTheRangeIsTheReason) {
    attach_with(2);
    nfs.fail(Op::clone, NfsStatus::inval);
    EXPECT_EQ(copied({1, 0, 700}), 700);
    EXPECT_EQ(copied({0, 0, 600}), 600);
    EXPECT_EQ(nfs.copies.size(), 1U);
    EXPECT_EQ(nfs.clones.size(), 1U);
}

TEST_F(CopiesTest, ComeInPartsAndAsShortAsTheServerMakesThem) {
    attach_with(2);
    nfs.fail(Op::clone, NfsStatus::notsupp);
    EXPECT_EQ(copied({0, 0, 1000 * ServerCopy::kPart}), static_cast<int64_t>(ServerCopy::kPart));
    nfs.copy_maximum = 100;
    EXPECT_EQ(copied({0, 0, 1000}), 100);
}

TEST_F(CopiesTest, AreWaitedForWhenTheServerMakesThemInTheBackground) {
    attach_with(2);
    nfs.fail(Op::clone, NfsStatus::notsupp);
    nfs.looks_until_copied = 3;
    EXPECT_EQ(copied({0, 0, 1000}), 1000);
    EXPECT_EQ(nfs.executed(Op::offload_status), 3);
    EXPECT_EQ(nfs.compounds().back(), "SEQUENCE PUTFH SAVEFH PUTFH COMMIT");
}

TEST_F(CopiesTest, AreMadeOnceMoreWhenTheServerGaveUpInTheBackground) {
    attach_with(2);
    nfs.fail(Op::clone, NfsStatus::notsupp);
    nfs.looks_until_copied = 1;
    nfs.copy_outcome = NfsStatus::io;
    const auto reply = copy({0, 0, 1000});
    EXPECT_TRUE(reply.ok()) << "the next one is made at once: " << reply.status().text();
    EXPECT_EQ(nfs.clones.size(), 0U);
    EXPECT_EQ(nfs.copies.size(), 2U);
}

TEST_F(CopiesTest, AreLeftToTheCallerWhenTheServerForgetsThemAsTheyEnd) {
    attach_with(2);
    nfs.fail(Op::clone, NfsStatus::notsupp);
    nfs.looks_until_copied = 100;
    nfs.fail(Op::offload_status, NfsStatus::bad_stateid, 100);
    EXPECT_EQ(copied({0, 0, 1000}), -ENOTSUP);
    EXPECT_EQ(nfs.copies.size(), 2U) << "asked once more, as the server may have restarted";
}

TEST_F(CopiesTest, AreAskedForInTheMannerThatTheServerHas) {
    attach_with(2);
    nfs.fail(Op::clone, NfsStatus::notsupp);
    nfs.fail(Op::copy, NfsStatus::offload_no_reqs);
    EXPECT_EQ(copied({0, 0, 1000}), 1000);
    EXPECT_THAT(nfs.copies_at_once, ElementsAre(false));
}

TEST_F(CopiesTest, CountOnlyWhenTheyAreOnStableStorage) {
    attach_with(2);
    nfs.fail(Op::clone, NfsStatus::notsupp);
    nfs.copy_verifiers = {1, 2};
    EXPECT_EQ(copied({0, 0, 1000}), 1000);
    EXPECT_EQ(nfs.copies.size(), 3U) << "twice the server restarted between the copy and its COMMIT";
    nfs.copy_verifiers = {3};
    nfs.copy_is_synced = true;
    EXPECT_EQ(copied({0, 0, 1000}), 1000);
    EXPECT_EQ(nfs.copies.size(), 4U);
}

TEST_F(CopiesTest, FailWhereTheServerKeepsLosingThem) {
    attach_with(2);
    nfs.fail(Op::clone, NfsStatus::notsupp);
    nfs.copy_verifiers.assign(100, 1);
    EXPECT_EQ(copied({0, 0, 1000}), -EIO);
}

TEST_F(CopiesTest, OpenTheFilesAgainThatTheServerHasLost) {
    attach_with(2);
    nfs.fail(Op::clone, NfsStatus::bad_stateid);
    EXPECT_EQ(copied({0, 0, 1000}), 1000);
    EXPECT_EQ(nfs.executed(Op::open), 4);
}

TEST_F(CopiesTest, AreLeftToTheCallerWhereTheServerDoesNotMakeThem) {
    attach_with(2);
    nfs.fail(Op::clone, NfsStatus::op_illegal);
    nfs.fail(Op::copy, NfsStatus::notsupp);
    EXPECT_EQ(copied({0, 0, 1000}), -ENOTSUP);
    const std::size_t asked = nfs.compounds().size();
    EXPECT_EQ(copied({0, 0, 1000}), -ENOTSUP);
    EXPECT_EQ(nfs.compounds().size(), asked) << "it was not asked again";
}

TEST_F(CopiesTest, AreLeftToTheCallerWhenNothingComesOfThem) {
    attach_with(2);
    nfs.fail(Op::clone, NfsStatus::notsupp);
    nfs.copy_maximum = 0;
    EXPECT_EQ(copied({0, 0, 1000}), -ENOTSUP);
}

TEST_F(CopiesTest, FailAsAWriteWould) {
    attach_with(2);
    nfs.fail(Op::clone, NfsStatus::nospc);
    EXPECT_EQ(copied({0, 0, 1000}), -ENOSPC);
}

TEST_F(CopiesTest, AreNotAskedForInMinorVersion1) {
    attach_with(1);
    const std::size_t asked = nfs.compounds().size();
    EXPECT_EQ(copied({0, 0, 1000}), -ENOTSUP);
    EXPECT_FALSE(volume->tells_holes());
    EXPECT_EQ(nfs.compounds().size(), asked);
}

TEST_F(CopiesTest, TellWhereHolesAre) {
    attach_with(2);
    EXPECT_TRUE(volume->tells_holes());
    nfs.extents = {{100, 200}, {300, 1000}};
    constexpr int64_t kEnd = -1;  // as far as anyone asks
    EXPECT_EQ(extent(0), std::pair(int64_t{100}, int64_t{200}));
    EXPECT_EQ(extent(100), std::pair(int64_t{100}, int64_t{200}));
    EXPECT_EQ(extent(250), std::pair(int64_t{300}, kEnd));
    nfs.extents = {{0, 10}};
    EXPECT_EQ(extent(10), std::pair(kEnd, kEnd)) << "nothing but a hole";
    nfs.fail(Op::seek, NfsStatus::notsupp);
    EXPECT_EQ(extent(0), std::pair(int64_t{-ENOTSUP}, int64_t{0}));
    EXPECT_FALSE(volume->tells_holes());
}

TEST_F(CopiesTest, TakeDataAndAHoleInOnePlaceForAServerThatDoesNotLook) {
    attach_with(2);
    nfs.seeks_in_vain = true;
    EXPECT_EQ(extent(0), std::pair(int64_t{-ENOTSUP}, int64_t{0}));
    EXPECT_FALSE(volume->tells_holes()) << "everything is read then";
}

}  // namespace
}  // namespace nfstdm::nfs4
