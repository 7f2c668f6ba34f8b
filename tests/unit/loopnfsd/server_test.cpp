// SPDX-License-Identifier: Apache-2.0
// The server as a whole: start, control, end.
#include "tools/loopnfsd/server.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <fstream>
#include <thread>

#include "tests/unit/loopnfsd/in_memory.h"

namespace {

using loopnfsd::Options;
using loopnfsd::Server;
using loopnfsd_test::TemporaryFolder;

class ServerTest : public testing::Test {
  protected:
    Options options() {
        Options made;
        made.addresses = {{"127.0.0.1", 0}};
        made.exports = {{"/export", folder_.path, false}};
        return made;
    }

    TemporaryFolder folder_;
    TemporaryFolder beside_;
};

TEST_F(ServerTest, SaysWhereItListensAndWhatItServes) {
    Options two = options();
    two.addresses.push_back({"127.0.0.1", 0});
    two.exports.push_back({"/other", beside_.path, true});
    two.port_file = beside_.path / "ports";
    Server server(two);
    ASSERT_EQ(server.start(), "");
    std::ifstream file(two.port_file);
    std::string first;
    std::string second;
    ASSERT_TRUE(file >> first >> second);
    EXPECT_NE(first, "0");
    EXPECT_NE(first, second);
    EXPECT_EQ(server.banner(), "loopnfsd: listening on 127.0.0.1:" + first + ", 127.0.0.1:" + second +
                                   ", export /export -> " + folder_.path.string() + ", export /other -> " +
                                   beside_.path.string());
}

TEST_F(ServerTest, SaysWhyItCannotStart) {
    Options wrong = options();
    wrong.addresses = {{"nowhere", 0}};
    EXPECT_TRUE(Server(wrong).start().starts_with("\"nowhere\" is no address: "));
    wrong = options();
    wrong.exports[0].folder = "/no/such/folder";
    EXPECT_EQ(Server(wrong).start(), "cannot serve /no/such/folder: No such file or directory");
    wrong = options();
    wrong.control = "/no/such/folder/control";
    EXPECT_EQ(Server(wrong).start(), "cannot listen on /no/such/folder/control: No such file or directory");
    wrong = options();
    wrong.port_file = "/no/such/folder/port";
    EXPECT_TRUE(Server(wrong).start().starts_with("cannot write /no/such/folder/port"));
}

TEST_F(ServerTest, ObeysItsControl) {
    Server server(options());
    ASSERT_EQ(server.start(), "");
    EXPECT_EQ(server.command("ping"), "ok");
    EXPECT_EQ(server.command(" fault  rtt=5 \r"), "ok");
    EXPECT_EQ(server.command("silent@1"), "ok");
    EXPECT_EQ(server.command("silent@2"), "error: there is no address 2");
    EXPECT_EQ(server.command("clear silent"), "ok");
    EXPECT_EQ(server.command("clear smoke"), "error: there is no fault \"smoke\"");
    EXPECT_EQ(server.command("clear"), "ok");
    EXPECT_EQ(server.command("stats"), "connections=0");
    EXPECT_EQ(server.command("forget"), "ok");
    EXPECT_EQ(server.command("stats"), "connections=0 fault.forget=1");
    EXPECT_EQ(server.command("reset-stats"), "ok");
    EXPECT_EQ(server.command("stats"), "connections=0");
    EXPECT_EQ(server.command("held"), "0");
    EXPECT_EQ(server.command("caller"), "machine= uid=65534 gid=65534 groups=");
    EXPECT_EQ(server.command("cut"), "ok");
    EXPECT_EQ(server.command("smoke"), "error: there is no fault \"smoke\"");
    EXPECT_EQ(server.command("ping pong"), "error: \"ping pong\" is no command");
}

TEST(Statistics, NameThePathsThatCarriedSomething) {
    loopnfsd::Statistics statistics;
    statistics.received(2, 40);
    statistics.sent(2, 2);
    EXPECT_EQ(statistics.line(loopnfsd::Faults()), "connections=0 received=40 sent=2 path.2=42");
    statistics.reset();
    EXPECT_EQ(statistics.line(loopnfsd::Faults()), "connections=0");
}

TEST_F(ServerTest, IsReachedThroughItsSocketAndCleansUp) {
    Options with_control = options();
    with_control.control = beside_.path / "control";
    with_control.port_file = beside_.path / "port";
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    const loopnfsd::UniqueFd ending(ends[0]);
    loopnfsd::UniqueFd end_it(ends[1]);
    {
        Server server(with_control);
        ASSERT_EQ(server.start(), "");
        std::string answer;
        std::thread client([&] {
            EXPECT_TRUE(loopnfsd::send_command(with_control.control, "fault rtt=x", answer));
            EXPECT_EQ(answer, "error: \"rtt=x\" is not rtt=MS");
            EXPECT_TRUE(loopnfsd::send_command(with_control.control, "ping", answer));
            EXPECT_EQ(answer, "ok");
            end_it.close();
        });
        server.run_until_readable(ending.get());
        client.join();
    }
    EXPECT_TRUE(std::filesystem::is_empty(beside_.path));
    std::string reason;
    EXPECT_FALSE(loopnfsd::send_command(with_control.control, "ping", reason));
    EXPECT_TRUE(reason.starts_with("cannot reach ")) << reason;
}

TEST_F(ServerTest, TakesOverASocketThatADeadServerLeftButNotALivingOnes) {
    Options with_control = options();
    with_control.control = beside_.path / "control";
    Server living(with_control);
    ASSERT_EQ(living.start(), "");
    EXPECT_NE(Server(with_control).start(), "");
    std::filesystem::rename(beside_.path / "control", beside_.path / "kept");
    {
        Server dead(with_control);
        ASSERT_EQ(dead.start(), "");
        std::filesystem::rename(beside_.path / "control", beside_.path / "left");
    }
    std::filesystem::rename(beside_.path / "left", beside_.path / "control");
    Server next(with_control);
    EXPECT_EQ(next.start(), "");
}

}  // namespace
