// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <optional>
#include <random>
#include <set>

#include "nfstdm/nfs3/constants.h"
#include "nfstdm/nfs3/nfs3_volume.h"
#include "nfstdm/rpc/message/constants.h"
#include "nfstdm/volume/sizes.h"
#include "nfstdm/xdr/reader.h"
#include "tests/unit/nfs3/samples.h"
#include "tests/unit/rpc/scripted_server.h"

namespace nfstdm::nfs3 {
namespace {

using std::chrono::milliseconds;
using test::Bytes;
using test::bytes_of;
using test::ReceivedCall;
using test::ScriptedServer;
using testing::HasSubstr;
using testing::StartsWith;

rpc::Timing quick() {
    rpc::Timing timing;
    timing.tick = milliseconds(2);
    timing.probe = milliseconds(20);
    timing.silence = timing.silence_alone = milliseconds(60);
    timing.backoff_first = milliseconds(2);
    timing.backoff_most = milliseconds(10);
    timing.jukebox_first = milliseconds(1);
    timing.jukebox_most = milliseconds(4);
    timing.jukebox_notice = milliseconds(20);
    return timing;
}

// MOUNT and NFS on one port, as a script: an answer a procedure, which a test may replace.
class FakeNfs {
  public:
    // Writes the results behind a status of its own choice.
    using Answer = std::function<void(const ReceivedCall &, xdr::Writer &)>;

    explicit FakeNfs(EventLoop &loop) : server(loop) {
        server.on_call = [this](const ReceivedCall &call) { answer(call); };
        on(Procedure::fsinfo, [](const ReceivedCall &, xdr::Writer &results) {
            results.put_u32(0);
            samples::put_fsinfo(results, 2U << 20, 65536);
        });
    }

    void on(Procedure procedure, Answer answer) { answers_[procedure] = std::move(answer); }
    // A status and nothing used behind it.
    void refuse(Procedure procedure, NfsStatus status) {
        on(procedure, [status](const ReceivedCall &, xdr::Writer &results) {
            results.put_u32(static_cast<uint32_t>(status));
            results.put_bool(false);
            results.put_bool(false);
        });
    }
    // The first calls of a procedure are executed and the connection is cut instead of an answer.
    void lose_answers(Procedure procedure, int count) { lost_[procedure] = count; }

    std::size_t count(Procedure procedure) const {
        return static_cast<std::size_t>(
            std::count_if(server.calls().begin(), server.calls().end(), [procedure](const ReceivedCall &call) {
                return call.program == kProgram && call.procedure == static_cast<uint32_t>(procedure);
            }));
    }
    std::size_t mount_count(mount3::Procedure procedure) const {
        return static_cast<std::size_t>(
            std::count_if(server.calls().begin(), server.calls().end(), [procedure](const ReceivedCall &call) {
                return call.program == mount3::kProgram && call.procedure == static_cast<uint32_t>(procedure);
            }));
    }

    ScriptedServer server;
    std::vector<uint32_t> flavours = {rpc::kAuthSys};
    uint32_t mount_status = 0;
    bool answer_unmount = true;

  private:
    void answer(const ReceivedCall &call) {
        xdr::Writer reply = test::begin_reply(call.xid);
        if (call.program == mount3::kProgram) {
            if (!answer_mount(static_cast<mount3::Procedure>(call.procedure), reply)) return;
        } else {
            const auto procedure = static_cast<Procedure>(call.procedure);
            if (lost_[procedure]-- > 0) return server.cut(call.connection);
            const auto found = answers_.find(procedure);
            if (found == answers_.end()) return;
            found->second(call, reply);
        }
        server.reply(call.connection, reply);
    }

    bool answer_mount(mount3::Procedure procedure, xdr::Writer &reply) const {
        if (procedure == mount3::Procedure::umnt) return answer_unmount;
        reply.put_u32(mount_status);
        if (mount_status != 0) return true;
        reply.put_string("root");
        reply.put_u32(static_cast<uint32_t>(flavours.size()));
        for (const uint32_t flavour : flavours)
            reply.put_u32(flavour);
        return true;
    }

    std::map<Procedure, Answer> answers_;
    std::map<Procedure, int> lost_;
};

class VolumeTest : public testing::Test {
  protected:
    ServerConfig config_of(const FakeNfs &nfs) {
        ServerConfig config;
        config.name = "db1";
        config.paths = {{"", "127.0.0.1:" + std::to_string(nfs.server.port())}};
        config.contact_timeout_seconds = 30;
        return config;
    }
    void open(const ServerConfig &config, const std::string &security = {}) {
        volume = factory.open(config, {"/export", "/mnt", security});
    }

    // Starts an operation through start(completion) and gives what it ends with.
    template <class Reply, class Start>
    Result<Reply> get(Start start) {
        std::optional<Result<Reply>> result;
        start([&result](Result<Reply> reply) {
            EXPECT_FALSE(result.has_value());
            result = std::move(reply);
        });
        EXPECT_FALSE(result.has_value()) << "completed inside the call";
        if (!test::run(loop, [&] { return result.has_value(); })) return Status{EINTR, "no completion"};
        return std::move(*result);
    }
    template <class Start>
    Status done(Start start) {
        std::optional<Status> result;
        start([&result](Status status) { result = std::move(status); });
        EXPECT_FALSE(result.has_value()) << "completed inside the call";
        if (!test::run(loop, [&] { return result.has_value(); })) return {EINTR, "no completion"};
        return *result;
    }

    Result<FileHandle> attach() {
        return get<FileHandle>([this](auto completion) { volume->attach(completion); });
    }
    void attach_to(FakeNfs &nfs) {
        open(config_of(nfs));
        const auto root = attach();
        ASSERT_TRUE(root.ok()) << root.status().text();
        handle = root.value();
    }
    Result<Attributes> getattr() {
        return get<Attributes>([this](auto completion) { volume->getattr(handle, completion); });
    }
    Result<CreateReply> mkdir() {
        return get<CreateReply>([this](auto completion) { volume->mkdir(handle, "d", 0755, completion); });
    }
    // The file that is read and written here: the root's handle does.
    VolumeFile &opened() {
        file_ = volume->open(handle, Access::read);
        return *file_;
    }
    Status remove() {
        return get<DirectoryChange>([this](auto completion) { volume->remove(handle, "f", completion); }).status();
    }

    EventLoop loop;
    Trace trace;
    Exports factory{loop, trace, quick()};
    std::unique_ptr<Volume> volume;
    FileHandle handle;

  private:
    std::unique_ptr<VolumeFile> file_;
};

// --- attach and detach

TEST_F(VolumeTest, AttachesAndAgreesOnSizes) {
    FakeNfs nfs(loop);
    open(config_of(nfs));
    const auto root = attach();
    ASSERT_TRUE(root.ok()) << root.status().text();
    EXPECT_EQ(root.value().view(), "root");
    EXPECT_EQ(volume->limits().read_maximum, kTransferMaximum);  // the server takes two MiB
    EXPECT_EQ(volume->limits().read_preferred, 16384U);
    EXPECT_EQ(volume->limits().write_maximum, 65536U);
    EXPECT_EQ(volume->limits().file_size_maximum, uint64_t{1} << 40);
    EXPECT_FALSE(volume->busy());
}

TEST_F(VolumeTest, AttachesOnceHoweverOftenItIsAsked) {
    FakeNfs nfs(loop);
    open(config_of(nfs));
    int completions = 0;
    for (int i = 0; i < 3; ++i)
        volume->attach([&](const Result<FileHandle> &root) { completions += root.ok() ? 1 : 0; });
    ASSERT_TRUE(test::run(loop, [&] { return completions == 3; }));
    EXPECT_TRUE(attach().ok());
    EXPECT_EQ(nfs.mount_count(mount3::Procedure::mnt), 1U);
}

TEST_F(VolumeTest, UsesASizeThatWorksWhenTheServerNamesNone) {
    FakeNfs nfs(loop);
    nfs.on(Procedure::fsinfo, [](const ReceivedCall &, xdr::Writer &results) {
        results.put_u32(0);
        samples::put_fsinfo(results, 0, 0, 0);
    });
    attach_to(nfs);
    EXPECT_EQ(volume->limits().read_maximum, 8192U);
    EXPECT_EQ(volume->limits().write_maximum, 8192U);
    EXPECT_GT(volume->limits().read_preferred, 0U);
}

TEST_F(VolumeTest, KeepsWhatTheServerToldWhenItWasAttachedAsItWasTold) {
    FakeNfs nfs(loop);
    attach_to(nfs);
    const auto told = volume->root_info();
    ASSERT_TRUE(told && told->attributes);
    EXPECT_EQ(told->attributes->fsid, 77U);
    EXPECT_EQ(told->limits.read_maximum, 2U << 20) << "more than this client asks for at once";
    EXPECT_EQ(told->limits.readdir_preferred, 4096U);
    EXPECT_EQ(nfs.count(Procedure::fsinfo), 1U);
}

TEST_F(VolumeTest, RefusesAServerThatTakesNextToNothingAtOnce) {
    FakeNfs nfs(loop);
    open(config_of(nfs));
    for (const uint32_t size : {1U, 511U, 1023U, 1024U}) {
        nfs.on(Procedure::fsinfo, [size](const ReceivedCall &, xdr::Writer &results) {
            results.put_u32(0);
            samples::put_fsinfo(results, 65536, size);
        });
        const auto root = attach();
        EXPECT_EQ(root.ok(), size == 1024);
        if (root.ok()) continue;
        EXPECT_EQ(root.status().text(), "server db1: FSINFO: the server takes no more than " + std::to_string(size) +
                                            " bytes in one READ or WRITE, at least 1024 are needed");
    }
}

TEST_F(VolumeTest, SharesTheConnectionsOfAServer) {
    FakeNfs nfs(loop);
    nfs.on(Procedure::getattr, [](const ReceivedCall &, xdr::Writer &results) {
        results.put_u32(0);
        samples::put_attributes(results);
    });
    attach_to(nfs);
    const auto first = std::move(volume);
    attach_to(nfs);
    ASSERT_TRUE(getattr().ok());
    std::set<int> connections;
    for (const ReceivedCall &call : nfs.server.calls())
        if (call.program == kProgram) connections.insert(call.connection);
    EXPECT_EQ(connections.size(), 1U);
}

TEST_F(VolumeTest, ReportsWhatIsWrongWithABlockWithoutContact) {
    FakeNfs nfs(loop);
    ServerConfig config = config_of(nfs);
    config.problem = "line 7: nconnect is not a number";
    open(config);
    EXPECT_THAT(attach().status().text(), HasSubstr("server db1: line 7"));
    config = config_of(nfs);
    config.version = "nfsv4.0";
    config.line = 1;
    open(config);
    const auto version = attach();
    EXPECT_EQ(version.status().number(), static_cast<uint32_t>(EPROTONOSUPPORT));
    EXPECT_THAT(version.status().text(), HasSubstr("nfsv4.0"));
    config = config_of(nfs);
    config.line = 2;
    open(config, "krb5p");
    const auto security = attach();
    EXPECT_EQ(security.status().number(), static_cast<uint32_t>(ENOTSUP));
    EXPECT_THAT(security.status().text(), HasSubstr("krb5p"));
    config.line = 3;
    config.paths = {{"", "host:nowhere"}};
    open(config);
    EXPECT_EQ(attach().status().number(), static_cast<uint32_t>(EINVAL));
    EXPECT_EQ(nfs.server.accepted(), 0);
}

TEST_F(VolumeTest, TakesTheStrongestSecurityWhereSysIsNotOfferedAndNoneIsAskedFor) {
    FakeNfs nfs(loop);
    nfs.flavours = {390004, 390003, 7};
    open(config_of(nfs));
    const auto root = attach();  // what Kerberos needs is not beside this program
    EXPECT_EQ(root.status().number(), static_cast<uint32_t>(ENOTSUP));
    EXPECT_THAT(root.status().text(), HasSubstr("security krb5i: Kerberos is not available"));
    nfs.flavours = {7};
    EXPECT_THAT(attach().status().text(), HasSubstr("not offered with security sys, only with flavour 7"));
}

TEST_F(VolumeTest, RefusesAnExportThatDoesNotTakeItsSecurity) {
    FakeNfs nfs(loop);
    nfs.flavours = {390003, 390004};
    open(config_of(nfs), "sys");
    const auto root = attach();
    EXPECT_EQ(root.status().number(), static_cast<uint32_t>(EACCES));
    EXPECT_THAT(root.status().text(), HasSubstr("not offered with security sys, only with krb5, krb5i"));
    for (const auto &flavours : {std::vector<uint32_t>{}, {390003, 1}, {0}}) {
        nfs.flavours = flavours;
        EXPECT_TRUE(attach().ok());
        EXPECT_TRUE(done([this](auto completion) { volume->detach(completion); }).ok());
    }
}

TEST_F(VolumeTest, NamesTheSettingThatEndedTheFirstContact) {
    FakeNfs nfs(loop);
    nfs.server.silent = true;
    ServerConfig config = config_of(nfs);
    config.contact_timeout_seconds = 1;
    open(config);
    const auto root = attach();
    EXPECT_EQ(root.status().number(), static_cast<uint32_t>(ETIMEDOUT));
    EXPECT_THAT(root.status().text(), HasSubstr("; mnt_timeout is 1"));
}

TEST_F(VolumeTest, SaysThatAServerOffersAnotherVersionOnly) {
    const auto refuse = [](ScriptedServer &server, const ReceivedCall &call, std::initializer_list<uint32_t> words) {
        xdr::Writer reply;
        for (const uint32_t word : {call.xid, rpc::kReply, rpc::kMessageAccepted, rpc::kAuthNone, 0U})
            reply.put_u32(word);
        for (const uint32_t word : words)
            reply.put_u32(word);
        server.reply(call.connection, reply);
    };
    FakeNfs nfs(loop);
    nfs.server.on_call = [&](const ReceivedCall &call) { refuse(nfs.server, call, {1}); };
    for (const bool v4_only : {true, false}) {
        nfs.server.on_null = [&](const ReceivedCall &call) {
            if (call.version == 4 || !v4_only)
                nfs.server.reply(call.connection, test::begin_reply(call.xid));
            else
                refuse(nfs.server, call, {2, 4, 4});
        };
        open(config_of(nfs));
        const auto root = attach();
        EXPECT_EQ(root.status().number(), static_cast<uint32_t>(EPROTONOSUPPORT));
        EXPECT_THAT(root.status().text(),
                    HasSubstr(v4_only ? "server db1: it offers NFSv4 only"
                                      : "server db1: MNT: the server does not offer the program"));
    }
}

TEST_F(VolumeTest, PresentsTheConfiguredIdentityWithoutTheProcessesGroups) {
    FakeNfs nfs(loop);
    ServerConfig config = config_of(nfs);
    config.uid = 1234;
    config.gid = 567;
    open(config);
    ASSERT_TRUE(attach().ok());
    for (const ReceivedCall &call : nfs.server.calls()) {
        EXPECT_EQ(call.flavour, rpc::kAuthSys);
        xdr::Reader reader(call.credential);
        uint32_t stamp = 0, uid = 0, gid = 0, groups = 1;
        std::string_view machine;
        EXPECT_TRUE(reader.get_u32(stamp) && reader.get_string(machine, 255) && reader.get_u32(uid) &&
                    reader.get_u32(gid) && reader.get_u32(groups) && reader.finished());
        EXPECT_EQ(uid, 1234U);
        EXPECT_EQ(gid, 567U);
        EXPECT_EQ(groups, 0U);
    }
}

TEST_F(VolumeTest, PresentsNobodyUnderSecurityNone) {
    FakeNfs nfs(loop);
    nfs.flavours = {rpc::kAuthNone};
    open(config_of(nfs), "none");
    ASSERT_TRUE(attach().ok());
    EXPECT_EQ(nfs.server.calls().back().flavour, rpc::kAuthNone);
}

TEST_F(VolumeTest, NamesServerAndOperationWhenTheMountIsRefused) {
    FakeNfs nfs(loop);
    nfs.mount_status = 13;
    open(config_of(nfs));
    const auto root = attach();
    EXPECT_EQ(root.status().number(), static_cast<uint32_t>(EACCES));
    EXPECT_THAT(root.status().text(), StartsWith("server db1: MNT of /export: permission denied"));
    nfs.mount_status = 0;
    EXPECT_TRUE(attach().ok());  // may be tried again
}

TEST_F(VolumeTest, AnExportThatIsMountedAndRefusedMayWantAnotherTransport) {
    FakeNfs nfs(loop);
    open(config_of(nfs));
    nfs.refuse(Procedure::fsinfo, NfsStatus::acces);
    const auto root = attach();
    EXPECT_EQ(root.status().number(), static_cast<uint32_t>(EACCES));
    EXPECT_EQ(root.status().text(),
              "server db1: FSINFO: permission denied (NFS3ERR_ACCES): it may want another transport_security");
}

TEST_F(VolumeTest, FailsAtOnceWhenTheServerIsDown) {
    FakeNfs nfs(loop);
    nfs.server.stop();
    open(config_of(nfs));
    const auto root = attach();
    EXPECT_EQ(root.status().number(), static_cast<uint32_t>(ECONNREFUSED));
    EXPECT_THAT(root.status().text(), StartsWith("server db1: MNT: 127.0.0.1:"));
}

TEST_F(VolumeTest, GivesUpTheFirstContactAfterItsTimeout) {
    FakeNfs nfs(loop);
    nfs.server.silent = true;
    ServerConfig config = config_of(nfs);
    config.contact_timeout_seconds = 1;
    open(config);
    const auto root = attach();
    EXPECT_EQ(root.status().number(), static_cast<uint32_t>(ETIMEDOUT));
    EXPECT_THAT(root.status().text(), StartsWith("server db1: MNT: no answer within 1 second"));
}

TEST_F(VolumeTest, AttachesOverThePathThatWorks) {
    FakeNfs alive(loop), silent(loop), dead(loop);
    silent.server.silent = true;
    dead.server.stop();
    ServerConfig config = config_of(alive);
    config.paths = {config_of(silent).paths[0], config_of(dead).paths[0], config.paths[0]};
    open(config);
    EXPECT_TRUE(attach().ok());
}

TEST_F(VolumeTest, DetachesTellsTheServerAndMayAttachAgain) {
    FakeNfs nfs(loop);
    attach_to(nfs);
    EXPECT_TRUE(done([this](auto completion) { volume->detach(completion); }).ok());
    EXPECT_TRUE(test::run(loop, [&] { return nfs.mount_count(mount3::Procedure::umnt) == 1; }));
    EXPECT_EQ(getattr().status().number(), static_cast<uint32_t>(ENOTCONN));
    EXPECT_TRUE(attach().ok());
    volume.reset();
    EXPECT_TRUE(test::run(loop, [&] { return nfs.server.open_connections() == 0; }));
}

TEST_F(VolumeTest, TheGoodByeArrivesAlthoughNobodyWaitsForItsAnswer) {
    FakeNfs nfs(loop);
    nfs.answer_unmount = false;
    attach_to(nfs);
    EXPECT_TRUE(done([this](auto completion) { volume->detach(completion); }).ok());
    volume.reset();
    EXPECT_TRUE(test::run(loop, [&] { return nfs.mount_count(mount3::Procedure::umnt) == 1; }));
    EXPECT_TRUE(test::run(loop, [&] { return nfs.server.open_connections() == 0; }));
}

TEST_F(VolumeTest, DetachesWithoutAServerThatAnswers) {
    FakeNfs nfs(loop);
    attach_to(nfs);
    nfs.server.stop();
    EXPECT_TRUE(done([this](auto completion) { volume->detach(completion); }).ok());
    EXPECT_TRUE(done([this](auto completion) { volume->detach(completion); }).ok());
}

TEST_F(VolumeTest, CompletesEverythingUnderWayBeforeItIsGone) {
    FakeNfs nfs(loop);
    attach_to(nfs);
    std::vector<uint32_t> ends;
    Bytes buffer(1000);
    nfs.refuse(Procedure::lookup, NfsStatus::jukebox);
    volume->getattr(handle, [&](const Result<Attributes> &r) { ends.push_back(r.status().number()); });
    opened().read(0, buffer, [&](const Result<ReadReply> &r) { ends.push_back(r.status().number()); });
    volume->lookup(handle, "n", [&](const Result<LookupReply> &r) { ends.push_back(r.status().number()); });
    ASSERT_TRUE(test::run(loop, [&] { return nfs.count(Procedure::lookup) > 1; }));
    EXPECT_TRUE(ends.empty());
    volume.reset();
    EXPECT_EQ(ends, std::vector<uint32_t>(3, ECANCELED));
    test::run_for(loop, milliseconds(5));
    EXPECT_EQ(ends.size(), 3U);
}

TEST_F(VolumeTest, CompletesAnAttachUnderWayBeforeItIsGone) {
    FakeNfs nfs(loop);
    open(config_of(nfs));
    uint32_t end = 0;
    volume->attach([&](const Result<FileHandle> &root) { end = root.status().number(); });
    volume.reset();
    EXPECT_EQ(end, static_cast<uint32_t>(ECANCELED));
    test::run_for(loop, milliseconds(5));
}

TEST_F(VolumeTest, MayBeDestroyedFromACompletion) {
    FakeNfs nfs(loop);
    open(config_of(nfs));
    bool gone = false;
    volume->attach([&](const Result<FileHandle> &) {
        volume.reset();
        gone = true;
    });
    ASSERT_TRUE(test::run(loop, [&] { return gone; }));
    attach_to(nfs);
    nfs.refuse(Procedure::getattr, NfsStatus::stale);
    gone = false;
    volume->getattr(handle, [&](const Result<Attributes> &result) {
        EXPECT_EQ(result.status().number(), static_cast<uint32_t>(ESTALE));
        volume.reset();
        gone = true;
    });
    ASSERT_TRUE(test::run(loop, [&] { return gone; }));
    test::run_for(loop, milliseconds(5));
}

// --- operations

TEST_F(VolumeTest, ReadsIntoTheCallersBuffer) {
    FakeNfs nfs(loop);
    nfs.on(Procedure::read, [](const ReceivedCall &, xdr::Writer &results) {
        results.put_u32(0);
        samples::put_read(results, "hello", true);
    });
    attach_to(nfs);
    Bytes buffer(8, std::byte{0xEE});
    const auto reply = get<ReadReply>([&](auto completion) { opened().read(3, buffer, completion); });
    ASSERT_TRUE(reply.ok()) << reply.status().text();
    EXPECT_EQ(reply.value().count, 5U);
    EXPECT_TRUE(reply.value().eof);
    EXPECT_EQ(reply.value().attributes->size, 1000U);
    EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + 5), bytes_of("hello"));
    EXPECT_EQ(buffer[5], std::byte{0xEE});
}

TEST_F(VolumeTest, ReportsAFailedRead) {
    FakeNfs nfs(loop);
    nfs.on(Procedure::read, [](const ReceivedCall &, xdr::Writer &results) {
        results.put_u32(5);
        samples::put_post_attributes(results);
    });
    attach_to(nfs);
    Bytes buffer(8);
    const auto reply = get<ReadReply>([&](auto completion) { opened().read(0, buffer, completion); });
    EXPECT_EQ(reply.status().number(), static_cast<uint32_t>(EIO));
    EXPECT_THAT(reply.status().text(), StartsWith("server db1: READ: the server's disk failed"));
}

TEST_F(VolumeTest, TakesNoMoreThanItAskedFor) {
    FakeNfs nfs(loop);
    nfs.on(Procedure::read, [](const ReceivedCall &, xdr::Writer &results) {
        results.put_u32(0);
        samples::put_read(results, "hello, hello", true);
    });
    attach_to(nfs);
    Bytes guarded(64, std::byte{0xEE});
    const auto reply =
        get<ReadReply>([&](auto completion) { opened().read(0, std::span{guarded}.first(8), completion); });
    EXPECT_EQ(reply.status().number(), static_cast<uint32_t>(EIO));
    EXPECT_EQ(guarded, Bytes(64, std::byte{0xEE}));
}

TEST_F(VolumeTest, WritesAndCommits) {
    FakeNfs nfs(loop);
    Bytes sent;
    nfs.on(Procedure::write, [&](const ReceivedCall &call, xdr::Writer &results) {
        sent = call.arguments;
        results.put_u32(0);
        samples::put_write(results, 5, 0, 0xABCD);
    });
    nfs.on(Procedure::commit, [](const ReceivedCall &, xdr::Writer &results) {
        results.put_u32(0);
        samples::put_wcc(results);
        results.put_u64(0xABCD);
    });
    attach_to(nfs);
    const Bytes data = bytes_of("hello");
    const auto reply =
        get<WriteReply>([&](auto completion) { opened().write(9, data, Stability::unstable, completion); });
    ASSERT_TRUE(reply.ok());
    EXPECT_EQ(reply.value().count, 5U);
    EXPECT_EQ(reply.value().committed, Stability::unstable);
    EXPECT_EQ(reply.value().verifier, 0xABCDU);
    ASSERT_GE(sent.size(), 8U);
    EXPECT_EQ(Bytes(sent.end() - 8, sent.end()), bytes_of({"hello\0\0\0", 8}));
    const auto commit = get<CommitReply>([&](auto completion) { opened().commit(completion); });
    ASSERT_TRUE(commit.ok());
    EXPECT_EQ(commit.value().verifier, 0xABCDU);
}

TEST_F(VolumeTest, DoesNotBelieveInMoreOrNothingWritten) {
    FakeNfs nfs(loop);
    attach_to(nfs);
    const Bytes data(10);
    for (const uint32_t count : {0U, 11U}) {
        nfs.on(Procedure::write, [count](const ReceivedCall &, xdr::Writer &results) {
            results.put_u32(0);
            samples::put_write(results, count, 0, 0);
        });
        const auto reply =
            get<WriteReply>([&](auto completion) { opened().write(0, data, Stability::unstable, completion); });
        EXPECT_EQ(reply.status().number(), static_cast<uint32_t>(EIO)) << count;
    }
}

TEST_F(VolumeTest, SaysThatAServerLacksReaddirplus) {
    FakeNfs nfs(loop);
    nfs.refuse(Procedure::readdirplus, NfsStatus::notsupp);
    nfs.on(Procedure::readdirplus, [](const ReceivedCall &, xdr::Writer &results) {
        results.put_u32(static_cast<uint32_t>(NfsStatus::notsupp));
        results.put_bool(false);
    });
    nfs.on(Procedure::readdir, [](const ReceivedCall &, xdr::Writer &results) {
        results.put_u32(0);
        samples::put_directory(results, false);
    });
    attach_to(nfs);
    const auto read = [this](bool plus) {
        return get<DirectoryReply>([&](auto completion) { volume->readdir(handle, 0, 0, plus, completion); });
    };
    EXPECT_EQ(read(true).status().number(), static_cast<uint32_t>(ENOTSUP));
    const auto plain = read(false);
    ASSERT_TRUE(plain.ok());
    EXPECT_EQ(plain.value().entries.size(), 2U);
}

TEST_F(VolumeTest, RefusesNamesThatAreTooLongWithoutSendingThem) {
    FakeNfs nfs(loop);
    attach_to(nfs);
    nfs.refuse(Procedure::lookup, NfsStatus::noent);
    const auto look_up = [&](std::size_t size) {
        const std::string name(size, 'n');
        return get<LookupReply>([&](auto completion) { volume->lookup(handle, name, completion); }).status().number();
    };
    EXPECT_EQ(look_up(5000), static_cast<uint32_t>(ENAMETOOLONG));
    EXPECT_EQ(look_up(256), static_cast<uint32_t>(ENAMETOOLONG));
    EXPECT_EQ(nfs.count(Procedure::lookup), 0U);
    EXPECT_EQ(look_up(255), static_cast<uint32_t>(ENOENT));
}

TEST_F(VolumeTest, RunsEveryOtherOperation) {
    FakeNfs nfs(loop);
    const auto ok = [&nfs](Procedure procedure, void (*put)(xdr::Writer &)) {
        nfs.on(procedure, [put](const ReceivedCall &, xdr::Writer &results) {
            results.put_u32(0);
            put(results);
        });
    };
    ok(Procedure::lookup, samples::put_lookup);
    ok(Procedure::create, samples::put_made);
    ok(Procedure::mkdir, samples::put_made);
    ok(Procedure::remove, samples::put_wcc);
    ok(Procedure::rmdir, samples::put_wcc);
    ok(Procedure::setattr, samples::put_wcc);
    ok(Procedure::fsstat, samples::put_fsstat);
    ok(Procedure::readlink, [](xdr::Writer &results) {
        samples::put_post_attributes(results, 5);
        results.put_string("/target");
    });
    attach_to(nfs);
    EXPECT_EQ(get<LookupReply>([&](auto c) { volume->lookup(handle, "n", c); }).value().handle.view(), "handle");
    EXPECT_EQ(get<CreatedFile>([&](auto c) { volume->create(handle, "n", {}, c); }).value().reply.handle->view(),
              "handle");
    EXPECT_TRUE(mkdir().ok());
    EXPECT_TRUE(remove().ok());
    EXPECT_TRUE(get<DirectoryChange>([&](auto c) { volume->rmdir(handle, "d", c); }).ok());
    EXPECT_TRUE(done([&](auto c) { volume->setattr(handle, {0600, 5}, c); }).ok());
    EXPECT_EQ(get<std::string>([&](auto c) { volume->readlink(handle, c); }).value(), "/target");
    EXPECT_EQ(get<FsStatReply>([&](auto c) { volume->fsstat(handle, c); }).value().available_files, 100U);
    EXPECT_EQ(get<FsInfoReply>([&](auto c) { volume->fsinfo(handle, c); }).value().limits.read_maximum, 2U << 20);
}

TEST_F(VolumeTest, IsBusyWhenMuchIsOnTheWire) {
    FakeNfs nfs(loop);
    attach_to(nfs);
    std::vector<Bytes> buffers(8, Bytes(kTransferMaximum));
    std::size_t ended = 0;
    for (Bytes &buffer : buffers)
        opened().read(0, buffer, [&](const Result<ReadReply> &) { ++ended; });
    EXPECT_TRUE(volume->busy());
    volume.reset();
    EXPECT_EQ(ended, 8U);
}

// --- faults

TEST_F(VolumeTest, CountsWhatWasDoneBeforeAnAnswerWasLostAsDone) {
    FakeNfs nfs(loop);
    attach_to(nfs);
    nfs.lose_answers(Procedure::mkdir, 1);
    nfs.refuse(Procedure::mkdir, NfsStatus::exist);
    const auto before = EventLoop::Clock::now();
    const auto made = mkdir();
    EXPECT_TRUE(made.ok());
    EXPECT_FALSE(made.value().handle.has_value());
    ASSERT_TRUE(made.value().maybe_made_since.has_value());
    EXPECT_GE(*made.value().maybe_made_since, before);
    EXPECT_LE(*made.value().maybe_made_since, EventLoop::Clock::now());
    EXPECT_EQ(nfs.count(Procedure::mkdir), 2U);

    nfs.lose_answers(Procedure::create, 2);
    nfs.refuse(Procedure::create, NfsStatus::exist);
    EXPECT_TRUE(get<CreatedFile>([&](auto c) { volume->create(handle, "n", {}, c); }).ok());

    nfs.lose_answers(Procedure::remove, 1);
    nfs.refuse(Procedure::remove, NfsStatus::noent);
    EXPECT_TRUE(remove().ok());

    nfs.lose_answers(Procedure::rmdir, 1);
    nfs.refuse(Procedure::rmdir, NfsStatus::noent);
    EXPECT_TRUE(get<DirectoryChange>([&](auto c) { volume->rmdir(handle, "d", c); }).ok());
}

TEST_F(VolumeTest, TakesTheSameAnswersForFailuresTheFirstTime) {
    FakeNfs nfs(loop);
    nfs.refuse(Procedure::mkdir, NfsStatus::exist);
    nfs.refuse(Procedure::remove, NfsStatus::noent);
    attach_to(nfs);
    EXPECT_EQ(mkdir().status().number(), static_cast<uint32_t>(EEXIST));
    EXPECT_EQ(remove().number(), static_cast<uint32_t>(ENOENT));
}

TEST_F(VolumeTest, TakesOtherAnswersForFailuresAfterARepeat) {
    FakeNfs nfs(loop);
    attach_to(nfs);
    nfs.lose_answers(Procedure::remove, 1);
    nfs.refuse(Procedure::remove, NfsStatus::acces);
    EXPECT_EQ(remove().number(), static_cast<uint32_t>(EACCES));
    nfs.lose_answers(Procedure::lookup, 1);
    nfs.refuse(Procedure::lookup, NfsStatus::noent);
    EXPECT_EQ(get<LookupReply>([&](auto c) { volume->lookup(handle, "n", c); }).status().number(),
              static_cast<uint32_t>(ENOENT));
}

TEST_F(VolumeTest, WaitsForAServerThatIsNotReadyAndAsksAgainAsNew) {
    FakeNfs nfs(loop);
    attach_to(nfs);
    int refusals = 5;
    std::set<uint32_t> xids;
    nfs.on(Procedure::getattr, [&](const ReceivedCall &call, xdr::Writer &results) {
        xids.insert(call.xid);
        if (refusals-- > 0) {
            results.put_u32(static_cast<uint32_t>(NfsStatus::jukebox));
            return;
        }
        results.put_u32(0);
        samples::put_attributes(results);
    });
    EXPECT_TRUE(getattr().ok());
    EXPECT_EQ(xids.size(), 6U);
}

TEST_F(VolumeTest, TellsOnceThatAServerPutsOffEverythingAndThatItNoLongerDoes) {
    FakeNfs nfs(loop);
    attach_to(nfs);
    std::vector<std::string> told;
    trace.set_sink([&told](TraceLevel level, TraceComponent, std::string_view text) {
        if (level == TraceLevel::failure) told.emplace_back(text);
    });
    nfs.refuse(Procedure::getattr, NfsStatus::jukebox);
    unsigned ended = 0;
    for (int i = 0; i < 3; ++i)
        volume->getattr(handle, [&ended](const Result<Attributes> &) { ++ended; });
    ASSERT_TRUE(test::run(loop, [&] { return !told.empty(); }));
    test::run_for(loop, milliseconds(20));
    EXPECT_THAT(told, testing::ElementsAre("server db1 is not ready (just started, or fetching the file), waiting"));
    EXPECT_EQ(ended, 0U);

    nfs.on(Procedure::getattr, [](const ReceivedCall &, xdr::Writer &results) {
        results.put_u32(0);
        samples::put_attributes(results);
    });
    ASSERT_TRUE(test::run(loop, [&] { return ended == 3; }));
    ASSERT_EQ(told.size(), 2U);
    EXPECT_EQ(told[1], "server db1 ok again");
    // That was the end of it: the next time begins anew.
    told.clear();
    nfs.refuse(Procedure::getattr, NfsStatus::jukebox);
    volume->getattr(handle, [](const Result<Attributes> &) {});
    EXPECT_TRUE(test::run(loop, [&] { return !told.empty(); }));
    trace.set_sink({});
}

TEST_F(VolumeTest, SaysNothingOfAServerThatPutsOffForAMoment) {
    FakeNfs nfs(loop);
    attach_to(nfs);
    bool told = false;
    trace.set_sink(
        [&told](TraceLevel level, TraceComponent, std::string_view) { told = told || level == TraceLevel::failure; });
    int refusals = 1;
    nfs.on(Procedure::getattr, [&](const ReceivedCall &, xdr::Writer &results) {
        results.put_u32(refusals-- > 0 ? static_cast<uint32_t>(NfsStatus::jukebox) : 0);
        if (refusals < 0) samples::put_attributes(results);
    });
    EXPECT_TRUE(getattr().ok());
    EXPECT_LT(refusals, 0);
    EXPECT_FALSE(told);
    trace.set_sink({});
}

TEST_F(VolumeTest, RemembersALostAnswerWhileItWaits) {
    FakeNfs nfs(loop);
    attach_to(nfs);
    nfs.lose_answers(Procedure::remove, 1);
    bool waited = false;
    nfs.on(Procedure::remove, [&](const ReceivedCall &, xdr::Writer &results) {
        results.put_u32(static_cast<uint32_t>(waited ? NfsStatus::noent : NfsStatus::jukebox));
        waited = true;
    });
    EXPECT_TRUE(remove().ok());
}

TEST_F(VolumeTest, WaitsNoLongerThanTheIoTimeout) {
    FakeNfs nfs(loop);
    nfs.refuse(Procedure::getattr, NfsStatus::jukebox);
    ServerConfig config = config_of(nfs);
    config.io_timeout_seconds = 1;
    open(config);
    ASSERT_TRUE(attach().ok());
    const auto jukebox = getattr();
    EXPECT_EQ(jukebox.status().number(), static_cast<uint32_t>(ETIMEDOUT));
    EXPECT_THAT(jukebox.status().text(), StartsWith("server db1: GETATTR: "));

    nfs.server.silent = true;
    const auto silence = getattr();
    EXPECT_EQ(silence.status().number(), static_cast<uint32_t>(ETIMEDOUT));
    EXPECT_THAT(silence.status().text(), StartsWith("server db1: GETATTR: no answer within 1 second"));
}

TEST_F(VolumeTest, RefusesAnswersThatMakeNoSense) {
    FakeNfs nfs(loop);
    attach_to(nfs);
    xdr::Writer good;
    good.put_u32(0);
    samples::put_attributes(good);
    for (std::size_t size = 0; size < good.size(); size += 4) {
        nfs.on(Procedure::getattr,
               [&](const ReceivedCall &, xdr::Writer &results) { results.put_fixed(good.bytes().first(size)); });
        const auto reply = getattr();
        EXPECT_EQ(reply.status().number(), static_cast<uint32_t>(EIO)) << size;
        EXPECT_THAT(reply.status().text(), HasSubstr("makes no sense"));
    }
}

TEST_F(VolumeTest, LosesNoByteWhenTheConnectionIsCutAgainAndAgain) {
    FakeNfs nfs(loop);
    std::string contents(3 << 20, '\0');
    std::minstd_rand random(7);
    std::generate(contents.begin(), contents.end(), [&] { return static_cast<char>(random()); });
    constexpr std::size_t kPiece = 65536;
    int cuts = 0;
    nfs.on(Procedure::read, [&](const ReceivedCall &call, xdr::Writer &results) {
        xdr::Reader reader(call.arguments);
        std::string_view name;
        uint64_t offset = 0;
        ASSERT_TRUE(reader.get_string(name, 64) && reader.get_u64(offset));
        results.put_u32(0);
        samples::put_read(results, std::string_view(contents).substr(offset, kPiece), false);
        if (random() % 6 != 0) return;
        // Some of the answer goes out, then the connection is gone.
        const Bytes whole = test::record(results.bytes());
        nfs.server.send(call.connection, std::span{whole}.first(random() % whole.size()));
        nfs.server.cut(call.connection);
        ++cuts;
    });
    attach_to(nfs);
    Bytes received(contents.size());
    std::size_t ended = 0;
    for (std::size_t at = 0; at < contents.size(); at += kPiece)
        opened().read(at, std::span{received}.subspan(at, kPiece), [&](const Result<ReadReply> &reply) {
            EXPECT_TRUE(reply.ok() && reply.value().count == kPiece);
            ++ended;
        });
    ASSERT_TRUE(test::run(loop, [&] { return ended == contents.size() / kPiece; }));
    EXPECT_GT(cuts, 0);
    EXPECT_EQ(received, bytes_of(contents));
}

}  // namespace
}  // namespace nfstdm::nfs3
