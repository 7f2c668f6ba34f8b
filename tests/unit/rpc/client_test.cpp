// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/rpc/client.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <deque>
#include <set>
#include <thread>

#include "nfstdm/rpc/auth/identity.h"
#include "nfstdm/rpc/message/constants.h"
#include "tests/unit/rpc/scripted_server.h"

namespace nfstdm::rpc {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using test::begin_reply;
using test::Bytes;
using test::bytes_of;
using test::ReceivedCall;
using test::record;
using test::ScriptedServer;
using testing::HasSubstr;

constexpr uint32_t kProgram = 200001;

Timing quick() {
    Timing timing;
    timing.tick = milliseconds(2);
    timing.connect = milliseconds(500);
    timing.probe = milliseconds(20);
    timing.silence = milliseconds(60);
    timing.silence_alone = milliseconds(60);
    timing.backoff_first = milliseconds(2);
    timing.backoff_most = milliseconds(10);
    timing.notice = milliseconds(40);
    return timing;
}

std::size_t at_once(std::span<const std::byte>) {
    return 4;  // the results are opaque data and nothing else
}

class ClientTest : public testing::Test {
  protected:
    void open(std::vector<Path> paths, unsigned connections = 1) {
        ClientConfig config;
        config.server = "db1";
        config.program = {kProgram, 1};
        config.paths = std::move(paths);
        config.connections_per_path = connections;
        config.timing = timing;
        client = std::make_unique<Client>(loop, std::move(config), trace);
    }
    void open(const ScriptedServer &server) { open({path_to(server)}); }
    static Path path_to(const ScriptedServer &server) { return {"127.0.0.1", server.port(), {}}; }

    std::unique_ptr<Request> make(uint32_t procedure = 1) {
        auto request = std::make_unique<Request>();
        request->name = "CALL";
        request->procedure = procedure;
        request->results_maximum = 64;
        request->done = [this](std::unique_ptr<Request> done) { finished.push_back(std::move(done)); };
        return request;
    }
    void call() { client->submit(make()); }
    bool wait(std::size_t count = 1) {
        return test::run(loop, [this, count] { return finished.size() >= count; });
    }
    static Bytes answer(uint32_t xid, uint32_t word = 7) {
        xdr::Writer reply = begin_reply(xid);
        reply.put_u32(word);
        return record(reply.bytes());
    }
    static std::function<void(const ReceivedCall &)> answering(ScriptedServer &server) {
        return [&server](const ReceivedCall &received) { server.send(received.connection, answer(received.xid)); };
    }

    EventLoop loop;
    Timing timing = quick();
    std::vector<std::string> records;
    Trace trace{[this](TraceLevel, TraceComponent, std::string_view text) { records.emplace_back(text); }};
    std::vector<std::unique_ptr<Request>> finished;
    std::unique_ptr<Client> client;
};

TEST_F(ClientTest, SendsACallAndDeliversItsResults) {
    ScriptedServer server(loop);
    server.on_call = answering(server);
    open(server);
    call();
    EXPECT_TRUE(finished.empty());
    ASSERT_TRUE(wait());
    EXPECT_TRUE(finished[0]->status.ok());
    EXPECT_EQ(Bytes(finished[0]->results().begin(), finished[0]->results().end()), bytes_of({"\0\0\0\7", 4}));
    EXPECT_EQ(finished[0]->sends, 1U);
    ASSERT_EQ(server.calls().size(), 1U);
    EXPECT_EQ(server.calls()[0].program, kProgram);
    EXPECT_EQ(server.calls()[0].procedure, 1U);
}

TEST_F(ClientTest, SpeaksOverIpv6) {
    ScriptedServer server(loop, "::1");
    server.on_call = answering(server);
    open({{"::1", server.port(), {}}});
    call();
    ASSERT_TRUE(wait());
    EXPECT_TRUE(finished[0]->status.ok());
}

TEST_F(ClientTest, BindsTheLocalAddressAskedFor) {
    ScriptedServer server(loop);
    server.on_call = answering(server);
    open({{"127.0.0.1", server.port(), "127.0.0.5"}});
    call();
    ASSERT_TRUE(wait());
    EXPECT_TRUE(finished[0]->status.ok());
}

TEST_F(ClientTest, SaysWhenTheLocalAddressDoesNotFit) {
    ScriptedServer server(loop);
    open({{"127.0.0.1", server.port(), "::1"}});
    auto request = make();
    request->needs_contact = true;
    client->submit(std::move(request));
    ASSERT_TRUE(wait());
    EXPECT_THAT(finished[0]->status.text(), HasSubstr("local address ::1"));
}

TEST_F(ClientTest, SendsDataFromWhereItIsAndPadsIt) {
    ScriptedServer server(loop);
    server.on_call = answering(server);
    open(server);
    const std::string data(3'000'001, 'd');  // more than a socket takes at once
    auto request = make();
    request->data = std::as_bytes(std::span{data});
    client->submit(std::move(request));
    call();
    ASSERT_TRUE(wait(2));
    ASSERT_EQ(server.calls().size(), 2U);
    const Bytes &arguments = server.calls()[0].arguments;
    ASSERT_EQ(arguments.size(), 3'000'004U);
    EXPECT_TRUE(std::equal(arguments.begin(), arguments.end() - 3, bytes_of(data).begin()));
    EXPECT_EQ(Bytes(arguments.end() - 3, arguments.end()), Bytes(3));
}

TEST_F(ClientTest, PutsDataIntoTheCallersBuffer) {
    ScriptedServer server(loop);
    const std::string data(2'000'002, 'r');
    server.on_call = [&](const ReceivedCall &received) {
        xdr::Writer reply = begin_reply(received.xid);
        reply.put_string(data);
        server.reply(received.connection, reply);
    };
    open(server);
    Bytes landing(data.size());
    auto request = make();
    request->landing = landing;
    request->data_position = at_once;
    client->submit(std::move(request));
    ASSERT_TRUE(wait());
    EXPECT_TRUE(finished[0]->status.ok());
    EXPECT_EQ(finished[0]->landed, data.size());
    EXPECT_EQ(landing, bytes_of(data));
}

TEST_F(ClientTest, MatchesRepliesThatComeOutOfOrder) {
    ScriptedServer server(loop);
    server.on_call = [&](const ReceivedCall &) {
        if (server.calls().size() < 3) return;
        for (auto each = server.calls().rbegin(); each != server.calls().rend(); ++each)
            server.send(each->connection, answer(each->xid, each->procedure));
    };
    open(server);
    for (const uint32_t procedure : {1, 2, 3})
        client->submit(make(procedure));
    ASSERT_TRUE(wait(3));
    for (std::size_t i = 0; i < 3; ++i)
        EXPECT_EQ(finished[i]->results()[3], static_cast<std::byte>(3 - i));
}

TEST_F(ClientTest, IgnoresWrongXidsAndDuplicates) {
    ScriptedServer server(loop);
    server.on_call = [&](const ReceivedCall &received) {
        server.send(received.connection, answer(received.xid + 1000));
        server.send(received.connection, answer(received.xid));
        server.send(received.connection, answer(received.xid, 99));
    };
    open(server);
    call();
    ASSERT_TRUE(wait());
    call();
    ASSERT_TRUE(wait(2));
    EXPECT_EQ(server.accepted(), 1);
    EXPECT_EQ(finished[0]->results()[3], std::byte{7});
}

TEST_F(ClientTest, SendsARequestAgainWithTheSameXidWhenTheConnectionIsCut) {
    ScriptedServer server(loop);
    server.on_call = [&](const ReceivedCall &received) {
        if (received.connection < 3)
            server.cut(received.connection);
        else
            server.send(received.connection, answer(received.xid));
    };
    open(server);
    call();
    ASSERT_TRUE(wait());
    EXPECT_TRUE(finished[0]->status.ok());
    EXPECT_EQ(finished[0]->sends, 3U);
    std::set<uint32_t> xids;
    for (const ReceivedCall &received : server.calls())
        xids.insert(received.xid);
    EXPECT_EQ(server.calls().size(), 3U);
    EXPECT_EQ(xids.size(), 1U);
}

TEST_F(ClientTest, CountsOnlySendingsWhoseLastByteWentOut) {
    ScriptedServer server(loop);
    server.on_call = answering(server);
    server.turn_away = true;
    open(server);
    const std::string data(16'000'000, 'd');  // far more than sockets hold
    auto request = make();
    request->data = std::as_bytes(std::span{data});
    client->submit(std::move(request));
    ASSERT_TRUE(test::run(loop, [&] { return server.accepted() >= 2; }));
    server.turn_away = false;
    const auto before = std::chrono::steady_clock::now();
    ASSERT_TRUE(wait());
    EXPECT_TRUE(finished[0]->status.ok());
    EXPECT_EQ(finished[0]->sends, 1U);
    EXPECT_GE(finished[0]->first_sent, before);
}

TEST_F(ClientTest, StartsAReplyAnewThatWasCutAnywhere) {
    const Bytes whole = answer(0);
    for (std::size_t size = 0; size < whole.size(); ++size) {
        SCOPED_TRACE(size);
        ScriptedServer server(loop);
        server.on_call = [&](const ReceivedCall &received) {
            const Bytes bytes = answer(received.xid);
            if (received.connection > 1) return server.send(received.connection, bytes);
            server.send(received.connection, std::span{bytes}.first(size));
            server.cut(received.connection);
        };
        finished.clear();
        open(server);
        call();
        ASSERT_TRUE(wait());
        EXPECT_TRUE(finished[0]->status.ok());
        EXPECT_EQ(finished[0]->sends, 2U);
    }
}

TEST_F(ClientTest, KeepsTheOrderOfRequestsThatAreSentAgain) {
    ScriptedServer server(loop);
    server.on_call = [&](const ReceivedCall &received) {
        if (received.connection == 1) {
            if (server.calls().size() == 4) server.cut(1);
            return;
        }
        server.send(received.connection, answer(received.xid));
    };
    open(server);
    for (const uint32_t procedure : {1, 2, 3, 4})
        client->submit(make(procedure));
    ASSERT_TRUE(wait(4));
    ASSERT_EQ(server.calls().size(), 8U);
    for (std::size_t i = 0; i < 4; ++i)
        EXPECT_EQ(server.calls()[4 + i].procedure, i + 1);
}

TEST_F(ClientTest, WaitsForAServerThatIsStartedLater) {
    auto server = std::make_unique<ScriptedServer>(loop);
    server->turn_away = true;
    open(*server);
    call();
    ASSERT_TRUE(test::run(loop, [&] { return server->accepted() >= 3; }));
    EXPECT_TRUE(finished.empty());
    server->turn_away = false;
    server->on_call = answering(*server);
    ASSERT_TRUE(wait());
    EXPECT_TRUE(finished[0]->status.ok());
}

TEST_F(ClientTest, FailsARequestWhoseTimeIsUp) {
    ScriptedServer server(loop);
    server.silent = true;
    open(server);
    auto request = make();
    request->limit = milliseconds(30);
    client->submit(std::move(request));
    ASSERT_TRUE(wait());
    EXPECT_EQ(finished[0]->status.number(), static_cast<uint32_t>(ETIMEDOUT));
    EXPECT_THAT(finished[0]->status.text(), testing::StartsWith("server db1: CALL: no answer within 1 second"));
    EXPECT_GE(finished[0]->spent, milliseconds(30));
    EXPECT_TRUE(client->idle());
}

TEST_F(ClientTest, NamesTheTroubleOfARequestWhoseTimeIsUp) {
    ScriptedServer server(loop);
    open(server);
    server.stop();
    auto request = make();
    request->limit = milliseconds(30);
    client->submit(std::move(request));
    ASSERT_TRUE(wait());
    EXPECT_EQ(finished[0]->status.number(), static_cast<uint32_t>(ETIMEDOUT));
    EXPECT_THAT(finished[0]->status.text(), HasSubstr("127.0.0.1:" + std::to_string(server.port()) + ": connect: "));
}

TEST_F(ClientTest, DoesNotCountTheTimeThatIsSpentOutsideTheLoop) {
    ScriptedServer server(loop);
    server.on_call = answering(server);
    open(server);
    call();
    ASSERT_TRUE(wait());
    auto request = make();
    request->limit = milliseconds(200);
    client->submit(std::move(request));
    std::this_thread::sleep_for(milliseconds(300));  // the application is busy elsewhere
    ASSERT_TRUE(wait(2));
    EXPECT_TRUE(finished[1]->status.ok()) << finished[1]->status.text();
    EXPECT_EQ(server.accepted(), 1);
}

TEST_F(ClientTest, TakesALateAnswerForNobodys) {
    ScriptedServer server(loop);
    open(server);
    Bytes landing(8, std::byte{1});
    auto request = make();
    request->limit = milliseconds(10);
    request->landing = landing;
    request->data_position = at_once;
    client->submit(std::move(request));
    ASSERT_TRUE(wait());
    ASSERT_EQ(server.calls().size(), 1U);
    xdr::Writer late = begin_reply(server.calls()[0].xid);
    late.put_string("too late");
    server.reply(server.calls()[0].connection, late);
    server.on_call = answering(server);
    call();
    ASSERT_TRUE(wait(2));
    EXPECT_TRUE(finished[1]->status.ok());
    EXPECT_EQ(landing, Bytes(8, std::byte{1}));
}

TEST_F(ClientTest, FailsAtOnceWithoutContactWhenAskedTo) {
    ScriptedServer first(loop), second(loop);
    open({path_to(first), path_to(second)});
    first.stop();
    second.stop();
    auto request = make();
    request->needs_contact = true;
    client->submit(std::move(request));
    ASSERT_TRUE(wait());
    EXPECT_EQ(finished[0]->status.number(), static_cast<uint32_t>(ECONNREFUSED));
    EXPECT_THAT(finished[0]->status.text(), HasSubstr("server db1: CALL: "));
}

TEST_F(ClientTest, MakesContactWhenOnePathOfTwoLeadsThere) {
    ScriptedServer dead(loop), alive(loop);
    alive.on_call = answering(alive);
    open({path_to(dead), path_to(alive)});
    dead.stop();
    auto request = make();
    request->needs_contact = true;
    client->submit(std::move(request));
    ASSERT_TRUE(wait());
    EXPECT_TRUE(finished[0]->status.ok());
}

TEST_F(ClientTest, SpreadsRequestsOverPathsAndConnections) {
    ScriptedServer first(loop), second(loop);
    open({path_to(first), path_to(second)}, 2);
    call();
    ASSERT_TRUE(test::run(loop, [&] { return client->usable_channels() == 4; }));
    for (int i = 0; i < 11; ++i)
        call();
    ASSERT_TRUE(test::run(loop, [&] { return first.calls().size() + second.calls().size() == 12; }));
    EXPECT_EQ(first.accepted(), 2);
    EXPECT_EQ(second.accepted(), 2);
    EXPECT_EQ(first.calls().size(), 6U);
    EXPECT_GT(client->outstanding_bytes(), 12U * 1024);
}

class BulkRequests : public ClientTest {
  protected:
    void submit(std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            auto request = make();
            request->data = data_;
            client->submit(std::move(request));
        }
    }
    void transfer(std::size_t count) {
        ScriptedServer server(loop);
        open(server);
        submit(count);
        ASSERT_TRUE(test::run(loop, [&] { return server.calls().size() == count; }));
        EXPECT_TRUE(client->busy());
        for (const auto &received : server.calls())
            server.send(received.connection, answer(received.xid));
        ASSERT_TRUE(wait(count));
        EXPECT_FALSE(client->busy());
        submit(count);
    }
    std::vector<std::byte> data_{std::size_t{1} << 20};
};

TEST_F(BulkRequests, MayBeMoreOnceTheyAreAnsweredPromptly) {
    transfer(8);
    EXPECT_FALSE(client->busy());
    submit(24);
    EXPECT_TRUE(client->busy());
}

TEST_F(BulkRequests, AreFewOnASlowLine) {
    timing.prompt = {};
    transfer(8);
    EXPECT_TRUE(client->busy());
}

TEST_F(ClientTest, MovesRequestsFromASilentPathToAnother) {
    ScriptedServer silent(loop), alive(loop);
    alive.on_call = answering(alive);
    open({path_to(silent), path_to(alive)});
    call();
    ASSERT_TRUE(test::run(loop, [&] { return client->usable_channels() == 2; }));
    silent.silent = true;
    for (int i = 0; i < 7; ++i)
        call();
    ASSERT_TRUE(wait(8));
    EXPECT_GE(silent.calls().size(), 1U);
    EXPECT_GE(silent.null_calls(), 1U);  // it was asked whether it is there
    EXPECT_TRUE(std::all_of(finished.begin(), finished.end(), [](const auto &each) { return each->status.ok(); }));
}

TEST_F(ClientTest, UsesASilentPathAgainOnlyOnceItAnswered) {
    ScriptedServer quiet(loop), alive(loop);
    alive.on_call = answering(alive);
    open({path_to(quiet), path_to(alive)});
    call();
    ASSERT_TRUE(test::run(loop, [&] { return client->usable_channels() == 2; }));
    quiet.silent = true;
    for (int i = 0; i < 3; ++i)
        call();
    ASSERT_TRUE(wait(4));
    const std::size_t before = quiet.calls().size();
    ASSERT_GT(before, 0U);

    // It is tried again with work at hand, and gets none while it is silent.
    std::function<void()> keep_busy = [&] {
        call();
        loop.after(milliseconds(2), keep_busy);
    };
    keep_busy();
    const int connections = quiet.accepted();
    ASSERT_TRUE(test::run(loop, [&] { return quiet.accepted() > connections + 1; }));
    EXPECT_EQ(quiet.calls().size(), before);

    quiet.silent = false;
    quiet.on_call = answering(quiet);
    EXPECT_TRUE(test::run(loop, [&] { return quiet.calls().size() > before; }));
}

TEST_F(ClientTest, TrustsNoPathThatIsSilentFromTheStart) {
    ScriptedServer silent(loop), alive(loop);
    silent.silent = true;
    alive.on_call = answering(alive);
    timing.silence = seconds(3600);  // it never comes to that
    open({path_to(silent), path_to(alive)});
    for (int i = 0; i < 5; ++i)
        call();
    ASSERT_TRUE(wait(5));
    EXPECT_TRUE(silent.calls().empty());
    EXPECT_EQ(alive.calls().size(), 5U);
}

TEST_F(ClientTest, AsksTheOnlyPathThereIsWithoutAProof) {
    ScriptedServer server(loop);
    server.on_call = answering(server);
    open(server);
    call();
    ASSERT_TRUE(wait());
    EXPECT_EQ(server.null_calls(), 0U);
}

// One path answers bulk requests, the other takes them and answers NULL calls only.
class UnequalPaths : public ClientTest {
  protected:
    static constexpr std::size_t kSize = std::size_t{1} << 20;

    UnequalPaths() { timing.silence = timing.probe = seconds(3600); }
    void connect() {
        open({path_to(slow_), path_to(fast_)});
        slow_.on_call = answering(slow_);
        fast_.on_call = answering(fast_);
        call();
        ASSERT_TRUE(wait());
        ASSERT_TRUE(test::run(loop, [&] { return client->usable_channels() == 2; }));
        finished.clear();
        slow_.on_call = nullptr;
        fast_.on_call = [this](const ReceivedCall &received) { answer_with('f', fast_, received); };
        slow_calls_ = slow_.calls().size();
        fast_calls_ = fast_.calls().size();
    }
    void answer_with(char byte, ScriptedServer &server, const ReceivedCall &received) {
        xdr::Writer reply = begin_reply(received.xid);
        reply.put_string(std::string(kSize, byte));
        server.reply(received.connection, reply);
    }
    void submit(bool read) {
        auto request = make();
        if (read) {
            request->landing = landings_.emplace_back(kSize);
            request->data_position = at_once;
        } else {
            request->data = data_;
            request->results_maximum = kSize + 8;
        }
        request->owner = this;
        client->submit(std::move(request));
    }
    std::size_t slow_calls() const { return slow_.calls().size() - slow_calls_; }
    std::size_t fast_calls() const { return fast_.calls().size() - fast_calls_; }

    ScriptedServer slow_{loop}, fast_{loop};
    std::size_t slow_calls_ = 0, fast_calls_ = 0;
    std::deque<Bytes> landings_;
    const Bytes data_ = Bytes(kSize);
};

TEST_F(UnequalPaths, ShareAReadThatIsLongInComing) {
    connect();
    for (int i = 0; i < 4; ++i)
        submit(true);
    ASSERT_TRUE(wait(4));
    EXPECT_GE(slow_calls(), 1U);
    EXPECT_EQ(fast_calls(), 4U);
    EXPECT_TRUE(std::all_of(finished.begin(), finished.end(), [](const auto &each) { return each->status.ok(); }));

    answer_with('s', slow_, slow_.calls().back());  // late, and nobody's
    test::run_for(loop, milliseconds(20));
    EXPECT_TRUE(std::all_of(landings_.begin(), landings_.end(),
                            [](const Bytes &each) { return each == Bytes(kSize, std::byte{'f'}); }));
}

TEST_F(UnequalPaths, ShareAWriteThatHasNotLeft) {
    connect();
    slow_.stop_reading();
    for (int i = 0; i < 4; ++i)
        submit(false);
    ASSERT_TRUE(wait(4));
    std::set<uint32_t> xids;
    for (const auto &each : finished) {
        EXPECT_TRUE(each->status.ok());
        EXPECT_EQ(each->sends, 1U);
        xids.insert(each->xid());
    }
    EXPECT_EQ(xids.size(), 4U);
    EXPECT_EQ(fast_calls(), 4U);

    // What the slow path was given of it ended with its connection, and it is there for what follows.
    slow_.read_again();
    slow_.on_call = fast_.on_call = nullptr;
    for (int i = 0; i < 2; ++i)
        submit(false);
    EXPECT_TRUE(test::run(loop, [this] { return client->usable_channels() == 2; }));
    EXPECT_EQ(slow_.accepted(), 2);
    EXPECT_EQ(slow_.open_connections(), 1U);
    EXPECT_EQ(slow_calls(), 0U);
    client->drop(this);
}

TEST_F(UnequalPaths, ShareNoWriteBehindARequestThatIsNotAnswered) {
    connect();
    call();  // may have been executed when its connection ends, and what it does may be done once only
    ASSERT_TRUE(test::run(loop, [this] { return slow_calls() == 1; }));
    slow_.stop_reading();
    for (int i = 0; i < 4; ++i)
        submit(false);
    ASSERT_TRUE(wait(3));
    test::run_for(loop, milliseconds(100));
    EXPECT_EQ(finished.size(), 3U);
    EXPECT_EQ(slow_.open_connections(), 1U);

    slow_.send(slow_.calls().back().connection, answer(slow_.calls().back().xid));
    ASSERT_TRUE(wait(5));
    EXPECT_EQ(fast_calls(), 4U);
    EXPECT_EQ(slow_calls(), 1U);
    EXPECT_TRUE(std::all_of(finished.begin(), finished.end(), [](const auto &each) { return each->sends == 1; }));
}

TEST_F(UnequalPaths, ShareWhatWaitsBehindAWriteThatHasNotLeft) {
    connect();
    slow_.stop_reading();
    fast_.on_call = answering(fast_);
    submit(false);
    submit(false);
    for (int i = 0; i < 4; ++i)
        call();  // to each path by turns, as neither is known to be the faster
    ASSERT_TRUE(wait(6));
    EXPECT_EQ(slow_calls(), 0U);
    EXPECT_TRUE(std::all_of(finished.begin(), finished.end(), [](const auto &each) { return each->sends == 1; }));
}

TEST_F(UnequalPaths, DoNotShareAWriteThatHasLeft) {
    connect();
    for (int i = 0; i < 4; ++i)
        submit(false);
    // The slow path answers nothing; how many it is given until that is known depends on the time that passes.
    ASSERT_TRUE(test::run(loop, [&] { return slow_calls() > 0 && finished.size() + slow_calls() == 4; }));
    test::run_for(loop, milliseconds(50));
    EXPECT_EQ(slow_calls() + fast_calls(), 4U);
    EXPECT_EQ(finished.size(), fast_calls());
    client->drop(this);
}

class DoubtTest : public ClientTest {
  protected:
    // The time of a request on a silent server is up.
    void lose_a_request(ScriptedServer &server) {
        server.silent = true;
        timing.grace = milliseconds(20);
        timing.silence_alone = seconds(3600);
        open(server);
        auto request = make();
        request->limit = milliseconds(30);
        client->submit(std::move(request));
        ASSERT_TRUE(wait());
        EXPECT_FALSE(client->answering());
        call();  // would wait for ever
        ASSERT_TRUE(wait(2));
    }
};

TEST_F(DoubtTest, FailsWhatFollowsARequestWhoseTimeWasUp) {
    ScriptedServer server(loop);
    lose_a_request(server);
    for (int i = 0; i < 100; ++i) {
        call();
        ASSERT_TRUE(wait(finished.size() + 1));
        EXPECT_EQ(finished.back()->spent, Duration::zero());
    }
    EXPECT_EQ(server.calls().size(), 2U);
    EXPECT_EQ(finished.back()->status.number(), static_cast<uint32_t>(ETIMEDOUT));
    EXPECT_THAT(finished.back()->status.text(),
                testing::StartsWith("server db1: CALL: the server does not answer (CALL: no answer within 1 second"));
}

TEST_F(DoubtTest, EndsWhenTheServerAnswersANullCall) {
    ScriptedServer server(loop);
    lose_a_request(server);
    EXPECT_EQ(server.null_calls(), 1U);
    server.silent = false;
    server.on_call = answering(server);
    server.cut(1);  // and the one it was asked with is not answered any more
    ASSERT_TRUE(test::run(loop, [&] { return client->answering(); }));
    call();
    ASSERT_TRUE(wait(3));
    EXPECT_TRUE(finished.back()->status.ok());
}

TEST_F(DoubtTest, BelievesAServerThatAnswersNothingButNullCallsOnce) {
    ScriptedServer server(loop);
    timing.grace = milliseconds(20);
    open(server);
    const auto wait_in_vain = [&](Duration limit) {
        auto request = make();
        request->limit = limit;
        client->submit(std::move(request));
        const std::size_t sent = server.calls().size();
        ASSERT_TRUE(wait(finished.size() + 1));
        EXPECT_EQ(finished.back()->status.number(), static_cast<uint32_t>(ETIMEDOUT));
        EXPECT_GT(server.calls().size(), sent);
    };
    wait_in_vain(milliseconds(30));
    ASSERT_TRUE(test::run(loop, [&] { return client->answering(); }));
    wait_in_vain(milliseconds(500));

    // So a walk through a tree waits no more, but for the grace.
    call();
    ASSERT_TRUE(wait(finished.size() + 1));
    const std::size_t sent = server.calls().size();
    for (int i = 0; i < 10; ++i) {
        call();
        ASSERT_TRUE(wait(finished.size() + 1));
        EXPECT_EQ(finished.back()->spent, Duration::zero());
    }
    EXPECT_EQ(server.calls().size(), sent);

    // After as long as the last request waited it is tried again.
    ASSERT_TRUE(test::run(loop, [&] { return client->answering(); }));
    server.on_call = answering(server);
    call();
    ASSERT_TRUE(wait(finished.size() + 1));
    EXPECT_TRUE(finished.back()->status.ok());
}

TEST_F(DoubtTest, GivesAServerThatIsThereTheChanceToSaySo) {
    ScriptedServer server(loop);  // answers NULL and, of the rest, only what comes second
    server.on_call = [&](const ReceivedCall &received) {
        if (server.calls().size() == 2) server.send(received.connection, answer(received.xid));
    };
    open(server);
    auto lost = make();
    lost->limit = milliseconds(30);
    client->submit(std::move(lost));
    ASSERT_TRUE(wait());
    call();
    ASSERT_TRUE(wait(2));
    EXPECT_TRUE(finished[1]->status.ok());
}

TEST_F(ClientTest, IsPatientWithASlowServerThatIsThere) {
    ScriptedServer server(loop);  // answers NULL, and nothing else for a while
    open(server);
    call();
    ASSERT_TRUE(test::run(loop, [&] { return server.null_calls() >= 10; }));
    EXPECT_EQ(server.accepted(), 1);
    server.send(1, answer(server.calls()[0].xid));
    ASSERT_TRUE(wait());
    EXPECT_EQ(finished[0]->sends, 1U);
}

TEST_F(ClientTest, TellsThatAServerDoesNotRespondAndThatItDoesAgain) {
    ScriptedServer server(loop);
    open(server);
    call();
    const auto told = [this](const std::string &text) {
        return std::find(records.begin(), records.end(), text) != records.end();
    };
    ASSERT_TRUE(test::run(loop, [&] { return told("server db1 not responding, still trying"); }));
    EXPECT_FALSE(told("server db1 ok again"));
    server.send(1, answer(server.calls()[0].xid));
    ASSERT_TRUE(wait());
    EXPECT_TRUE(told("server db1 ok again"));
}

TEST_F(ClientTest, GivesUpOnAServerThatSendsNonsense) {
    ScriptedServer server(loop);
    server.on_call = [&](const ReceivedCall &received) {
        server.send(received.connection, Bytes(64, std::byte{0x7F}));
    };
    open(server);
    call();
    ASSERT_TRUE(wait());
    EXPECT_EQ(finished[0]->status.number(), static_cast<uint32_t>(EIO));
    EXPECT_THAT(finished[0]->status.text(), HasSubstr("larger"));
    EXPECT_EQ(server.accepted(), 3);
}

TEST_F(ClientTest, ReportsARefusalWithTheServersName) {
    ScriptedServer server(loop);
    server.on_call = [&](const ReceivedCall &received) {
        xdr::Writer reply;
        for (const uint32_t word : {received.xid, kReply, kMessageDenied, 1U, 5U})
            reply.put_u32(word);
        server.reply(received.connection, reply);
    };
    open(server);
    call();
    ASSERT_TRUE(wait());
    EXPECT_EQ(finished[0]->status.number(), static_cast<uint32_t>(EACCES));
    EXPECT_THAT(finished[0]->status.text(), testing::StartsWith("server db1: CALL: the server refuses"));
}

TEST_F(ClientTest, GivesTheAnswersOfOneBurstTogether) {
    ScriptedServer server(loop);
    server.on_call = [&](const ReceivedCall &received) {
        if (server.calls().size() < 50) return;
        Bytes all;
        for (const ReceivedCall &each : server.calls())
            all = test::joined({all, answer(each.xid)});
        server.send(received.connection, all);
    };
    open(server);
    for (int i = 0; i < 50; ++i)
        call();
    ASSERT_TRUE(wait(50));
    EXPECT_EQ(finished.size(), 50U);
}

TEST_F(ClientTest, DropsTheRequestsOfAnOwnerWithoutAWord) {
    ScriptedServer server(loop);
    open(server);
    const int mine = 0;
    const std::string data(8'000'000, 'd');  // half sent when it is dropped
    auto request = make();
    request->owner = &mine;
    request->data = std::as_bytes(std::span{data});
    client->submit(std::move(request));
    call();
    ASSERT_TRUE(test::run(loop, [&] { return client->usable_channels() == 1; }));
    client->drop(&mine);
    server.on_call = answering(server);
    ASSERT_TRUE(wait());
    EXPECT_TRUE(finished[0]->data.empty());
    EXPECT_TRUE(finished[0]->status.ok());
    EXPECT_TRUE(client->idle());
}

TEST_F(ClientTest, MayBeDestroyedFromACompletion) {
    ScriptedServer server(loop);
    server.on_call = answering(server);
    open(server);
    bool gone = false;
    for (int i = 0; i < 2; ++i) {
        auto request = make();
        request->done = [&](const std::unique_ptr<Request> &) {
            EXPECT_FALSE(gone);
            client.reset();
            gone = true;
        };
        client->submit(std::move(request));
    }
    ASSERT_TRUE(test::run(loop, [&] { return gone; }));
    test::run_for(loop, milliseconds(5));
}

TEST_F(ClientTest, ClosesItsConnectionsAndOpensThemWhenNeeded) {
    ScriptedServer server(loop);
    server.on_call = answering(server);
    open(server);
    call();
    ASSERT_TRUE(wait());
    client->close();
    ASSERT_TRUE(test::run(loop, [&] { return server.open_connections() == 0; }));
    call();
    ASSERT_TRUE(wait(2));
    EXPECT_EQ(server.accepted(), 2);
    EXPECT_TRUE(finished[1]->status.ok());
}

TEST_F(ClientTest, LeavesAConnectionClosedThatNobodyNeeds) {
    ScriptedServer server(loop);
    server.on_call = answering(server);
    open(server);
    call();
    ASSERT_TRUE(wait());
    server.cut(1);
    ASSERT_TRUE(test::run(loop, [&] { return client->usable_channels() == 0; }));
    test::run_for(loop, milliseconds(20));
    EXPECT_EQ(server.accepted(), 1);
}

TEST_F(ClientTest, MayTakeTheSameRequestTwiceUnderANewXid) {
    ScriptedServer server(loop);
    server.on_call = answering(server);
    open(server);
    call();
    ASSERT_TRUE(wait());
    auto again = std::move(finished[0]);
    again->done = [this](std::unique_ptr<Request> done) { finished.push_back(std::move(done)); };
    client->submit(std::move(again));
    ASSERT_TRUE(wait(2));
    EXPECT_TRUE(finished[1]->status.ok());
    EXPECT_NE(server.calls()[0].xid, server.calls()[1].xid);
}

}  // namespace
}  // namespace nfstdm::rpc
