// SPDX-License-Identifier: Apache-2.0
// How a server is left: nothing of this client is open or known there any more, in as few questions as it lets itself
// be asked.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/unit/nfs4/volume_fixture.h"

namespace nfstdm::nfs4 {
namespace {

using testing::ElementsAre;

class FarewellTest : public test::Nfs4VolumeTest {
  protected:
    // The compounds since the last call.
    std::vector<std::string> seen() {
        const auto &all = nfs.compounds();
        const std::size_t begin = std::exchange(seen_, all.size());
        return {all.begin() + static_cast<std::ptrdiff_t>(begin), all.end()};
    }
    // With the file open, which nobody holds any more.
    void open_and_let_go() {
        open();
        ASSERT_TRUE(attach().ok() && read().ok());
        let_go();
        seen();
    }
    void expect_nothing_left() {
        EXPECT_EQ(nfs.open_files(), 0U);
        EXPECT_EQ(nfs.known(), 0U);
    }

  private:
    std::size_t seen_ = 0;
};

TEST_F(FarewellTest, EndsItsSessionAndItsClientIdWhenItIsLeft) {
    open();
    ASSERT_TRUE(attach().ok());
    EXPECT_TRUE(detach().ok());
    EXPECT_EQ(nfs.executed(Op::destroy_session), 1);
    EXPECT_EQ(nfs.executed(Op::destroy_clientid), 1);
    EXPECT_TRUE(attach().ok()) << "it can be attached again";
}

TEST_F(FarewellTest, EndsItsClientIdThoughTheServerWasStillEndingTheSession) {
    for (const NfsStatus busy : {NfsStatus::delay, NfsStatus::clientid_busy}) {
        open();
        ASSERT_TRUE(attach().ok());
        const int before = nfs.executed(Op::destroy_clientid);
        nfs.fail(Op::destroy_clientid, busy);
        EXPECT_TRUE(detach().ok());
        EXPECT_EQ(nfs.executed(Op::destroy_clientid), before + 1);
    }
}

TEST_F(FarewellTest, DoesNotInsistOnEndingAClientIdThatStaysBusy) {
    open();
    ASSERT_TRUE(attach().ok());
    nfs.fail(Op::destroy_clientid, NfsStatus::clientid_busy, 2);
    EXPECT_TRUE(detach().ok());
    EXPECT_EQ(nfs.executed(Op::destroy_clientid), 0);
    EXPECT_TRUE(attach().ok());
}

TEST_F(FarewellTest, EndsASessionThatTheServerWasNotReadyToEnd) {
    open();
    ASSERT_TRUE(attach().ok());
    nfs.fail(Op::destroy_session, NfsStatus::delay);
    EXPECT_TRUE(detach().ok());
    expect_nothing_left();
}

// --- with files that are open still

TEST_F(FarewellTest, ClosesInTheRequestThatEndsTheSession) {
    open_and_let_go();
    EXPECT_TRUE(detach().ok());
    EXPECT_THAT(seen(), ElementsAre("SEQUENCE PUTFH CLOSE DESTROY_SESSION", "DESTROY_CLIENTID"));
    expect_nothing_left();
    EXPECT_TRUE(attach().ok()) << "it can be attached again";
}

TEST_F(FarewellTest, ClosesAFileThatIsHeldStill) {
    open();
    ASSERT_TRUE(attach().ok() && read().ok());
    seen();
    EXPECT_TRUE(detach().ok());
    EXPECT_THAT(seen(), ElementsAre("SEQUENCE PUTFH CLOSE DESTROY_SESSION", "DESTROY_CLIENTID"));
    expect_nothing_left();
}

// Of a server whose requests are just long enough for the contact there is room for two.
class FilesOfAServerOfShortRequests : public FarewellTest {
  protected:
    void leave_with_open_files(const std::vector<std::string> &names) {
        nfs.operations = 6;
        open();
        ASSERT_TRUE(attach().ok());
        for (const auto &name : names) {
            files_.push_back(volume->open(test::handle_of(name), Access::read));
            const auto reply = get<ReadReply>([this](auto done) { files_.back()->read(1, buffer, std::move(done)); });
            ASSERT_TRUE(reply.ok()) << reply.status().text();
        }
        files_.clear();
        seen();
        EXPECT_TRUE(detach().ok());
    }

  private:
    std::vector<std::unique_ptr<VolumeFile>> files_;
};

TEST_F(FilesOfAServerOfShortRequests, AreClosedTogether) {
    leave_with_open_files({"a", "b"});
    EXPECT_THAT(seen(), ElementsAre("SEQUENCE PUTFH CLOSE PUTFH CLOSE DESTROY_SESSION", "DESTROY_CLIENTID"));
    expect_nothing_left();
}

TEST_F(FilesOfAServerOfShortRequests, AreClosedOneByOneWhenTheyAreTooMany) {
    leave_with_open_files({"a", "b", "c"});
    EXPECT_EQ(nfs.executed(Op::close), 3);
    expect_nothing_left();
}

// What a server may say to a farewell in one request.
class RefusedFarewell : public FarewellTest, public testing::WithParamInterface<std::pair<Op, NfsStatus>> {};

TEST_P(RefusedFarewell, IsSaidInParts) {
    open_and_let_go();
    nfs.fail(GetParam().first, GetParam().second);
    EXPECT_TRUE(detach().ok());
    expect_nothing_left();
    EXPECT_TRUE(attach().ok());
}

INSTANTIATE_TEST_SUITE_P(Statuses, RefusedFarewell,
                         testing::Values(std::pair{Op::sequence, NfsStatus::delay},
                                         std::pair{Op::sequence, NfsStatus::badsession},
                                         std::pair{Op::sequence, NfsStatus::seq_misordered},
                                         std::pair{Op::sequence, NfsStatus::conn_not_bound_to_session},
                                         std::pair{Op::sequence, NfsStatus::stale_clientid},
                                         std::pair{Op::putfh, NfsStatus::stale}, std::pair{Op::close, NfsStatus::delay},
                                         std::pair{Op::close, NfsStatus::bad_stateid},
                                         std::pair{Op::destroy_session, NfsStatus::delay},
                                         std::pair{Op::destroy_session, NfsStatus::not_only_op}));

class FarewellWhoseAnswerIsLost : public FarewellTest, public testing::WithParamInterface<Op> {};

TEST_P(FarewellWhoseAnswerIsLost, NeedsNoOtherSession) {
    open_and_let_go();
    nfs.lose_answers(GetParam(), 1);
    EXPECT_TRUE(detach().ok());
    expect_nothing_left();
    EXPECT_EQ(nfs.executed(Op::create_session), 1);
}

INSTANTIATE_TEST_SUITE_P(Operations, FarewellWhoseAnswerIsLost,
                         testing::Values(Op::close, Op::destroy_session, Op::destroy_clientid));

TEST_F(FarewellTest, ClosesInAnotherSessionWhatWasOpenInOneThatIsLost) {
    open_and_let_go();
    nfs.forget_sessions();
    EXPECT_TRUE(detach().ok());
    EXPECT_EQ(nfs.executed(Op::create_session), 2);
    expect_nothing_left();
}

TEST_F(FarewellTest, IsNotSaidToAServerThatForgotTheClient) {
    open_and_let_go();
    nfs.restart();
    EXPECT_TRUE(detach().ok());
    EXPECT_EQ(nfs.executed(Op::create_session), 1);
}

TEST_F(FarewellTest, LeavesTheSessionToAnotherExportThatUsesIt) {
    open();
    ASSERT_TRUE(attach().ok() && read().ok());
    const auto first = std::exchange(volume, nullptr);
    open("/folder");
    ASSERT_TRUE(attach().ok());
    EXPECT_EQ(nfs.open_files(), 1U);
    EXPECT_TRUE(end_of([&first](auto done) { first->detach(std::move(done)); }).ok());
    let_go();
    EXPECT_EQ(nfs.executed(Op::destroy_session), 0);
    EXPECT_EQ(nfs.open_files(), 0U);
    EXPECT_TRUE(detach().ok());
    expect_nothing_left();
}

TEST_F(FarewellTest, OfAVolumeThatIsDestroyedMeanwhileIsCutOff) {
    open_and_let_go();
    volume->detach([](const Status &) {});
    loop.poll_once();
    volume.reset();
    open();
    EXPECT_TRUE(attach().ok() && detach().ok());
}

// A server may not let go of a file that is open.
TEST_F(FarewellTest, ToAFileComesBeforeItIsRemoved) {
    open_and_let_go();
    EXPECT_TRUE(remove("file").ok());
    const auto compounds = seen();
    ASSERT_EQ(compounds.size(), 2U);
    EXPECT_EQ(compounds.front(), "SEQUENCE PUTFH CLOSE");
}

}  // namespace
}  // namespace nfstdm::nfs4
