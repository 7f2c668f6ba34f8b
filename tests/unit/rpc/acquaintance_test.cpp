// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/rpc/acquaintance.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "nfstdm/rpc/client.h"
#include "tests/unit/rpc/scripted_server.h"

namespace nfstdm::rpc {
namespace {

using std::chrono::milliseconds;
using test::ReceivedCall;
using test::ScriptedServer;

Address loopback(const std::string &text, uint16_t port = 2049) {
    return resolve(text, port).value().front();
}

TEST(AcquaintanceTest, AsksNobodyAtTheFirstAddressOfAnOnlyPathAndEverybodyElse) {
    Acquaintance only(false);
    EXPECT_FALSE(only.must_ask(loopback("127.0.0.1")));
    EXPECT_FALSE(only.must_ask(loopback("127.0.0.1")));
    EXPECT_TRUE(only.must_ask(loopback("127.0.0.2")));
    EXPECT_TRUE(only.must_ask(loopback("127.0.0.1", 2050)));
    EXPECT_TRUE(Acquaintance(true).must_ask(loopback("127.0.0.1")));
}

TEST(AcquaintanceTest, KnowsTheServerByWhoAnsweredFirstAndNobodyElse) {
    Acquaintance several(true);
    EXPECT_TRUE(several.meet(loopback("127.0.0.1"), "nas", false).ok());
    EXPECT_TRUE(several.meet(loopback("127.0.0.2"), "nas", true).ok());
    EXPECT_FALSE(several.meet(loopback("127.0.0.3"), "other", true).ok());
    EXPECT_TRUE(several.is_stranger(loopback("127.0.0.3")));
    EXPECT_FALSE(several.is_stranger(loopback("127.0.0.2")));
}

TEST(AcquaintanceTest, TakesNobodyForTheServerWhileItIsSpokenToAndHasNoNameYet) {
    Acquaintance only(false);
    ASSERT_FALSE(only.must_ask(loopback("127.0.0.1")));
    EXPECT_FALSE(only.meet(loopback("127.0.0.2"), "nas", true).ok());
    EXPECT_FALSE(only.is_stranger(loopback("127.0.0.2"))) << "it may be the same";
    EXPECT_TRUE(only.know("nas"));
    EXPECT_TRUE(only.meet(loopback("127.0.0.2"), "nas", true).ok());
}

TEST(AcquaintanceTest, AsksStrangersAgainOnceTheServerHasAnotherName) {
    Acquaintance several(true);
    ASSERT_TRUE(several.meet(loopback("127.0.0.1"), "before", false).ok());
    ASSERT_FALSE(several.meet(loopback("127.0.0.2"), "after", true).ok());
    EXPECT_TRUE(several.meet(loopback("127.0.0.1"), "after", false).ok());
    EXPECT_FALSE(several.is_stranger(loopback("127.0.0.2")));
    EXPECT_FALSE(several.know("after"));
    several.forget();
    EXPECT_TRUE(several.meet(loopback("127.0.0.2"), "third", false).ok());
}

// A host with two addresses, at each of which one word names the server.
class AcquaintedClientTest : public testing::Test, private Introduction {
  protected:
    static constexpr uint32_t kWho = 9;

    AcquaintedClientTest() {
        for (ScriptedServer *server : {&first, &second})
            server->on_call = [this, server](const ReceivedCall &call) {
                xdr::Writer reply = test::begin_reply(call.xid);
                reply.put_u32(call.procedure == kWho && server == &second ? second_name : 1);
                server->reply(call.connection, reply);
            };
        ClientConfig config;
        config.server = "db1";
        config.program = {100, 1};
        config.paths = {{"host", first.port(), {}}};
        config.timing.tick = milliseconds(2);
        config.timing.backoff_first = config.timing.backoff_most = milliseconds(2);
        config.introduction = this;
        config.addresses = std::make_shared<AddressBook>([](const std::string &, uint16_t) {
            return Result<std::vector<Address>>({loopback("127.0.0.1"), loopback("127.0.0.2")});
        });
        client = std::make_unique<Client>(loop, std::move(config), trace);
        trace.set_sink([this](TraceLevel, TraceComponent, std::string_view text) { told.append(text); });
    }
    ~AcquaintedClientTest() override { trace.set_sink({}); }

    std::unique_ptr<Request> question() override {
        auto request = std::make_unique<Request>();
        request->name = "WHO";
        request->procedure = kWho;
        request->results_maximum = 4;
        return request;
    }
    Result<std::string> name_in(const Request &reply) override {
        xdr::Reader reader(reply.results());
        uint32_t word = 0;
        if (!reader.get_u32(word)) return Status{EIO, "nonsense"};
        return std::to_string(word);
    }

    void submit() {
        auto request = std::make_unique<Request>();
        request->name = "CALL";
        request->procedure = 1;
        request->results_maximum = 4;
        request->done = [this](const auto &) { ++answered; };
        client->submit(std::move(request));
    }
    bool ask() {
        submit();
        return test::run(loop, [this, wanted = answered + 1] { return answered >= wanted; });
    }

    EventLoop loop;
    Trace trace;
    std::string told;
    ScriptedServer first{loop};
    ScriptedServer second{loop, "127.0.0.2", first.port()};
    uint32_t second_name = 1;
    int answered = 0;
    std::unique_ptr<Client> client;
};

TEST_F(AcquaintedClientTest, GoesOnAtAnotherAddressWhereTheSameServerAnswers) {
    ASSERT_TRUE(ask());
    client->know_server("1");
    first.stop();
    EXPECT_TRUE(ask());
    ASSERT_EQ(second.calls().size(), 2U);
    EXPECT_EQ(second.calls()[0].procedure, kWho) << "before anything else";
}

TEST_F(AcquaintedClientTest, SendsNothingToAnotherServerAtAnotherAddress) {
    second_name = 2;
    ASSERT_TRUE(ask());
    client->know_server("1");
    first.stop();
    submit();
    EXPECT_TRUE(test::run(loop, [this] { return told.find("another server answers here") != std::string::npos; }));
    test::run_for(loop, milliseconds(20));
    EXPECT_EQ(answered, 1);
    ASSERT_EQ(second.calls().size(), 1U) << "once is enough";
    EXPECT_EQ(second.calls()[0].procedure, kWho);
    client->know_server("2");
    EXPECT_TRUE(test::run(loop, [this] { return answered == 2; })) << "the server that is meant has its name now";
}

}  // namespace
}  // namespace nfstdm::rpc
