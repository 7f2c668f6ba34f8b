// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/rpc/auth/gss.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <deque>

#include "nfstdm/rpc/client.h"
#include "nfstdm/rpc/message/constants.h"
#include "nfstdm/xdr/reader.h"
#include "tests/unit/rpc/fake_gss.h"

namespace nfstdm::rpc {
namespace {

using test::Bytes;
using test::bytes_of;
using test::fake_gss;
using test::fake_proof;
using test::fake_wrapped;
using test::ReceivedCall;
using test::ScriptedServer;
using testing::HasSubstr;

struct GssCredential {
    uint32_t version = 0, procedure = 0, sequence = 0, service = 0;
    Bytes handle;
};

GssCredential credential_of(const ReceivedCall &call) {
    GssCredential credential;
    xdr::Reader reader(call.credential);
    std::span<const std::byte> handle;
    EXPECT_EQ(call.flavour, kRpcsecGss);
    EXPECT_TRUE(reader.get_u32(credential.version) && reader.get_u32(credential.procedure) &&
                reader.get_u32(credential.sequence) && reader.get_u32(credential.service) &&
                reader.get_opaque(handle, 256) && reader.finished());
    credential.handle.assign(handle.begin(), handle.end());
    return credential;
}

Bytes word_of(uint32_t value) {
    xdr::Writer writer;
    writer.put_u32(value);
    return writer.take();
}

// A server that agrees on contexts, in as many rounds as it is told, and answers requests as the test says.
class GssTest : public testing::Test {
  protected:
    void SetUp() override {
        fake_gss() = {};
        server.on_null = [this](const ReceivedCall &call) { agree(call); };
        server.on_call = [this](const ReceivedCall &call) { answer(call); };
    }
    void TearDown() override {
        finished.clear();
        client.reset();
        authenticator.reset();
        EXPECT_EQ(fake_gss().alive, 0);
        EXPECT_EQ(fake_gss().given, 0);
    }
    void open(GssService service = GssService::none) {
        protection = service;
        ClientConfig config;
        config.server = "db1";
        config.program = {200001, 1};
        config.paths = {{"127.0.0.1", server.port(), {}}};
        config.timing.backoff_first = std::chrono::milliseconds(1);
        config.timing.backoff_most = std::chrono::milliseconds(1);
        client = std::make_unique<Client>(loop, std::move(config), trace);
        authenticator = std::make_shared<GssAuthenticator>(test::fake_gss_module(), "nfs@db1", service);
    }
    void call(std::string_view arguments = "args") {
        auto request = std::make_unique<Request>();
        request->name = "CALL";
        request->procedure = 1;
        request->authenticator = authenticator;
        request->arguments = bytes_of(arguments);
        request->results_maximum = 64;
        request->done = [this](std::unique_ptr<Request> done) { finished.push_back(std::move(done)); };
        client->submit(std::move(request));
    }
    bool wait(std::size_t count = 1) {
        return test::run(loop, [this, count] { return finished.size() >= count; });
    }

    void reply(const ReceivedCall &call, const Bytes &proof, std::span<const std::byte> results) {
        xdr::Writer writer;
        for (const uint32_t word : {call.xid, kReply, kMessageAccepted, kRpcsecGss})
            writer.put_u32(word);
        writer.put_opaque(proof);
        writer.put_u32(0);
        writer.put_fixed(results);
        server.reply(call.connection, writer);
    }
    void deny(const ReceivedCall &call, uint32_t auth_status) {
        xdr::Writer writer;
        for (const uint32_t word : {call.xid, kReply, kMessageDenied, 1U, auth_status})
            writer.put_u32(word);
        server.reply(call.connection, writer);
    }
    void agree(const ReceivedCall &call) {
        const GssCredential credential = credential_of(call);
        openings.push_back(credential);
        const bool last =
            credential.procedure == static_cast<uint32_t>(GssProcedure::continue_init) || fake_gss().rounds == 1;
        xdr::Writer results;
        results.put_opaque(bytes_of("handle " + std::to_string(fake_gss().made)));
        results.put_u32(major != 0 ? major : last ? 0 : 1);
        results.put_u32(minor);
        results.put_u32(window);
        results.put_opaque(bytes_of("answer"));
        reply(call, spoil_opening ? bytes_of("nonsense") : fake_proof(word_of(window)), results.bytes());
    }
    // As the protection asks, with the arguments as results.
    void answer(const ReceivedCall &call) {
        const uint32_t sequence = credential_of(call).sequence;
        reply(call, fake_proof(word_of(sequence)), wrapped(sequence, "gone"));
    }
    Bytes wrapped(uint32_t sequence, std::string_view results) const {
        if (protection == GssService::none) return bytes_of(results);
        xdr::Writer body;
        body.put_u32(sequence);
        body.put_fixed(bytes_of(results));
        xdr::Writer whole;
        if (protection == GssService::integrity) {
            whole.put_opaque(body.bytes());
            whole.put_opaque(fake_proof(body.bytes()));
        } else {
            whole.put_opaque(fake_wrapped(body.bytes()));
        }
        return whole.take();
    }

    EventLoop loop;
    Trace trace;
    ScriptedServer server{loop};
    GssService protection = GssService::none;
    uint32_t window = 16, major = 0, minor = 0;
    bool spoil_opening = false;
    std::vector<GssCredential> openings;
    std::vector<std::unique_ptr<Request>> finished;
    std::shared_ptr<GssAuthenticator> authenticator;
    std::unique_ptr<Client> client;
};

TEST_F(GssTest, AgreesOnAContextAndNumbersWhatItSends) {
    open();
    call();
    call();
    ASSERT_TRUE(wait(2));
    EXPECT_TRUE(finished[0]->status.ok()) << finished[0]->status.text();
    ASSERT_EQ(openings.size(), 1U);
    EXPECT_EQ(openings[0].version, kGssVersion);
    EXPECT_EQ(openings[0].procedure, static_cast<uint32_t>(GssProcedure::init));
    EXPECT_TRUE(openings[0].handle.empty());
    ASSERT_EQ(server.calls().size(), 2U);
    for (uint32_t i = 0; i < 2; ++i) {
        const GssCredential credential = credential_of(server.calls()[i]);
        EXPECT_EQ(credential.procedure, static_cast<uint32_t>(GssProcedure::data));
        EXPECT_EQ(credential.sequence, i + 1);
        EXPECT_EQ(credential.handle, bytes_of("handle 1"));
        EXPECT_EQ(server.calls()[i].arguments, bytes_of("args"));
    }
}

TEST_F(GssTest, GoesOnAskingUntilTheServerIsContent) {
    fake_gss().rounds = 2;
    open();
    call();
    ASSERT_TRUE(wait());
    EXPECT_TRUE(finished[0]->status.ok()) << finished[0]->status.text();
    ASSERT_EQ(openings.size(), 2U);
    EXPECT_EQ(openings[1].procedure, static_cast<uint32_t>(GssProcedure::continue_init));
    EXPECT_EQ(openings[1].handle, bytes_of("handle 1"));
}

TEST_F(GssTest, TellsOfEveryTroubleWhatToTry) {
    struct Expected {
        NfstdmGssTrouble trouble;
        const char *what;
        const char *cure;
    };
    for (const auto &[trouble, what, cure] : {
             Expected{kGssTroubleNoTicket, "there is no Kerberos ticket", "kinit"},
             Expected{kGssTroubleTicketExpired, "ticket has expired", "kinit"},
             Expected{kGssTroubleClockSkew, "clocks", "NTP"},
             Expected{kGssTroubleUnknownService, "does not know the service", "principal_host"},
             Expected{kGssTroubleWrongRealm, "realm", "domain_realm"},
             Expected{kGssTroubleNoKeytab, "keytab", "KRB5_CLIENT_KTNAME"},
             Expected{kGssTroubleNoKdc, "can be reached", "krb5.conf"},
             Expected{kGssTroubleBadTicket, "can not read the Kerberos ticket", "kinit"},
             Expected{kGssTroubleOther, "Kerberos failed", "klist"},
         }) {
        for (const bool early : {true, false}) {
            fake_gss().create_fails = early;
            fake_gss().step_fails = true;
            fake_gss().create_trouble = fake_gss().step_trouble = trouble;
            open();
            call();
            ASSERT_TRUE(wait());
            const Status &status = finished[0]->status;
            EXPECT_EQ(status.number(), static_cast<uint32_t>(EACCES));
            EXPECT_TRUE(status.is(Condition::credential)) << "another identity need not meet it";
            EXPECT_THAT(status.text(), HasSubstr("server db1: "));
            EXPECT_THAT(status.text(), HasSubstr(what));
            EXPECT_THAT(status.text(), HasSubstr("for nfs@db1 (said the system): "));
            EXPECT_THAT(status.text(), HasSubstr(cure));
            EXPECT_EQ(server.null_calls() + server.calls().size(), 0U);
            finished.clear();
        }
    }
}

TEST_F(GssTest, TellsWhyTheServerRefusesTheTicket) {
    major = 0xD0000;
    minor = 7;
    open();
    call();
    ASSERT_TRUE(wait());
    EXPECT_EQ(finished[0]->status.number(), static_cast<uint32_t>(EACCES));
    EXPECT_THAT(finished[0]->status.text(), HasSubstr("the server refuses the ticket: the clocks"));
    EXPECT_TRUE(server.calls().empty());
}

TEST_F(GssTest, TellsOfWhatTheServerLacksWhatToTryThere) {
    struct Expected {
        uint32_t major;
        NfstdmGssTrouble trouble;
        const char *words;
    };
    constexpr uint32_t kNoCredential = 7U << 16, kDefectiveToken = 9U << 16, kFailure = 13U << 16;
    for (const auto &[said, trouble, words] : {
             Expected{kNoCredential, kGssTroubleNoTicket,
                      "is in no keytab for nfs@db1 (said the system): look at the "},
             Expected{kDefectiveToken, kGssTroubleOther, "the server can not read the Kerberos ticket"},
             Expected{kFailure, kGssTroubleClockSkew, "the clocks"},
             Expected{kFailure, kGssTroubleOther, "; look at the server's keytab and log"},
         }) {
        major = said;
        minor = trouble;
        open();
        call();
        ASSERT_TRUE(wait());
        EXPECT_THAT(finished[0]->status.text(), HasSubstr("the server refuses the ticket: "));
        EXPECT_THAT(finished[0]->status.text(), HasSubstr(words));
        finished.clear();
    }
}

TEST_F(GssTest, TellsWhatToTryWhereTheServerTakesNoContextAtAll) {
    server.on_null = [this](const ReceivedCall &call) { deny(call, 1); };
    open();
    call();
    ASSERT_TRUE(wait());
    EXPECT_EQ(finished[0]->status.number(), static_cast<uint32_t>(EACCES));
    EXPECT_THAT(finished[0]->status.text(), HasSubstr("security context: the server refuses the identity presented"));
    EXPECT_THAT(finished[0]->status.text(), HasSubstr("no key for nfs@db1: compare klist -k there"));
}

TEST_F(GssTest, TellsTheServerThatAContextIsNoLongerUsedAndMakesAnotherWhenItIs) {
    open(GssService::integrity);
    client->close();
    call();
    ASSERT_TRUE(wait());
    const GssCredential used = credential_of(server.calls().back());
    openings.clear();
    client->close();
    ASSERT_TRUE(test::run(loop, [this] { return openings.size() == 1; }));
    EXPECT_EQ(openings[0].procedure, static_cast<uint32_t>(GssProcedure::destroy));
    EXPECT_EQ(openings[0].handle, used.handle);
    EXPECT_EQ(openings[0].sequence, used.sequence + 1);
    EXPECT_EQ(openings[0].service, used.service);
    EXPECT_TRUE(client->idle());
    EXPECT_EQ(fake_gss().alive, 0);

    call();
    ASSERT_TRUE(wait(2));
    EXPECT_TRUE(finished[1]->status.ok());
    EXPECT_EQ(openings[1].procedure, static_cast<uint32_t>(GssProcedure::init));
}

TEST_F(GssTest, UsesNoContextThatIsNotProvenToBeTheServers) {
    spoil_opening = true;
    open();
    call();
    ASSERT_TRUE(wait());
    EXPECT_EQ(finished[0]->status.number(), static_cast<uint32_t>(EIO));
    EXPECT_THAT(finished[0]->status.text(), HasSubstr("does not hold"));
    EXPECT_TRUE(server.calls().empty());
}

TEST_F(GssTest, MakesAnotherContextOnceForAllThatMetTheLossOfTheOld) {
    server.on_call = [this](const ReceivedCall &received) {
        if (credential_of(received).handle == bytes_of("handle 1")) return deny(received, 14);
        answer(received);
    };
    open();
    for (int i = 0; i < 5; ++i)
        call();
    ASSERT_TRUE(wait(5));
    for (const auto &each : finished)
        EXPECT_TRUE(each->status.ok()) << each->status.text();
    EXPECT_EQ(fake_gss().made, 2);
    EXPECT_EQ(server.accepted(), 1);
}

TEST_F(GssTest, MakesAnotherContextWhenTheTimeOfTheOldIsUp) {
    fake_gss().seconds = 0;
    open();
    call();
    ASSERT_TRUE(wait());
    while (authenticator->readiness() != Authenticator::Readiness::unmade)
        test::run_for(loop, std::chrono::milliseconds(10));
    call();
    ASSERT_TRUE(wait(2));
    EXPECT_TRUE(finished[1]->status.ok()) << finished[1]->status.text();
    EXPECT_EQ(fake_gss().made, 2);
    EXPECT_EQ(credential_of(server.calls()[1]).handle, bytes_of("handle 2"));
}

TEST_F(GssTest, HasNoMoreUnderWayThanTheWindowTakes) {
    window = 3;
    std::deque<ReceivedCall> held;
    server.on_call = [&](const ReceivedCall &received) { held.push_back(received); };
    open();
    for (int i = 0; i < 10; ++i)
        call();
    ASSERT_TRUE(test::run(loop, [&] { return held.size() == 3; }));
    // The second's answer leaves the first under way, which keeps the window where it is.
    answer(held[1]);
    ASSERT_TRUE(wait(1));
    test::run_for(loop, std::chrono::milliseconds(20));
    EXPECT_EQ(held.size(), 3U);
    answer(held[0]);
    ASSERT_TRUE(test::run(loop, [&] { return held.size() == 5; }));
    held.erase(held.begin(), held.begin() + 2);
    server.on_call = [this](const ReceivedCall &received) { answer(received); };
    for (const ReceivedCall &each : held)
        answer(each);
    ASSERT_TRUE(wait(10));
    EXPECT_EQ(credential_of(server.calls().back()).sequence, 10U);
}

TEST_F(GssTest, OpensTheWindowAgainWhenAConnectionIsLost) {
    window = 2;
    server.on_call = [this](const ReceivedCall &received) {
        if (received.connection == 1) return server.calls().size() == 2 ? server.cut(1) : void();
        answer(received);
    };
    open();
    for (int i = 0; i < 4; ++i)
        call();
    ASSERT_TRUE(wait(4));
    for (const auto &each : finished)
        EXPECT_TRUE(each->status.ok()) << each->status.text();
    EXPECT_EQ(fake_gss().made, 1);
}

class GssProtectionTest : public GssTest, public testing::WithParamInterface<GssService> {};

INSTANTIATE_TEST_SUITE_P(Both, GssProtectionTest, testing::Values(GssService::integrity, GssService::privacy));

TEST_P(GssProtectionTest, WrapsArgumentsAndUnwrapsResults) {
    open(GetParam());
    call("args");
    ASSERT_TRUE(wait());
    ASSERT_TRUE(finished[0]->status.ok()) << finished[0]->status.text();
    const auto results = finished[0]->results();
    EXPECT_EQ(Bytes(results.begin(), results.end()), bytes_of("gone"));
    EXPECT_EQ(server.calls()[0].arguments, wrapped(1, "args"));
    EXPECT_EQ(credential_of(server.calls()[0]).service, static_cast<uint32_t>(GetParam()));
}

TEST_P(GssProtectionTest, NoticesEveryByteThatWasChangedAndAsksAgainElsewhere) {
    open(GetParam());
    protection = GetParam();
    const std::size_t size = wrapped(1, "gone").size();
    for (std::size_t at = 0; at < size; ++at) {
        const int before = server.accepted();
        bool spoiled = false;
        server.on_call = [&, this](const ReceivedCall &received) {
            const uint32_t sequence = credential_of(received).sequence;
            Bytes results = wrapped(sequence, "gone");
            if (!std::exchange(spoiled, true)) results[at] ^= std::byte{0x40};
            reply(received, fake_proof(word_of(sequence)), results);
        };
        call();
        ASSERT_TRUE(wait());
        ASSERT_TRUE(finished[0]->status.ok()) << finished[0]->status.text();
        const auto results = finished[0]->results();
        EXPECT_EQ(Bytes(results.begin(), results.end()), bytes_of("gone"));
        // Nothing covers the padding at the end, and nothing reads it.
        const bool padding = at >= size - xdr::padding_of(GetParam() == GssService::integrity ? 10 : 24);
        if (at > 0) {
            EXPECT_EQ(server.accepted() - before, padding ? 0 : 1) << at;
        }
        EXPECT_EQ(finished[0]->sends, padding ? 1U : 2U) << at;
        finished.clear();
    }
}

TEST_P(GssProtectionTest, TakesNoAnswerToAnotherTransmission) {
    open(GetParam());
    server.on_call = [this](const ReceivedCall &received) {
        const uint32_t sequence = credential_of(received).sequence;
        reply(received, fake_proof(word_of(sequence)), wrapped(sequence + 1, "gone"));
    };
    call();
    ASSERT_TRUE(wait());
    EXPECT_EQ(finished[0]->status.number(), static_cast<uint32_t>(EIO));
    EXPECT_THAT(finished[0]->status.text(), HasSubstr("does not hold"));
}

TEST(GssModule, NamesThePackageWhenItIsMissing) {
    const auto module = load_gss_module();
    ASSERT_FALSE(module.ok());
    EXPECT_EQ(module.status().number(), static_cast<uint32_t>(ENOTSUP));
    EXPECT_THAT(module.status().text(), HasSubstr("nfstdm-gss.so can not be loaded"));
    EXPECT_THAT(module.status().text(), HasSubstr("libgssapi-krb5-2"));
}

}  // namespace
}  // namespace nfstdm::rpc
