// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <optional>

#include "tests/unit/nfs4/volume_fixture.h"

namespace nfstdm::nfs4 {
namespace {

using test::handle_of;
using test::Nfs4VolumeTest;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Ne;
using testing::UnorderedElementsAre;

// --- the session

TEST_F(Nfs4VolumeTest, IsAttachedInThreeQuestions) {
    open();
    const auto found = attach();
    ASSERT_TRUE(found.ok()) << found.status().text();
    EXPECT_EQ(found.value(), root);
    EXPECT_THAT(nfs.compounds(), ElementsAre("EXCHANGE_ID", "CREATE_SESSION",
                                             "SEQUENCE RECLAIM_COMPLETE PUTROOTFH LOOKUP GETFH GETATTR"));
    EXPECT_EQ(volume->limits().read_maximum, 1U << 20);
    EXPECT_EQ(volume->limits().write_maximum, 65536U);
}

TEST_F(Nfs4VolumeTest, SaysWhatThereIsWhenTheExportIsNot) {
    open("/missing");
    const auto found = attach();
    EXPECT_EQ(found.status().number(), static_cast<uint32_t>(ENOENT));
    EXPECT_THAT(found.status().text(), AllOf(HasSubstr("server db1"), HasSubstr("export /missing"),
                                             HasSubstr("the server's root holds: /export, /file, /folder")));
}

TEST_F(Nfs4VolumeTest, TakesTheHighestMinorVersionThatBothSidesHave) {
    nfs.minor_version_maximum = 1;
    open("/export", {4, 0, false});
    EXPECT_TRUE(attach().ok());
}

TEST_F(Nfs4VolumeTest, SaysThatDataGoesThroughTheServerWhereParallelNfsWasAskedFor) {
    std::string told;
    trace.set_sink([&told](TraceLevel, TraceComponent, std::string_view text) { told.append(text); });
    open("/export", {4, 1, true});
    EXPECT_THAT(told, HasSubstr("server db1: pNFS is not used"));
    trace.set_sink({});
}

TEST_F(Nfs4VolumeTest, RefusesAMinorVersionThatTheServerDoesNotHave) {
    nfs.minor_version_maximum = 1;
    open("/export", {4, 2, false});
    const auto found = attach();
    EXPECT_EQ(found.status().number(), static_cast<uint32_t>(EPROTONOSUPPORT));
    EXPECT_THAT(found.status().text(), HasSubstr("NFS4ERR_MINOR_VERS_MISMATCH"));
}

TEST_F(Nfs4VolumeTest, SharesTheSessionAmongTheExportsOfAServer) {
    open();
    ASSERT_TRUE(attach().ok());
    const auto first = std::move(volume);
    open("/folder");
    ASSERT_TRUE(attach().ok());
    EXPECT_EQ(nfs.executed(Op::create_session), 1);
    EXPECT_TRUE(detach().ok());
    EXPECT_EQ(nfs.executed(Op::destroy_session), 0) << "somebody uses it still";
}

TEST_F(Nfs4VolumeTest, SendsARequestOfALostConnectionAgainInTheSameSlotWithTheSameNumber) {
    open();
    ASSERT_TRUE(attach().ok());
    nfs.lose_answers(Op::remove, 1);
    const std::size_t before = nfs.sequences.size();
    EXPECT_TRUE(remove("file").ok()) << "the server's own answer counts";
    EXPECT_EQ(nfs.executed(Op::remove), 1);
    ASSERT_EQ(nfs.sequences.size(), before + 2);
    EXPECT_EQ(nfs.sequences[before], nfs.sequences[before + 1]);
}

TEST_F(Nfs4VolumeTest, NeverTakesARefusalForDoneBecauseAConnectionWasLost) {
    open();
    ASSERT_TRUE(attach().ok());
    nfs.lose_answers(Op::lookup, 1);
    EXPECT_EQ(remove("missing").number(), static_cast<uint32_t>(ENOENT));
    nfs.lose_answers(Op::create, 1);
    EXPECT_EQ(mkdir("folder").status().number(), static_cast<uint32_t>(EEXIST));
}

// The server restarts between an execution and its answer.
class LostWithTheSession : public Nfs4VolumeTest {
  protected:
    void lose(Op op) {
        open();
        ASSERT_TRUE(attach().ok());
        nfs.lose_answers(op, 1);
        nfs.server.on_call = [this, original = nfs.server.on_call, restarted = false](const auto &call) mutable {
            original(call);
            if (!std::exchange(restarted, true)) nfs.restart();
        };
    }
};

TEST_F(LostWithTheSession, ARemovalThatMeetsNothingIsDone) {
    lose(Op::remove);
    EXPECT_TRUE(remove("file").ok());
    EXPECT_EQ(nfs.executed(Op::remove), 1);
}

TEST_F(LostWithTheSession, ADirectoryThatIsMetIsPerhapsOurs) {
    lose(Op::create);
    const auto made = mkdir("new");
    ASSERT_TRUE(made.ok()) << made.status().text();
    EXPECT_TRUE(made.value().maybe_made_since.has_value());
    EXPECT_FALSE(made.value().handle.has_value());
}

TEST_F(Nfs4VolumeTest, MakesAnotherSessionWithTheSameClientIdWhenOnlyTheSessionIsGone) {
    open();
    ASSERT_TRUE(attach().ok() && read().ok());
    nfs.forget_sessions();
    EXPECT_TRUE(read().ok());
    EXPECT_EQ(nfs.executed(Op::exchange_id), 1);
    EXPECT_EQ(nfs.executed(Op::create_session), 2);
    EXPECT_EQ(nfs.executed(Op::open), 1) << "what is open stays open";
}

class LostSession : public Nfs4VolumeTest, public testing::WithParamInterface<NfsStatus> {};

TEST_P(LostSession, IsMadeAgainAndTheRequestSentInIt) {
    open();
    ASSERT_TRUE(attach().ok());
    nfs.fail(Op::sequence, GetParam());
    EXPECT_TRUE(getattr().ok());
    EXPECT_EQ(nfs.executed(Op::create_session), 2);
}

INSTANTIATE_TEST_SUITE_P(Statuses, LostSession,
                         testing::Values(NfsStatus::badsession, NfsStatus::deadsession, NfsStatus::stale_clientid));

TEST_F(Nfs4VolumeTest, GivesAServerUpThatNeverKeepsASession) {
    open();
    ASSERT_TRUE(attach().ok());
    nfs.fail(Op::sequence, NfsStatus::badsession, 1000);
    const auto reply = getattr();
    EXPECT_EQ(reply.status().number(), static_cast<uint32_t>(EIO));
    EXPECT_THAT(reply.status().text(), HasSubstr("does not keep the session"));
}

class LostSlot : public Nfs4VolumeTest, public testing::WithParamInterface<NfsStatus> {};

TEST_P(LostSlot, IsLeftForAnother) {
    open();
    ASSERT_TRUE(attach().ok());
    nfs.fail(Op::sequence, GetParam());
    EXPECT_TRUE(getattr().ok());
    EXPECT_TRUE(getattr().ok());
    EXPECT_EQ(nfs.executed(Op::create_session), 1);
}

INSTANTIATE_TEST_SUITE_P(Statuses, LostSlot,
                         testing::Values(NfsStatus::badslot, NfsStatus::bad_high_slot, NfsStatus::seq_misordered,
                                         NfsStatus::seq_false_retry, NfsStatus::retry_uncached_rep));

TEST_F(Nfs4VolumeTest, MakesAnotherSessionWhenEverySlotIsLost) {
    nfs.slots = 1;
    open();
    ASSERT_TRUE(attach().ok());
    nfs.fail(Op::sequence, NfsStatus::seq_misordered);
    EXPECT_TRUE(getattr().ok());
    EXPECT_EQ(nfs.executed(Op::create_session), 2);
}

TEST_F(Nfs4VolumeTest, BindsAConnectionForAServerThatWantsItInWords) {
    open();
    ASSERT_TRUE(attach().ok());
    nfs.fail(Op::sequence, NfsStatus::conn_not_bound_to_session);
    EXPECT_TRUE(getattr().ok());
    EXPECT_EQ(nfs.executed(Op::bind_conn_to_session), 1);
}

TEST_F(Nfs4VolumeTest, IdentifiesItselfAnewWhenTheServerForgotTheClient) {
    open();
    nfs.fail(Op::create_session, NfsStatus::stale_clientid);
    EXPECT_TRUE(attach().ok());
    EXPECT_EQ(nfs.executed(Op::exchange_id), 2);
}

class NotReady : public Nfs4VolumeTest, public testing::WithParamInterface<std::pair<Op, NfsStatus>> {};

TEST_P(NotReady, IsWaitedOut) {
    nfs.fail(GetParam().first, GetParam().second, 3);
    open();
    ASSERT_TRUE(attach().ok());
    EXPECT_TRUE(read().ok());
}

INSTANTIATE_TEST_SUITE_P(Operations, NotReady,
                         testing::Values(std::pair{Op::exchange_id, NfsStatus::delay},
                                         std::pair{Op::create_session, NfsStatus::delay},
                                         std::pair{Op::sequence, NfsStatus::delay},
                                         std::pair{Op::putrootfh, NfsStatus::delay},
                                         std::pair{Op::open, NfsStatus::grace}, std::pair{Op::read, NfsStatus::delay}));

class LongNotReady : public Nfs4VolumeTest, public testing::WithParamInterface<std::pair<Op, NfsStatus>> {};

TEST_P(LongNotReady, IsTold) {
    const auto [op, status] = GetParam();
    const std::string waits = status == NfsStatus::grace
                                  ? "server db1 is in its grace period after a start, waiting"
                                  : "server db1 is not ready (just started, or fetching the file), waiting";
    std::vector<std::string> told;
    trace.set_sink([&](TraceLevel level, TraceComponent, std::string_view text) {
        if (level != TraceLevel::failure) return;
        told.emplace_back(text);
        nfs.forgive();
    });
    nfs.fail(op, status, 1000);
    open();
    ASSERT_TRUE(attach().ok());
    EXPECT_TRUE(read().ok());
    EXPECT_THAT(told, testing::ElementsAre(waits, "server db1 ok again"));
    trace.set_sink({});
}

INSTANTIATE_TEST_SUITE_P(Operations, LongNotReady,
                         testing::Values(std::pair{Op::exchange_id, NfsStatus::delay},
                                         std::pair{Op::create_session, NfsStatus::delay},
                                         std::pair{Op::sequence, NfsStatus::delay},
                                         std::pair{Op::open, NfsStatus::grace}, std::pair{Op::read, NfsStatus::delay}));

// --- state

TEST_F(Nfs4VolumeTest, ReadsAWholeSmallFileWithoutOpeningIt) {
    open();
    ASSERT_TRUE(attach().ok());
    const auto reply = read(0);
    ASSERT_TRUE(reply.ok()) << reply.status().text();
    EXPECT_EQ(text(reply.value().count), "cont");
    EXPECT_EQ(nfs.compounds().back(), "SEQUENCE PUTFH READ");
    EXPECT_EQ(nfs.read_with.back(), StateId::anonymous());
    EXPECT_FALSE(nfs.asked_to_be_kept.back()) << "it may be read twice";
}

class SmallFileOfAServerThatReadsOpenFilesOnly : public Nfs4VolumeTest, public testing::WithParamInterface<NfsStatus> {
  protected:
    void expect_content() {
        const auto reply = read(0);
        ASSERT_TRUE(reply.ok()) << reply.status().text();
        EXPECT_EQ(text(reply.value().count), "cont");
    }
};

TEST_P(SmallFileOfAServerThatReadsOpenFilesOnly, IsOpenedReadAndClosedInOneQuestion) {
    open();
    ASSERT_TRUE(attach().ok());
    nfs.fail(Op::read, GetParam());
    expect_content();
    EXPECT_EQ(nfs.compounds().back(), "SEQUENCE PUTFH OPEN READ CLOSE");
    const std::size_t before = nfs.compounds().size();
    expect_content();
    EXPECT_EQ(nfs.compounds().back(), "SEQUENCE PUTFH OPEN READ CLOSE");
    EXPECT_EQ(nfs.compounds().size(), before + 1) << "it has said what it wants";
    EXPECT_EQ(nfs.open_files(), 0U);
}

INSTANTIATE_TEST_SUITE_P(Statuses, SmallFileOfAServerThatReadsOpenFilesOnly,
                         testing::Values(NfsStatus::bad_stateid, NfsStatus::locked, NfsStatus::openmode,
                                         NfsStatus::access, NfsStatus::perm, NfsStatus::inval, NfsStatus::serverfault));

TEST_F(Nfs4VolumeTest, OpensNoOtherFilesBecauseOneCanNotBeRead) {
    open();
    ASSERT_TRUE(attach().ok());
    nfs.fail(Op::read, NfsStatus::access);
    nfs.fail(Op::open, NfsStatus::access);
    EXPECT_EQ(read(0).status().number(), static_cast<uint32_t>(EACCES));
    EXPECT_TRUE(read(0).ok());
    EXPECT_EQ(nfs.compounds().back(), "SEQUENCE PUTFH READ");
}

TEST_F(Nfs4VolumeTest, OpensAFileOnceForAllItsReads) {
    open();
    ASSERT_TRUE(attach().ok());
    for (uint64_t offset = 1; offset < 4; ++offset)
        EXPECT_EQ(text(read(offset).value().count), nfs.content.substr(offset, 4));
    EXPECT_EQ(nfs.executed(Op::open), 1);
    EXPECT_EQ(nfs.executed(Op::read), 3);
    EXPECT_EQ(std::ranges::count(nfs.compounds(), "SEQUENCE PUTFH OPEN READ"), 1);
    EXPECT_EQ(std::ranges::count(nfs.compounds(), "SEQUENCE PUTFH READ"), 2);
}

TEST_F(Nfs4VolumeTest, KeepsOpenWhatItsFirstReadFailsOn) {
    open();
    ASSERT_TRUE(attach().ok());
    nfs.fail(Op::read, NfsStatus::io, 2);
    EXPECT_EQ(read().status().number(), static_cast<uint32_t>(EIO));
    EXPECT_EQ(nfs.open_files(), 1U);
    EXPECT_TRUE(read().ok());
    EXPECT_EQ(nfs.executed(Op::open), 1);
    EXPECT_TRUE(detach().ok());
    EXPECT_EQ(nfs.open_files(), 0U);
}

// A file of which more than one READ is asked before it is open.
class ReadAtOnce : public Nfs4VolumeTest {
  protected:
    // What the READs end with; they begin one byte behind the other, and not at the start.
    std::vector<Result<ReadReply>> read_at_once(std::size_t count) {
        std::vector<std::optional<Result<ReadReply>>> ended(count);
        places.resize(count);
        for (std::size_t i = 0; i < count; ++i)
            reading().read(1 + i, places[i], [&ended, i](Result<ReadReply> reply) { ended[i] = std::move(reply); });
        const auto all = [&ended] { return std::ranges::all_of(ended, [](const auto &each) { return bool{each}; }); };
        EXPECT_TRUE(nfstdm::test::run(loop, all));
        std::vector<Result<ReadReply>> results;
        for (auto &each : ended)
            results.push_back(each ? std::move(*each) : Result<ReadReply>(Status{EINTR, "no completion"}));
        return results;
    }
    void expect_content(const std::vector<Result<ReadReply>> &results) const {
        for (std::size_t i = 0; i < results.size(); ++i) {
            ASSERT_TRUE(results[i].ok()) << results[i].status().text();
            const std::string text(reinterpret_cast<const char *>(places[i].data()), results[i].value().count);
            EXPECT_EQ(text, nfs.content.substr(1 + i, places[i].size()));
        }
    }

    std::vector<std::array<std::byte, 4>> places;
};

TEST_F(ReadAtOnce, DoesNotWaitUntilTheFileIsOpen) {
    open();
    ASSERT_TRUE(attach().ok());
    expect_content(read_at_once(3));
    EXPECT_THAT(nfs.read_with, UnorderedElementsAre(StateId::current(), StateId::anonymous(), StateId::anonymous()));
    EXPECT_TRUE(read().ok());
    EXPECT_NE(nfs.read_with.back(), StateId::anonymous()) << "it is open by now";
    EXPECT_EQ(nfs.executed(Op::open), 1);
}

TEST_F(ReadAtOnce, FailsAsTheOpeningDoes) {
    open();
    ASSERT_TRUE(attach().ok());
    nfs.fail(Op::open, NfsStatus::share_denied, 2);
    nfs.fail(Op::read, NfsStatus::locked);
    for (const auto &result : read_at_once(2))
        EXPECT_FALSE(result.ok());
}

class ReadOfOpenFilesOnly : public ReadAtOnce, public testing::WithParamInterface<NfsStatus> {};

TEST_P(ReadOfOpenFilesOnly, IsAskedForAgainWhenTheFileIsOpen) {
    open();
    ASSERT_TRUE(attach().ok());
    nfs.fail_later(Op::read, GetParam(), 1);
    expect_content(read_at_once(2));
    EXPECT_THAT(nfs.read_with, ElementsAre(StateId::current(), Ne(StateId::anonymous()))) << "of those that it took";
    EXPECT_EQ(nfs.executed(Op::open), 1);
}

INSTANTIATE_TEST_SUITE_P(Statuses, ReadOfOpenFilesOnly,
                         testing::Values(NfsStatus::bad_stateid, NfsStatus::locked, NfsStatus::openmode,
                                         NfsStatus::access, NfsStatus::inval, NfsStatus::serverfault));

TEST_F(ReadAtOnce, FailsAsItWouldOfAnOpenFile) {
    open();
    ASSERT_TRUE(attach().ok());
    nfs.fail_later(Op::read, NfsStatus::io, 1);
    const auto results = read_at_once(2);
    EXPECT_TRUE(results.front().ok());
    EXPECT_EQ(results.back().status().number(), static_cast<uint32_t>(EIO));
}

TEST_F(Nfs4VolumeTest, LooksExpectedNamesUpWithTheExport) {
    nfs.names["deep"] = 'd';
    open();
    volume->expect({"folder", "deep", "missing", "never"});
    ASSERT_TRUE(attach().ok());
    EXPECT_EQ(nfs.compounds().back(),
              "SEQUENCE RECLAIM_COMPLETE PUTROOTFH LOOKUP GETFH GETATTR"
              " LOOKUP GETFH GETATTR LOOKUP GETFH GETATTR LOOKUP");
    const PathReply reply = volume->take_expected();
    ASSERT_EQ(reply.found.size(), 2U);
    EXPECT_EQ(reply.found[1].handle, handle_of("deep"));
    EXPECT_EQ(reply.failure.number(), static_cast<uint32_t>(ENOENT));
    EXPECT_TRUE(volume->take_expected().found.empty()) << "told once";
}

TEST_F(Nfs4VolumeTest, IsAttachedWhateverBecomesOfExpectedNames) {
    for (const Op op : {Op::getattr, Op::getfh, Op::lookup})
        for (const NfsStatus status : {NfsStatus::access, NfsStatus::moved, NfsStatus::wrongsec, NfsStatus::io}) {
            open();
            volume->expect({"folder"});
            nfs.fail_later(op, status, 1);
            EXPECT_TRUE(attach().ok());
            EXPECT_TRUE(volume->take_expected().found.empty());
            EXPECT_TRUE(detach().ok());
        }
    open();
    volume->expect({std::string(kNameMaximum + 1, 'x')});
    EXPECT_TRUE(attach().ok()) << "what is no name is asked for by nobody";
}

TEST_F(Nfs4VolumeTest, ClosesWhatIsOpenBeforeItIsLeft) {
    open();
    ASSERT_TRUE(attach().ok() && read().ok());
    EXPECT_EQ(nfs.open_files(), 1U);
    EXPECT_TRUE(detach().ok());
    EXPECT_EQ(nfs.open_files(), 0U);
}

TEST_F(Nfs4VolumeTest, ClosesAFileThatNobodyUsesAnyMoreWithoutBeingWaitedFor) {
    open();
    ASSERT_TRUE(attach().ok() && read().ok());
    let_go();
    EXPECT_TRUE(nfstdm::test::run(loop, [this] { return nfs.open_files() == 0; }));
    EXPECT_EQ(nfs.compounds().back(), "SEQUENCE PUTFH CLOSE");
    EXPECT_TRUE(read().ok()) << "it is opened again when it is used again";
    EXPECT_EQ(nfs.executed(Op::open), 2);
}

TEST_F(Nfs4VolumeTest, ClosesAFileWhenTheLastLetsItGo) {
    open();
    ASSERT_TRUE(attach().ok() && read().ok());
    auto other = volume->open(file, Access::read);
    let_go();
    EXPECT_TRUE(getattr().ok());
    EXPECT_EQ(nfs.executed(Op::close), 0);
    other.reset();
    EXPECT_TRUE(nfstdm::test::run(loop, [this] { return nfs.open_files() == 0; }));
}

TEST_F(Nfs4VolumeTest, OpensAFileAsItWasOpenedHereAndForAllThatHoldIt) {
    open();
    ASSERT_TRUE(attach().ok());
    writing();
    EXPECT_EQ(nfs.executed(Op::open), 0) << "nothing is asked of it yet";
    EXPECT_TRUE(read().ok());
    EXPECT_TRUE(write("CON").ok());
    EXPECT_EQ(nfs.executed(Op::open), 1) << "for both at once";
}

TEST_F(Nfs4VolumeTest, ClosesAFileThatWasLetGoWhileItWasOpened) {
    open();
    ASSERT_TRUE(attach().ok());
    Status end;
    writing().write(0, buffer, Stability::unstable, [&end](const Result<WriteReply> &reply) { end = reply.status(); });
    let_go();
    EXPECT_TRUE(nfstdm::test::run(loop, [&end] { return !end.ok(); })) << "who waits is told";
    EXPECT_EQ(end.number(), static_cast<uint32_t>(ECANCELED));
    EXPECT_TRUE(nfstdm::test::run(loop, [this] { return nfs.executed(Op::close) == 1; }));
    EXPECT_EQ(nfs.open_files(), 0U);
}

TEST_F(Nfs4VolumeTest, ClosesAFileThatWasLetGoWhileItWasOpenedWithItsFirstRead) {
    open();
    ASSERT_TRUE(attach().ok());
    std::optional<Status> end;
    reading().read(1, buffer, [&end](const Result<ReadReply> &reply) { end = reply.status(); });
    let_go();
    EXPECT_TRUE(nfstdm::test::run(loop, [&end] { return end.has_value(); })) << "who waits is told";
    EXPECT_TRUE(end->ok()) << end->text();
    EXPECT_TRUE(nfstdm::test::run(loop, [this] { return nfs.executed(Op::close) == 1; }));
    EXPECT_EQ(nfs.open_files(), 0U);
}

TEST_F(Nfs4VolumeTest, LetsWhatIsBeingClosedEndWhenItIsLeft) {
    open();
    ASSERT_TRUE(attach().ok() && read().ok());
    let_go();
    EXPECT_TRUE(detach().ok());
    EXPECT_EQ(nfs.executed(Op::close), 1);
    EXPECT_EQ(nfs.executed(Op::destroy_clientid), 1);
}

TEST_F(Nfs4VolumeTest, DoesNotWaitLongForAServerThatIsGoneWhenItIsLeft) {
    open();
    ASSERT_TRUE(attach().ok() && read().ok());
    nfs.server.stop();
    EXPECT_TRUE(detach().ok());
}

TEST_F(Nfs4VolumeTest, OpensAFileForMoreWhenItIsWrittenToo) {
    open();
    ASSERT_TRUE(attach().ok() && read().ok());
    EXPECT_TRUE(write("CON").ok());
    EXPECT_EQ(nfs.content, "CONtent");
    EXPECT_EQ(nfs.executed(Op::open), 2);
}

TEST_F(Nfs4VolumeTest, WritesASmallFileToStableStorageAndClosesItInOneQuestion) {
    open();
    ASSERT_TRUE(attach().ok());
    const auto made = get<CreatedFile>([this](auto done) {
        volume->create(root, "file", {0644, uint64_t{0}}, std::move(done));
    });
    ASSERT_TRUE(made.ok() && made.value().reply.handle);
    EXPECT_EQ(nfs.compounds().back(), "SEQUENCE PUTFH OPEN GETFH GETATTR PUTFH GETATTR");
    const auto reply = write("whole", Stability::file_sync);
    ASSERT_TRUE(reply.ok()) << reply.status().text();
    EXPECT_EQ(reply.value().committed, Stability::file_sync);
    EXPECT_EQ(nfs.compounds().back(), "SEQUENCE PUTFH WRITE GETATTR CLOSE");
    EXPECT_EQ(nfs.open_files(), 0U);
}

class LostState : public Nfs4VolumeTest, public testing::WithParamInterface<NfsStatus> {};

TEST_P(LostState, IsAskedForAgain) {
    open();
    ASSERT_TRUE(attach().ok() && read().ok());
    nfs.fail(Op::read, GetParam());
    const auto reply = read();
    ASSERT_TRUE(reply.ok()) << reply.status().text();
    EXPECT_EQ(text(reply.value().count), "onte");
    EXPECT_EQ(nfs.executed(Op::open), 2);
    nfs.fail(Op::write, GetParam());
    EXPECT_TRUE(write("CON").ok());
    nfs.fail(Op::write, GetParam());
    EXPECT_TRUE(write("con", Stability::file_sync).ok());
    nfs.fail(Op::setattr, GetParam());
    EXPECT_TRUE(end_of([this](auto done) { volume->setattr(file, {{}, uint64_t{3}}, std::move(done)); }).ok());
}

INSTANTIATE_TEST_SUITE_P(Statuses, LostState,
                         testing::Values(NfsStatus::bad_stateid, NfsStatus::stale_stateid, NfsStatus::old_stateid,
                                         NfsStatus::expired, NfsStatus::admin_revoked));

TEST_F(Nfs4VolumeTest, GivesAFileUpWhoseStateIsLostEachTime) {
    open();
    ASSERT_TRUE(attach().ok());
    nfs.fail(Op::read, NfsStatus::expired, 100);
    EXPECT_EQ(read().status().number(), static_cast<uint32_t>(EIO));
}

TEST_F(Nfs4VolumeTest, ReclaimsWhatIsOpenFromAServerThatRestarted) {
    open();
    ASSERT_TRUE(attach().ok() && read().ok());
    nfs.restart();
    const auto reply = read();
    ASSERT_TRUE(reply.ok()) << reply.status().text();
    const auto &seen = nfs.compounds();
    EXPECT_THAT(std::vector(seen.end() - 5, seen.end()),
                ElementsAre("CREATE_SESSION", "EXCHANGE_ID", "CREATE_SESSION", "SEQUENCE PUTFH OPEN",
                            "SEQUENCE RECLAIM_COMPLETE PUTFH READ"));
}

TEST_F(Nfs4VolumeTest, OpensAnewWhatAServerThatRestartedDoesNotGiveBack) {
    open();
    ASSERT_TRUE(attach().ok() && read().ok());
    nfs.restart();
    nfs.fail(Op::open, NfsStatus::no_grace);
    EXPECT_TRUE(read().ok());
}

TEST_F(Nfs4VolumeTest, RestartsWhatWasUnderWayWhenTheServerDid) {
    open();
    ASSERT_TRUE(attach().ok() && read().ok());
    nfs.lose_answers(Op::write, 1);
    const auto original = nfs.server.on_call;
    bool restarted = false;
    nfs.server.on_call = [&](const auto &call) {
        original(call);
        if (nfs.executed(Op::write) == 1 && !std::exchange(restarted, true)) nfs.restart();
    };
    EXPECT_TRUE(write("CON").ok());
    EXPECT_EQ(nfs.executed(Op::write), 2);
}

// --- failures

struct Refusal {
    NfsStatus status;
    int number;
    const char *words;
};

class Refused : public Nfs4VolumeTest, public testing::WithParamInterface<Refusal> {};

TEST_P(Refused, IsToldWithItsNumberAndItsReason) {
    open();
    ASSERT_TRUE(attach().ok());
    nfs.fail(Op::putfh, GetParam().status);
    const auto reply = getattr();
    EXPECT_EQ(reply.status().number(), static_cast<uint32_t>(GetParam().number));
    EXPECT_THAT(reply.status().text(), AllOf(HasSubstr("server db1: GETATTR: "), HasSubstr(GetParam().words)));
}

INSTANTIATE_TEST_SUITE_P(Statuses, Refused,
                         testing::Values(Refusal{NfsStatus::stale, ESTALE, "NFS4ERR_STALE"},
                                         Refusal{NfsStatus::fhexpired, ESTALE, "NFS4ERR_FHEXPIRED"},
                                         Refusal{NfsStatus::moved, EREMOTE, "on another server"},
                                         Refusal{NfsStatus::wrongsec, EACCES, "another security flavour"},
                                         Refusal{NfsStatus::access, EACCES, "permission denied"}));

TEST_F(Nfs4VolumeTest, TellsWhereAFileSystemHasMovedTo) {
    open();
    ASSERT_TRUE(attach().ok());
    nfs.fail(Op::getattr, NfsStatus::moved);
    const auto reply = getattr();
    EXPECT_EQ(reply.status().number(), static_cast<uint32_t>(EREMOTE));
    EXPECT_THAT(reply.status().text(), HasSubstr("(NFS4ERR_MOVED); it is at nas7:/vol/data, nas8:/vol/data"));
    nfs.fail(Op::getattr, NfsStatus::moved, 2);
    EXPECT_THAT(getattr().status().text(), HasSubstr("NFS4ERR_MOVED")) << "the server need not tell";
}

TEST_F(Nfs4VolumeTest, TellsWhereAnExportIsThatIsOnAnotherServer) {
    open();
    nfs.fail(Op::getfh, NfsStatus::moved);
    EXPECT_THAT(attach().status().text(), AllOf(HasSubstr("export /export"), HasSubstr("; it is at nas7:/vol/data")));
}

TEST_F(Nfs4VolumeTest, TakesTheStrongestSecurityThatAnExportOffersInsteadOfSys) {
    nfs.kerberos_services = {1, 2};
    open();
    nfs.fail(Op::lookup, NfsStatus::wrongsec);
    // What Kerberos needs is not beside this program.
    EXPECT_THAT(attach().status().text(), HasSubstr("server db1: security krb5i: Kerberos is not available"));
    EXPECT_EQ(nfs.executed(Op::secinfo), 1);
}

TEST_F(Nfs4VolumeTest, TellsWhatAnExportIsOfferedWithThatRefusesItsSecurity) {
    nfs.kerberos_services = {1, 3};
    volume = factory.open(config(), {"/export", "/mnt", "sys"}, {4, 1, false});
    nfs.fail(Op::lookup, NfsStatus::wrongsec);
    EXPECT_THAT(attach().status().text(), HasSubstr("is not offered with security sys, only with krb5, krb5p"));
}

TEST_F(Nfs4VolumeTest, AsksForTheSecurityOfTheRootWhereThatIsWhatRefuses) {
    nfs.kerberos_services = {1};
    volume = factory.open(config(), {"/export", "/mnt", "sys"}, {4, 1, false});
    nfs.fail(Op::putrootfh, NfsStatus::wrongsec);
    EXPECT_THAT(attach().status().text(), HasSubstr("is not offered with security sys, only with krb5"));
    EXPECT_EQ(nfs.executed(Op::secinfo_no_name), 1);
    EXPECT_EQ(nfs.executed(Op::secinfo), 0);
}

TEST_F(Nfs4VolumeTest, TellsWhichSecurityAnExportTakesThatWasPutUnderAnotherOne) {
    nfs.kerberos_services = {1, 2};
    open();
    ASSERT_TRUE(attach().ok());
    nfs.fail(Op::getattr, NfsStatus::wrongsec);
    const auto reply = getattr();
    EXPECT_EQ(reply.status().number(), static_cast<uint32_t>(EACCES));
    EXPECT_THAT(reply.status().text(), HasSubstr("(NFS4ERR_WRONGSEC); it takes krb5, krb5i"));
    nfs.fail(Op::getattr, NfsStatus::wrongsec);
    nfs.fail(Op::secinfo_no_name, NfsStatus::notsupp);
    EXPECT_THAT(getattr().status().text(), HasSubstr("NFS4ERR_WRONGSEC")) << "the server need not tell";
}

TEST_F(Nfs4VolumeTest, RemovesNoDirectoryAsAFileAndNoFileAsADirectory) {
    open();
    ASSERT_TRUE(attach().ok());
    EXPECT_EQ(remove("folder").number(), static_cast<uint32_t>(EISDIR));
    const auto rmdir = [this](const std::string &name) {
        return get<DirectoryChange>([&, this](auto done) { volume->rmdir(root, name, std::move(done)); }).status();
    };
    EXPECT_EQ(rmdir("file").number(), static_cast<uint32_t>(ENOTDIR));
    EXPECT_EQ(nfs.executed(Op::remove), 0);
    EXPECT_TRUE(rmdir("folder").ok());
    EXPECT_TRUE(remove("file").ok());
}

TEST_F(Nfs4VolumeTest, RefusesWorkWhileItIsNotAttached) {
    open();
    EXPECT_EQ(getattr().status().number(), static_cast<uint32_t>(ENOTCONN));
    EXPECT_EQ(read().status().number(), static_cast<uint32_t>(ENOTCONN));
    EXPECT_EQ(write("x").status().number(), static_cast<uint32_t>(ENOTCONN));
}

TEST_F(Nfs4VolumeTest, EndsWhatIsUnderWayWhenItIsDestroyed) {
    open();
    ASSERT_TRUE(attach().ok());
    nfs.server.on_call = [](const auto &) {};
    std::vector<uint32_t> ends;
    volume->getattr(file, [&ends](const Result<Attributes> &reply) { ends.push_back(reply.status().number()); });
    reading().read(1, buffer, [&ends](const Result<ReadReply> &reply) { ends.push_back(reply.status().number()); });
    let_go();
    volume.reset();
    EXPECT_THAT(ends, ElementsAre(ECANCELED, ECANCELED));
}

TEST_F(Nfs4VolumeTest, LooksSeveralComponentsUpInOneQuestionAndTellsHowFarItGot) {
    open();
    ASSERT_TRUE(attach().ok());
    const auto look_up = [this](const std::vector<std::string> &names) {
        return get<PathReply>([&, this](auto done) { volume->lookup_path(root, names, std::move(done)); });
    };
    const auto all = look_up({"folder", "file"});
    ASSERT_TRUE(all.ok()) << all.status().text();
    EXPECT_TRUE(all.value().failure.ok());
    ASSERT_EQ(all.value().found.size(), 2U);
    EXPECT_EQ(all.value().found[1].handle, file);
    EXPECT_EQ(nfs.compounds().back(), "SEQUENCE PUTFH LOOKUP GETFH GETATTR LOOKUP GETFH GETATTR");
    const auto some = look_up({"folder", "missing", "file"});
    ASSERT_TRUE(some.ok()) << some.status().text();
    EXPECT_EQ(some.value().found.size(), 1U);
    EXPECT_EQ(some.value().failure.number(), static_cast<uint32_t>(ENOENT));
}

TEST_F(Nfs4VolumeTest, ListsADirectoryWithHandlesAndAttributesInOneQuestion) {
    open();
    ASSERT_TRUE(attach().ok());
    const auto reply = get<DirectoryReply>([this](auto done) { volume->readdir(root, 0, 0, true, std::move(done)); });
    ASSERT_TRUE(reply.ok()) << reply.status().text();
    ASSERT_EQ(reply.value().entries.size(), 4U);
    EXPECT_TRUE(reply.value().eof && reply.value().directory);
    EXPECT_TRUE(reply.value().entries[1].handle && reply.value().entries[1].attributes);
}

TEST_F(Nfs4VolumeTest, AsksForNamesAloneWhereNothingElseIsWanted) {
    open();
    ASSERT_TRUE(attach().ok());
    const auto reply = get<DirectoryReply>([this](auto done) { volume->readdir(root, 0, 0, false, std::move(done)); });
    ASSERT_TRUE(reply.ok()) << reply.status().text();
    ASSERT_EQ(reply.value().entries.size(), 4U);
    const DirectoryEntry &entry = reply.value().entries[1];
    EXPECT_FALSE(entry.handle || entry.attributes);
    EXPECT_NE(entry.fileid, 0U);
}

TEST_F(Nfs4VolumeTest, TellsTheFileIdOfTheParentThatListingsLeaveOut) {
    open();
    ASSERT_TRUE(attach().ok());
    const auto list = [this](const FileHandle &directory, uint64_t cookie) {
        return get<DirectoryReply>([&](auto done) { volume->readdir(directory, cookie, 0, true, std::move(done)); });
    };
    const auto first = list(root, 0);
    ASSERT_TRUE(first.ok()) << first.status().text();
    EXPECT_EQ(first.value().entries[0].name, "..");
    EXPECT_EQ(first.value().entries[0].fileid, 42U);
    for (const auto &[directory, cookie] : {std::pair{handle_of("/"), uint64_t{0}}, {root, uint64_t{3}}}) {
        const auto reply = list(directory, cookie);
        ASSERT_TRUE(reply.ok()) << reply.status().text();
        EXPECT_EQ(reply.value().entries.size(), 3U) << "neither the root has one nor what follows";
    }
}

TEST_F(Nfs4VolumeTest, LearnsWhatADirectoryBecameFromTheChangeItself) {
    open();
    ASSERT_TRUE(attach().ok());
    const auto made = mkdir("new");
    ASSERT_TRUE(made.ok());
    EXPECT_TRUE(made.value().directory.after.has_value());
    EXPECT_EQ(nfs.compounds().back(), "SEQUENCE PUTFH CREATE GETFH GETATTR PUTFH GETATTR");
    const auto removed = get<DirectoryChange>([this](auto done) { volume->remove(root, "file", std::move(done)); });
    ASSERT_TRUE(removed.ok());
    EXPECT_TRUE(removed.value().after.has_value());
}

TEST_F(Nfs4VolumeTest, CountsAsDoneWhatWasDoneWhenTheServerDoesNotTellWhatCameOfIt) {
    open();
    ASSERT_TRUE(attach().ok());
    nfs.fail(Op::getattr, NfsStatus::delay);
    EXPECT_TRUE(remove("file").ok());
    EXPECT_EQ(nfs.executed(Op::remove), 1);
    nfs.fail(Op::getattr, NfsStatus::delay);
    const auto made = mkdir("new");
    EXPECT_TRUE(made.ok()) << made.status().text();
    EXPECT_FALSE(made.value().handle.has_value());
    EXPECT_EQ(nfs.executed(Op::create), 1);
}

TEST_F(Nfs4VolumeTest, TellsOfItsRootWithoutAskingAgain) {
    open();
    EXPECT_TRUE(attach().ok());
    const auto told = volume->root_info();
    ASSERT_TRUE(told && told->attributes);
    EXPECT_EQ(told->attributes->type, FileType::directory);
    EXPECT_EQ(told->limits.read_maximum, volume->limits().read_maximum);
}

}  // namespace
}  // namespace nfstdm::nfs4
