// SPDX-License-Identifier: Apache-2.0
// Several paths to one server, and what looks like one.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <vector>

#include "tests/unit/nfs4/volume_fixture.h"

namespace nfstdm::nfs4 {
namespace {

using test::FakeNfs4;
using test::ReceivedCall;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

class TrunkingTest : public test::Nfs4VolumeTest {
  protected:
    TrunkingTest() {
        trace.set_sink([this](TraceLevel, TraceComponent, std::string_view text) { told.append(text).append("\n"); });
    }
    ~TrunkingTest() override { trace.set_sink({}); }

    void open_by(std::initializer_list<const FakeNfs4 *> servers) {
        ServerConfig several = config();
        several.paths.clear();
        for (const FakeNfs4 *server : servers)
            several.paths.push_back({"", "127.0.0.1:" + std::to_string(server->server.port())});
        volume = factory.open(several, {"/export", "/mnt", {}}, {4, 1, false});
    }
    // Answers only once it is told to.
    void hold(FakeNfs4 &server) {
        answer_later = server.server.on_call;
        server.server.on_call = [this](const ReceivedCall &call) { held = call; };
    }
    void let_go(FakeNfs4 &server) {
        ASSERT_TRUE(nfstdm::test::run(loop, [this] { return held.has_value(); }));
        server.server.on_call = answer_later;
        answer_later(*held);
    }
    bool is_told(std::string_view text) {
        return nfstdm::test::run(loop, [&] { return told.find(text) != std::string::npos; });
    }

    FakeNfs4 other{loop};
    std::string told;
    std::function<void(const ReceivedCall &)> answer_later;
    std::optional<ReceivedCall> held;
};

TEST_F(TrunkingTest, APathToAnotherServerIsLeftAlone) {
    other.owner = "another";
    hold(other);
    open_by({&nfs, &other});
    ASSERT_TRUE(attach().ok());
    let_go(other);
    ASSERT_TRUE(is_told("another server answers here, the path is left alone"));
    EXPECT_THAT(told, HasSubstr("127.0.0.1:" + std::to_string(other.server.port())));
    for (int i = 0; i < 8; ++i)
        EXPECT_TRUE(getattr().ok());
    nfs.server.cut(1);
    EXPECT_TRUE(getattr().ok());
    nfstdm::test::run_for(loop, std::chrono::milliseconds(30));
    EXPECT_THAT(other.compounds(), ElementsAre("EXCHANGE_ID"));
    EXPECT_EQ(other.server.open_connections(), 0U);
}

TEST_F(TrunkingTest, APathToTheSameServerIsUsedOnceItHasSaidSo) {
    hold(other);
    open_by({&nfs, &other});
    ASSERT_TRUE(attach().ok());
    let_go(other);
    // It shares the session, which it would not know otherwise; so what is sent there shows.
    nfs.server.stop();
    other.fail(Op::sequence, NfsStatus::badsession);
    EXPECT_TRUE(getattr().ok());
    EXPECT_EQ(other.compounds().front(), "EXCHANGE_ID");
    EXPECT_GT(other.executed(Op::getattr), 0);
    EXPECT_THAT(told, Not(HasSubstr("another server")));
}

TEST_F(TrunkingTest, AServerIsKnownByItsNewNameWhenItHasRestarted) {
    open_by({&nfs, &nfs});
    ASSERT_TRUE(attach().ok());
    nfs.restart();
    nfs.owner = "renamed";
    nfs.server.cut(1);
    nfs.server.cut(2);
    EXPECT_TRUE(getattr().ok());
}

TEST_F(TrunkingTest, AServerOfAnotherMinorVersionIsAskedInThat) {
    nfs.fail(Op::exchange_id, NfsStatus::minor_vers_mismatch, 1);
    open_by({&nfs, &nfs});
    EXPECT_TRUE(attach().ok());
}

TEST_F(TrunkingTest, AnOnlyPathIsNotAskedWhoIsThere) {
    open_by({&nfs});
    ASSERT_TRUE(attach().ok());
    nfs.server.cut(1);
    EXPECT_TRUE(getattr().ok());
    EXPECT_EQ(nfs.executed(Op::exchange_id), 1);
}

}  // namespace
}  // namespace nfstdm::nfs4
