// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/rpc/auth/authenticator.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>

#include "nfstdm/rpc/auth/identity.h"
#include "nfstdm/rpc/client.h"
#include "nfstdm/rpc/message/constants.h"
#include "nfstdm/xdr/reader.h"
#include "tests/unit/rpc/scripted_server.h"

namespace nfstdm::rpc {
namespace {

using test::begin_reply;
using test::Bytes;
using test::bytes_of;
using test::ReceivedCall;
using test::ScriptedServer;
using testing::HasSubstr;

constexpr std::byte kMask{0x5A};
constexpr uint32_t kFlavour = 77;
constexpr uint32_t kCurable = 14;

Bytes masked(std::span<const std::byte> bytes) {
    Bytes all(bytes.begin(), bytes.end());
    for (std::byte &each : all)
        each ^= kMask;
    return all;
}

struct Numbered : Transmission {
    explicit Numbered(uint32_t its_number) : number(its_number) {}
    uint32_t number;
};

uint32_t number_of(const Transmission *transmission) {
    return dynamic_cast<const Numbered &>(*transmission).number;
}

// Numbers its transmissions, and takes a reply whose verifier is as many bytes long.
class Numbering : public Authenticator {
  public:
    Readiness readiness() override { return state; }
    Result<std::optional<Opening>> next_opening(std::optional<std::span<const std::byte>> answer) override {
        if (barred) return Status{EACCES, "no ticket"};
        if (!answer) answers = 0;
        if (answer && ++answers == openings) {
            state = Readiness::ready;
            return std::optional<Opening>();
        }
        return std::optional<Opening>(Opening{auth_none(), bytes_of("OPEN"), 64});
    }
    Status put(xdr::Writer &head, std::unique_ptr<Transmission> &transmission) override {
        if (mute) return {EACCES, "nothing to say"};
        transmission = std::make_unique<Numbered>(++last);
        head.put_u32(kFlavour);
        head.put_u32(xdr::kWord);
        head.put_u32(last);
        head.put_u32(kAuthNone);
        head.put_u32(0);
        return {};
    }
    Status check(const Verifier &verifier, const Transmission *transmission) override {
        if (verifier.body.size() == number_of(transmission)) return {};
        return {EIO, "the verifier is not the server's"};
    }
    bool wraps() const override { return masks; }
    Result<Bytes> wrap(std::span<const std::byte> arguments, std::span<const std::byte> data,
                       const Transmission *) override {
        Bytes all = masked(arguments);
        const Bytes rest = masked(data);
        all.insert(all.end(), rest.begin(), rest.end());
        all.resize(all.size() + xdr::padding_of(all.size()));
        return all;
    }
    Result<std::span<const std::byte>> unwrap(std::span<std::byte> results, const Transmission *) override {
        std::ranges::copy(masked(results), results.begin());
        return std::span<const std::byte>(results);
    }
    bool cures(uint32_t auth_status, const Transmission *) override { return auth_status == kCurable; }

    uint32_t last = 0;
    bool masks = false;
    bool mute = false;
    Readiness state = Readiness::ready;
    unsigned openings = 2;  // calls it takes to become ready
    unsigned answers = 0;
    bool barred = false;
};

// The results are opaque data and nothing else.
std::size_t from_the_start(std::span<const std::byte>) {
    return xdr::kWord;
}

// Two words and then opaque data, by a reader that is asked word by word and wants no more than it needs.
std::size_t behind_two_words(std::span<const std::byte> known) {
    if (known.size() < 3 * xdr::kWord) return known.size() + xdr::kWord;
    return known.size() == 3 * xdr::kWord ? known.size() : kWholeRecord;
}

class AuthenticatorTest : public testing::Test {
  protected:
    void SetUp() override {
        ClientConfig config;
        config.server = "db1";
        config.program = {200001, 1};
        config.paths = {{"127.0.0.1", server.port(), {}}};
        config.timing.backoff_first = std::chrono::milliseconds(1);
        config.timing.backoff_most = std::chrono::milliseconds(1);
        client = std::make_unique<Client>(loop, std::move(config), trace);
    }
    std::unique_ptr<Request> make() {
        auto request = std::make_unique<Request>();
        request->name = "CALL";
        request->procedure = 1;
        request->authenticator = authenticator;
        request->results_maximum = 64;
        request->done = [this](std::unique_ptr<Request> done) { finished.push_back(std::move(done)); };
        return request;
    }
    bool wait(std::size_t count = 1) {
        return test::run(loop, [this, count] { return finished.size() >= count; });
    }
    static uint32_t number_in(const ReceivedCall &call) {
        xdr::Reader reader(call.credential);
        uint32_t number = 0;
        EXPECT_TRUE(reader.get_u32(number));
        return number;
    }
    void answer(const ReceivedCall &call, std::size_t verifier, std::span<const std::byte> results = {}) {
        xdr::Writer reply = begin_reply(call.xid, verifier);
        reply.put_fixed(results);
        server.reply(call.connection, reply);
    }
    void deny(const ReceivedCall &call, uint32_t auth_status) {
        xdr::Writer reply;
        for (const uint32_t word : {call.xid, kReply, kMessageDenied, 1U, auth_status})
            reply.put_u32(word);
        server.reply(call.connection, reply);
    }

    EventLoop loop;
    Trace trace;
    ScriptedServer server{loop};
    std::shared_ptr<Numbering> authenticator = std::make_shared<Numbering>();
    std::vector<std::unique_ptr<Request>> finished;
    std::unique_ptr<Client> client;
};

TEST_F(AuthenticatorTest, WritesEveryTransmissionAnewUnderTheSameXid) {
    server.on_call = [this](const ReceivedCall &call) {
        if (server.calls().size() == 1) return server.cut(call.connection);
        answer(call, number_in(call));
    };
    client->submit(make());
    ASSERT_TRUE(wait());
    EXPECT_TRUE(finished[0]->status.ok()) << finished[0]->status.text();
    ASSERT_EQ(server.calls().size(), 2U);
    EXPECT_EQ(server.calls()[0].xid, server.calls()[1].xid);
    EXPECT_EQ(number_in(server.calls()[0]), 1U);
    EXPECT_EQ(number_in(server.calls()[1]), 2U);
}

TEST_F(AuthenticatorTest, LeavesAConnectionWhoseAnswerIsNotTheServersAndAsksAgain) {
    server.on_call = [this](const ReceivedCall &call) {
        answer(call, number_in(call) == 1 ? 9 : number_in(call), bytes_of("last"));
    };
    client->submit(make());
    ASSERT_TRUE(wait());
    EXPECT_TRUE(finished[0]->status.ok()) << finished[0]->status.text();
    EXPECT_EQ(server.accepted(), 2);
    EXPECT_EQ(finished[0]->sends, 2U);  // the first may have been executed
}

TEST_F(AuthenticatorTest, TellsOfAnswersThatAreNeverTheServers) {
    server.on_call = [this](const ReceivedCall &call) { answer(call, 99); };
    client->submit(make());
    ASSERT_TRUE(wait());
    EXPECT_EQ(finished[0]->status.number(), static_cast<uint32_t>(EIO));
    EXPECT_THAT(finished[0]->status.text(), HasSubstr("the verifier is not the server's"));
    EXPECT_TRUE(finished[0]->results().empty());
}

TEST_F(AuthenticatorTest, SendsArgumentsAndDataWrapped) {
    authenticator->masks = true;
    server.on_call = [this](const ReceivedCall &call) { answer(call, number_in(call), masked(bytes_of("fine"))); };
    auto request = make();
    request->arguments = bytes_of("ARGS");
    const Bytes data = bytes_of("datum");
    request->data = data;
    client->submit(std::move(request));
    ASSERT_TRUE(wait());
    EXPECT_TRUE(finished[0]->status.ok()) << finished[0]->status.text();
    const auto results = finished[0]->results();
    EXPECT_EQ(Bytes(results.begin(), results.end()), bytes_of("fine"));
    Bytes expected = masked(bytes_of("ARGSdatum"));
    expected.resize(12);
    EXPECT_EQ(server.calls()[0].arguments, expected);
}

TEST_F(AuthenticatorTest, PutsWrappedDataWhereItWouldHaveLanded) {
    authenticator->masks = true;
    for (const std::size_t size : {0, 1, 4, 8}) {
        Bytes landing(8, std::byte{0xEE});
        server.on_call = [&](const ReceivedCall &call) {
            xdr::Writer results;
            results.put_opaque(Bytes(size, std::byte{7}));
            answer(call, number_in(call), masked(results.bytes()));
        };
        auto request = make();
        request->landing = landing;
        request->data_position = from_the_start;
        client->submit(std::move(request));
        ASSERT_TRUE(wait());
        EXPECT_TRUE(finished[0]->status.ok()) << finished[0]->status.text();
        EXPECT_EQ(finished[0]->landed, size);
        EXPECT_EQ(std::count(landing.begin(), landing.end(), std::byte{7}), static_cast<std::ptrdiff_t>(size));
        EXPECT_EQ(finished[0]->results().size(), xdr::kWord);
        finished.clear();
        server.on_call = nullptr;
    }
}

TEST_F(AuthenticatorTest, FindsWrappedDataAsIfTheResultsCameBitByBit) {
    authenticator->masks = true;
    server.on_call = [this](const ReceivedCall &call) {
        xdr::Writer results;
        results.put_u64(5);
        results.put_opaque(bytes_of("datum"));
        answer(call, number_in(call), masked(results.bytes()));
    };
    Bytes landing(8);
    auto request = make();
    request->landing = landing;
    request->data_position = behind_two_words;
    client->submit(std::move(request));
    ASSERT_TRUE(wait());
    EXPECT_EQ(finished[0]->landed, 5U);
    EXPECT_EQ(Bytes(landing.begin(), landing.begin() + 5), bytes_of("datum"));
    EXPECT_EQ(finished[0]->results().size(), 3 * xdr::kWord);
}

TEST_F(AuthenticatorTest, RefusesWrappedDataThatIsMoreThanWasAskedFor) {
    authenticator->masks = true;
    server.on_call = [this](const ReceivedCall &call) {
        xdr::Writer results;
        results.put_opaque(Bytes(12));
        answer(call, number_in(call), masked(results.bytes()));
    };
    Bytes landing(8);
    auto request = make();
    request->landing = landing;
    request->data_position = from_the_start;
    client->submit(std::move(request));
    ASSERT_TRUE(wait());
    EXPECT_EQ(finished[0]->status.number(), static_cast<uint32_t>(EIO));
    EXPECT_EQ(finished[0]->landed, 0U);
}

TEST_F(AuthenticatorTest, SendsAgainWhatWasDeniedForACurableReason) {
    server.on_call = [this](const ReceivedCall &call) {
        if (number_in(call) == 1) return deny(call, kCurable);
        answer(call, number_in(call));
    };
    client->submit(make());
    ASSERT_TRUE(wait());
    EXPECT_TRUE(finished[0]->status.ok()) << finished[0]->status.text();
    EXPECT_EQ(finished[0]->sends, 1U);  // the denied one was not executed
    EXPECT_EQ(server.accepted(), 1);
}

TEST_F(AuthenticatorTest, GivesUpWhenTheCureDoesNotHelp) {
    server.on_call = [this](const ReceivedCall &call) { deny(call, kCurable); };
    client->submit(make());
    ASSERT_TRUE(wait());
    EXPECT_EQ(finished[0]->status.number(), static_cast<uint32_t>(EACCES));
    EXPECT_EQ(server.calls().size(), 3U);
}

TEST_F(AuthenticatorTest, GivesUpAtOnceWhatHasNoCure) {
    server.on_call = [this](const ReceivedCall &call) { deny(call, 5); };
    client->submit(make());
    ASSERT_TRUE(wait());
    EXPECT_EQ(finished[0]->status.number(), static_cast<uint32_t>(EACCES));
    EXPECT_EQ(server.calls().size(), 1U);
}

TEST_F(AuthenticatorTest, FailsARequestForWhichNothingCanBeSaid) {
    authenticator->mute = true;
    client->submit(make());
    ASSERT_TRUE(wait());
    EXPECT_THAT(finished[0]->status.text(), HasSubstr("server db1: CALL: nothing to say"));
    EXPECT_TRUE(server.calls().empty());
}

TEST_F(AuthenticatorTest, IsMadeReadyByCallsOfItsOwnBeforeAnythingIsSent) {
    authenticator->state = Authenticator::Readiness::unmade;
    std::size_t calls_before = 0;
    server.on_null = [&](const ReceivedCall &call) {
        calls_before = server.calls().size();
        EXPECT_EQ(call.arguments, bytes_of("OPEN"));
        server.reply(call.connection, begin_reply(call.xid));
    };
    server.on_call = [this](const ReceivedCall &call) { answer(call, number_in(call)); };
    client->submit(make());
    client->submit(make());
    ASSERT_TRUE(wait(2));
    EXPECT_EQ(server.null_calls(), 2U);
    EXPECT_EQ(calls_before, 0U);
    EXPECT_TRUE(finished[0]->status.ok() && finished[1]->status.ok());
}

TEST_F(AuthenticatorTest, KeepsNobodyElseWaitingWhileItIsMadeReady) {
    authenticator->state = Authenticator::Readiness::unmade;
    server.on_null = [](const ReceivedCall &) {};
    server.on_call = [this](const ReceivedCall &call) { answer(call, 0); };
    client->submit(make());
    auto other = make();
    other->authenticator = auth_none();
    client->submit(std::move(other));
    ASSERT_TRUE(wait());
    EXPECT_TRUE(finished[0]->status.ok()) << finished[0]->status.text();
    EXPECT_EQ(finished[0]->authenticator, auth_none());
    client->drop(nullptr);  // everyone's but the client's own
    EXPECT_FALSE(client->idle());
    client->close();
    EXPECT_TRUE(client->idle());
}

TEST_F(AuthenticatorTest, FailsAllThatWaitsForItWhenItCanNotBeMade) {
    authenticator->state = Authenticator::Readiness::unmade;
    authenticator->barred = true;
    client->submit(make());
    ASSERT_TRUE(wait());
    EXPECT_EQ(finished[0]->status.text(), "server db1: no ticket");
    EXPECT_TRUE(client->idle());
}

TEST_F(AuthenticatorTest, HoldsRequestsBackWhileNoMoreMayBeUnderWay) {
    authenticator->state = Authenticator::Readiness::full;
    server.on_call = [this](const ReceivedCall &call) { answer(call, call.flavour == kFlavour ? number_in(call) : 0); };
    client->submit(make());
    auto other = make();
    other->authenticator = auth_none();
    client->submit(std::move(other));
    ASSERT_TRUE(wait());
    EXPECT_EQ(finished[0]->authenticator, auth_none());
    authenticator->state = Authenticator::Readiness::ready;
    other = make();
    other->authenticator = auth_none();
    client->submit(std::move(other));
    ASSERT_TRUE(wait(3));
    EXPECT_EQ(server.calls().size(), 3U);
}

TEST(PlainAuthenticators, StateTheirCredentialAndAnEmptyVerifier) {
    std::unique_ptr<Transmission> transmission;
    xdr::Writer nobody;
    EXPECT_TRUE(auth_none()->put(nobody, transmission).ok());
    EXPECT_EQ(Bytes(nobody.bytes().begin(), nobody.bytes().end()), Bytes(16));

    const Identity identity{"db1", 501, 502, {7, 8}};
    xdr::Writer somebody;
    EXPECT_TRUE(auth_sys(identity)->put(somebody, transmission).ok());
    const auto credential = auth_sys_credential(identity);
    ASSERT_EQ(somebody.size(), credential.size() + 8);
    EXPECT_TRUE(std::equal(credential.begin() + 8, credential.end(), somebody.bytes().begin() + 8));
    EXPECT_EQ(transmission, nullptr);
}

}  // namespace
}  // namespace nfstdm::rpc
