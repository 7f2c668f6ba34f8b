// SPDX-License-Identifier: Apache-2.0
// Servers that lack something, grant little, or answer what was not asked.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string>
#include <utility>

#include "nfstdm/nfs4/op_table.h"
#include "tests/unit/nfs4/volume_fixture.h"

namespace nfstdm::nfs4 {
namespace {

using test::handle_of;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

class OddServerTest : public test::Nfs4VolumeTest {
  protected:
    Result<CreatedFile> create(const SetAttributes &set) {
        return get<CreatedFile>([&, this](auto done) { volume->create(root, "file", set, std::move(done)); });
    }
    Status set_size(uint64_t size) {
        return end_of([&, this](auto done) { volume->setattr(file, {{}, size}, std::move(done)); });
    }
};

// --- few operations in a request

TEST_F(OddServerTest, TakesThePathOfAnExportInParts) {
    nfs.operations = 8;
    open("/export/folder/export/folder/export");
    const auto found = attach();
    ASSERT_TRUE(found.ok()) << found.status().text();
    EXPECT_EQ(found.value(), root);
    EXPECT_THAT(nfs.compounds(), ElementsAre("EXCHANGE_ID", "CREATE_SESSION",
                                             "SEQUENCE RECLAIM_COMPLETE PUTROOTFH LOOKUP LOOKUP LOOKUP GETFH GETATTR",
                                             "SEQUENCE PUTFH LOOKUP LOOKUP GETFH GETATTR"));
}

TEST_F(OddServerTest, SaysWhatThereIsWhereALaterPartOfAPathIsNot) {
    nfs.operations = 8;
    open("/export/folder/export/folder/missing");
    EXPECT_THAT(attach().status().text(), HasSubstr("; /export/folder/export/folder holds: "));
}

TEST_F(OddServerTest, TellsWhereAnExportIsWhosePathLeavesTheServerInTheMiddle) {
    open("/export/folder/export");
    nfs.fail_later(Op::lookup, NfsStatus::moved, 1);
    EXPECT_THAT(attach().status().text(), HasSubstr("; it is at nas7:/vol/data"));
}

TEST_F(OddServerTest, IsToldThatReclaimingIsOverInARequestOfItsOwnWhereNoMoreFits) {
    nfs.operations = 5;
    open();
    ASSERT_TRUE(attach().ok());
    EXPECT_THAT(nfs.compounds(), ElementsAre("EXCHANGE_ID", "CREATE_SESSION", "SEQUENCE RECLAIM_COMPLETE",
                                             "SEQUENCE PUTROOTFH LOOKUP GETFH GETATTR"));
    EXPECT_THAT(mkdir("new").status().text(), HasSubstr("MKDIR: the server takes only 5 operations in a request"));
    EXPECT_TRUE(getattr().ok()) << "the slot is free again";
}

TEST_F(OddServerTest, IsAskedWhatWasToBeAskedWhenASessionIsLostWithWhatEndsReclaiming) {
    nfs.operations = 5;
    open();
    nfs.fail(Op::sequence, NfsStatus::badsession);
    EXPECT_TRUE(attach().ok());
}

// --- small answers

TEST_F(OddServerTest, IsAskedForNoMoreThanASmallSessionCarries) {
    for (const auto &[bytes, most] : {std::pair{8192U, 4096U}, {4096U, 3072U}, {1024U, 512U}, {0U, 512U}}) {
        nfs.channel_bytes = bytes;
        open();
        ASSERT_TRUE(attach().ok());
        EXPECT_EQ(volume->limits().read_maximum, most) << bytes;
        EXPECT_EQ(volume->limits().write_maximum, most) << bytes;
        EXPECT_LE(volume->limits().readdir_preferred, most) << bytes;
        ASSERT_TRUE(detach().ok());
    }
}

class AnswersThatAreTooLargeToKeep : public OddServerTest, public testing::WithParamInterface<Op> {};

TEST_P(AnswersThatAreTooLargeToKeep, AreHadWithoutBeingKept) {
    open();
    ASSERT_TRUE(attach().ok());
    EXPECT_TRUE(set_size(3).ok());
    EXPECT_TRUE(nfs.asked_to_be_kept.back());
    nfs.fail(GetParam(), NfsStatus::rep_too_big_to_cache);
    EXPECT_TRUE(set_size(3).ok());
    EXPECT_FALSE(nfs.asked_to_be_kept.back());
}

INSTANTIATE_TEST_SUITE_P(AtOperations, AnswersThatAreTooLargeToKeep,
                         testing::Values(Op::sequence, Op::putfh, Op::setattr),
                         [](const auto &parameter) { return std::string(row_of(parameter.param).name); });

TEST_F(OddServerTest, FailsWhenItTakesAnswersForTooLargeThatItWasNotAskedToKeep) {
    open();
    ASSERT_TRUE(attach().ok());
    nfs.fail(Op::setattr, NfsStatus::rep_too_big_to_cache, 2);
    EXPECT_THAT(set_size(3).text(), HasSubstr("NFS4ERR_REP_TOO_BIG_TO_CACHE"));
}

// --- answers to something else

struct Turned {
    const char *what;
    void (*turn)(SequenceArguments &);
};

class AnswersToAnotherRequest : public OddServerTest, public testing::WithParamInterface<Turned> {};

TEST_P(AnswersToAnotherRequest, AreNotUsed) {
    open();
    ASSERT_TRUE(attach().ok());
    nfs.turn_sequence = GetParam().turn;
    EXPECT_THAT(getattr().status().text(), HasSubstr("makes no sense"));
    nfs.turn_sequence = nullptr;
    EXPECT_TRUE(getattr().ok());
}

INSTANTIATE_TEST_SUITE_P(By, AnswersToAnotherRequest,
                         testing::Values(Turned{"slot", [](SequenceArguments &told) { ++told.slot; }},
                                         Turned{"number", [](SequenceArguments &told) { --told.sequence; }},
                                         Turned{"session",
                                                [](SequenceArguments &told) { told.session.back() = std::byte{1}; }}),
                         [](const auto &parameter) { return std::string(parameter.param.what); });

// --- not ready

TEST_F(OddServerTest, IsToldAgainThatReclaimingIsOverWhenItWasNotReadyToHearIt) {
    open();
    nfs.fail(Op::reclaim_complete, NfsStatus::delay, 2);
    ASSERT_TRUE(attach().ok());
    EXPECT_EQ(nfs.executed(Op::reclaim_complete), 1);
}

TEST_F(OddServerTest, IsGivenUpWhenItNeverMakesAnotherSession) {
    ServerConfig impatient = config();
    impatient.io_timeout_seconds = 1;
    volume = factory.open(impatient, {"/export", "/mnt", {}}, {4, 1, false});
    ASSERT_TRUE(attach().ok());
    nfs.restart();
    nfs.fail(Op::exchange_id, NfsStatus::delay, 100000);
    const auto reply = getattr();
    EXPECT_EQ(reply.status().number(), static_cast<uint32_t>(ETIMEDOUT));
    EXPECT_THAT(reply.status().text(), HasSubstr("was not ready in all the time given"));
}

// --- attributes that a server need not have

TEST_F(OddServerTest, NeedNotTellMoreOfAnObjectThanItMust) {
    nfs.lacking = {Attribute::fileid,        Attribute::mode,       Attribute::numlinks,    Attribute::owner,
                   Attribute::owner_group,   Attribute::space_used, Attribute::time_access, Attribute::time_modify,
                   Attribute::time_metadata, Attribute::maxread,    Attribute::maxwrite,    Attribute::maxfilesize};
    open();
    ASSERT_TRUE(attach().ok());
    EXPECT_EQ(volume->limits().write_maximum, 1U << 20);
    const auto of_file = getattr();
    ASSERT_TRUE(of_file.ok()) << of_file.status().text();
    EXPECT_EQ(of_file.value().mode, 0644U);
    EXPECT_EQ(of_file.value().links, 1U);
    EXPECT_EQ(of_file.value().uid, 65534U);
    EXPECT_EQ(of_file.value().gid, 65534U);
    const auto of_root = volume->root_info();
    ASSERT_TRUE(of_root && of_root->attributes);
    EXPECT_EQ(of_root->attributes->mode, 0755U);
}

TEST_F(OddServerTest, WithoutFileNumbersHasFilesThatAreToldApartByTheirHandles) {
    nfs.lacking = {Attribute::fileid};
    open();
    ASSERT_TRUE(attach().ok());
    const auto look_up = [this](const std::string &name) {
        return get<LookupReply>([&](auto done) { volume->lookup(root, name, std::move(done)); }).value();
    };
    const auto found = look_up("file");
    const auto other = look_up("folder");
    EXPECT_NE(found.attributes->fileid, other.attributes->fileid);
    EXPECT_EQ(found.attributes->fileid, getattr().value().fileid);
    const auto listed = get<DirectoryReply>([this](auto done) { volume->readdir(root, 3, 0, true, std::move(done)); });
    ASSERT_TRUE(listed.ok());
    const DirectoryEntry &entry = listed.value().entries.front();
    EXPECT_NE(entry.fileid, 0U);
    EXPECT_EQ(entry.fileid, entry.attributes->fileid);
}

TEST_F(OddServerTest, WithoutPermissionsGetsFilesAndDirectoriesAllTheSame) {
    nfs.lacking = {Attribute::mode};
    open();
    ASSERT_TRUE(attach().ok());
    const auto made = create({0640, uint64_t{0}});
    EXPECT_TRUE(made.ok()) << made.status().text();
    EXPECT_TRUE(mkdir("new").ok());
    EXPECT_EQ(nfs.executed(Op::create), 1);
    const Status refused = end_of([this](auto done) { volume->setattr(file, {0600, {}}, std::move(done)); });
    EXPECT_THAT(refused.text(), HasSubstr("NFS4ERR_ATTRNOTSUPP")) << "asked for by itself it is not left out";
}

TEST_F(OddServerTest, IsAskedToCutAFileThatIsOpenForReadingWithoutThatState) {
    open();
    ASSERT_TRUE(attach().ok() && read().ok());
    EXPECT_TRUE(set_size(3).ok());
    EXPECT_TRUE(write("CON").ok() && set_size(3).ok());
    ASSERT_EQ(nfs.resized_with.size(), 2U);
    EXPECT_EQ(nfs.resized_with[0], StateId::anonymous());
    EXPECT_NE(nfs.resized_with[1], StateId::anonymous());
}

// --- files that were opened for an operation that failed

TEST_F(OddServerTest, IsLeftNothingOpenBehindAReadThatFails) {
    open();
    ASSERT_TRUE(attach().ok());
    std::array<std::byte, 4> part{};
    const auto read_all = [&] {
        return get<ReadReply>([&, this](auto done) { reading().read(0, part, std::move(done)); });
    };
    nfs.fail(Op::read, NfsStatus::openmode);
    nfs.fail(Op::read, NfsStatus::delay, 2);
    EXPECT_TRUE(read_all().ok()) << "which wants it to be open";
    nfs.fail(Op::read, NfsStatus::io);
    EXPECT_FALSE(read_all().ok());
    ASSERT_TRUE(nfstdm::test::run(loop, [this] { return nfs.open_files() == 0; }));
}

TEST_F(OddServerTest, IsLeftNothingOpenBehindALastWriteThatFails) {
    open();
    ASSERT_TRUE(attach().ok());
    nfs.fail(Op::write, NfsStatus::nospc);
    EXPECT_EQ(write("CON", Stability::file_sync).status().number(), static_cast<uint32_t>(ENOSPC));
    ASSERT_TRUE(nfstdm::test::run(loop, [this] { return nfs.open_files() == 0; }));
}

// --- a server that wants privileged ports, or another transport

// Whoever runs the test is not root while this lives.
class NotRoot {
  public:
    NotRoot() { EXPECT_TRUE(before_ != 0 || seteuid(kSomebody) == 0); }
    ~NotRoot() { EXPECT_EQ(seteuid(before_), 0); }
    NotRoot(const NotRoot &) = delete;
    NotRoot &operator=(const NotRoot &) = delete;

  private:
    static constexpr uid_t kSomebody = 65534;
    const uid_t before_ = geteuid();
};

TEST_F(OddServerTest, ThatRefusesTheExportToAnOrdinaryUserMayWantAPrivilegedPort) {
    open();
    nfs.fail(Op::lookup, NfsStatus::perm);
    const NotRoot somebody;
    EXPECT_THAT(attach().status().text(),
                AllOf(HasSubstr("(NFS4ERR_PERM); the server may want a source port below 1024"), HasSubstr("root")));
}

TEST_F(OddServerTest, ThatRefusesTheOnlySecurityItOffersMayWantAnotherTransport) {
    nfs.kerberos_services = {};
    nfs.offers_sys = true;
    open();
    nfs.fail(Op::lookup, NfsStatus::wrongsec, 2);
    EXPECT_THAT(attach().status().text(),
                HasSubstr("the server offers security sys and refuses it: it may want another transport_security"));
}

// --- what moved, or was put under another security, while it was in use

class RefusedOpening : public OddServerTest, public testing::WithParamInterface<bool> {
  protected:
    std::string failure_of_opening(NfsStatus status) {
        nfs.fail(Op::open, status);
        if (GetParam()) return write("CON").status().text();
        return read().status().text();
    }
};

TEST_P(RefusedOpening, IsExplained) {
    nfs.kerberos_services = {2, 3};
    open();
    ASSERT_TRUE(attach().ok());
    EXPECT_THAT(failure_of_opening(NfsStatus::wrongsec),
                AllOf(HasSubstr("OPEN: "), HasSubstr("(NFS4ERR_WRONGSEC); it takes krb5i, krb5p")));
    EXPECT_THAT(failure_of_opening(NfsStatus::moved),
                AllOf(HasSubstr("OPEN: "), HasSubstr("(NFS4ERR_MOVED); it is at nas7:/vol/data")));
}

INSTANTIATE_TEST_SUITE_P(ByAccess, RefusedOpening, testing::Bool(),
                         [](const auto &parameter) { return parameter.param ? "write" : "read"; });

}  // namespace
}  // namespace nfstdm::nfs4
