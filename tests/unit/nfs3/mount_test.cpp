// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/nfs3/mount.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <optional>

#include "nfstdm/nfs3/constants.h"
#include "nfstdm/portmap/constants.h"
#include "nfstdm/portmap/portmap.h"
#include "nfstdm/xdr/reader.h"
#include "tests/unit/rpc/scripted_server.h"

namespace nfstdm::mount3 {
namespace {

using test::begin_reply;
using test::Bytes;
using test::ReceivedCall;
using test::ScriptedServer;
using testing::ElementsAre;
using testing::HasSubstr;

Bytes mount_results(std::size_t handle, const std::vector<uint32_t> &flavours) {
    xdr::Writer writer;
    writer.put_u32(0);
    writer.put_string(std::string(handle, 'h'));
    writer.put_u32(static_cast<uint32_t>(flavours.size()));
    for (const uint32_t flavour : flavours)
        writer.put_u32(flavour);
    return writer.take();
}

Bytes refusal(uint32_t status) {
    xdr::Writer writer;
    writer.put_u32(status);
    return writer.take();
}

Bytes two_exports() {
    xdr::Writer writer;
    for (const char *path : {"/export", "/data"}) {
        writer.put_bool(true);
        writer.put_string(path);
        for (const char *group : {"admin", "web"}) {
            writer.put_bool(true);
            writer.put_string(group);
        }
        writer.put_bool(false);
    }
    writer.put_bool(false);
    return writer.take();
}

TEST(MountReply, CarriesTheRootAndTheFlavours) {
    const auto reply = decode_mount(mount_results(32, {1, 390003}));
    ASSERT_TRUE(reply.ok());
    EXPECT_EQ(reply.value().root.view(), std::string(32, 'h'));
    EXPECT_THAT(reply.value().flavours, ElementsAre(1, 390003));
}

TEST(MountReply, TakesHandlesOfOneTo64Bytes) {
    EXPECT_TRUE(decode_mount(mount_results(1, {})).ok());
    EXPECT_TRUE(decode_mount(mount_results(64, {})).ok());
    EXPECT_FALSE(decode_mount(mount_results(0, {})).ok());
    EXPECT_FALSE(decode_mount(mount_results(65, {})).ok());
}

TEST(MountReply, SaysWhyTheServerRefused) {
    EXPECT_EQ(decode_mount(refusal(2)).status().number(), static_cast<uint32_t>(ENOENT));
    EXPECT_EQ(decode_mount(refusal(13)).status().number(), static_cast<uint32_t>(EACCES));
    EXPECT_EQ(decode_mount(refusal(12345)).status().number(), static_cast<uint32_t>(EIO));
}

TEST(MountReply, IsRefusedAtEveryTruncationAndSurvivesEveryBitFlip) {
    const Bytes whole = mount_results(20, {1, 2, 3});
    for (std::size_t size = 0; size < whole.size(); ++size)
        EXPECT_FALSE(decode_mount(std::span{whole}.first(size)).ok());
    for (std::size_t bit = 0; bit < whole.size() * 8; ++bit) {
        Bytes flipped = whole;
        flipped[bit / 8] ^= static_cast<std::byte>(1 << bit % 8);
        const auto reply = decode_mount(flipped);
        EXPECT_TRUE(!reply.ok() || reply.value().root.size == 20);
    }
}

TEST(MountReply, DoesNotBelieveInThousandsOfFlavours) {
    EXPECT_FALSE(decode_mount(mount_results(20, std::vector<uint32_t>(1000, 1))).ok());
}

TEST(ExportList, IsToldFromAnythingElse) {
    const Bytes whole = two_exports();
    EXPECT_TRUE(is_export_list(whole));
    EXPECT_TRUE(is_export_list(Bytes(4)));
    for (std::size_t size = 0; size < whole.size(); ++size)
        EXPECT_FALSE(is_export_list(std::span{whole}.first(size)));
    Bytes longer = whole;
    longer.resize(whole.size() + 4);
    EXPECT_FALSE(is_export_list(longer));
}

TEST(ExportList, EnforcesTheMaximaOfItsTexts) {
    const auto list = [](std::size_t path, std::size_t group) {
        xdr::Writer writer;
        writer.put_bool(true);
        writer.put_string(std::string(path, 'p'));
        writer.put_bool(true);
        writer.put_string(std::string(group, 'g'));
        writer.put_bool(false);
        writer.put_bool(false);
        return is_export_list(writer.bytes());
    };
    EXPECT_TRUE(list(1024, 255));
    EXPECT_FALSE(list(1025, 255));
    EXPECT_FALSE(list(1024, 256));
}

class ExportListTest : public testing::TestWithParam<const char *> {
  protected:
    Result<Bytes> ask(const std::string &server, rpc::Duration limit = kListLimit) {
        std::optional<Result<Bytes>> result;
        export_list(
            loop, server, [&](Result<Bytes> answer) { result = std::move(answer); }, limit);
        EXPECT_FALSE(result.has_value());
        if (!test::run(loop, [&] { return result.has_value(); })) return Status{EINTR, "no completion"};
        return std::move(*result);
    }
    EventLoop loop;
};

TEST_P(ExportListTest, ComesAsTheServerSentIt) {
    ScriptedServer server(loop, GetParam());
    server.on_call = [&](const ReceivedCall &call) {
        EXPECT_EQ(call.program, kProgram);
        EXPECT_EQ(call.version, kVersion);
        EXPECT_EQ(call.procedure, static_cast<uint32_t>(Procedure::export_list));
        xdr::Writer reply = begin_reply(call.xid);
        reply.put_fixed(two_exports());
        server.reply(call.connection, reply);
    };
    const std::string host = GetParam();
    const auto result = ask((host == "::1" ? "[::1]" : host) + ":" + std::to_string(server.port()));
    ASSERT_TRUE(result.ok()) << result.status().text();
    EXPECT_EQ(result.value(), two_exports());
}

INSTANTIATE_TEST_SUITE_P(OverBothFamilies, ExportListTest, testing::Values("127.0.0.1", "::1"));

using ExportListFailure = ExportListTest;

TEST_F(ExportListFailure, IsReportedForAnAnswerThatIsNoList) {
    ScriptedServer server(loop);
    server.on_call = [&](const ReceivedCall &call) {
        xdr::Writer reply = begin_reply(call.xid);
        reply.put_u32(1);
        server.reply(call.connection, reply);
    };
    const std::string name = "127.0.0.1:" + std::to_string(server.port());
    const auto result = ask(name);
    EXPECT_EQ(result.status().number(), static_cast<uint32_t>(EIO));
    EXPECT_THAT(result.status().text(), HasSubstr("server " + name + ": EXPORT"));
}

TEST_F(ExportListFailure, IsReportedForAServerThatIsDown) {
    ScriptedServer server(loop);
    server.stop();
    const auto result = ask("127.0.0.1:" + std::to_string(server.port()));
    EXPECT_EQ(result.status().number(), static_cast<uint32_t>(ECONNREFUSED));
}

TEST_F(ExportListFailure, IsReportedWhenTimeIsUp) {
    ScriptedServer server(loop);
    server.silent = true;
    const auto result = ask("127.0.0.1:" + std::to_string(server.port()), std::chrono::milliseconds(20));
    EXPECT_EQ(result.status().number(), static_cast<uint32_t>(ETIMEDOUT));
}

TEST_F(ExportListFailure, IsReportedForANameThatIsNone) {
    EXPECT_EQ(ask("db1:port").status().number(), static_cast<uint32_t>(EINVAL));
}

class PortmapTest : public testing::Test {
  protected:
    Result<uint16_t> ask() {
        rpc::Timing timing;
        timing.tick = std::chrono::milliseconds(2);
        rpc::Client client(loop, portmap::client_config("db1", {{"127.0.0.1", server.port(), {}}}, timing), trace);
        std::optional<Result<uint16_t>> result;
        portmap::get_port(client, this, std::chrono::seconds(10), 100005, 3,
                          [&](Result<uint16_t> answer) { result = std::move(answer); });
        if (!test::run(loop, [&] { return result.has_value(); })) return Status{EINTR, "no completion"};
        return std::move(*result);
    }
    void answer(std::initializer_list<uint32_t> words) {
        server.on_call = [this, words = std::vector(words)](const ReceivedCall &call) {
            xdr::Writer reply = begin_reply(call.xid);
            for (const uint32_t word : words)
                reply.put_u32(word);
            server.reply(call.connection, reply);
        };
    }

    EventLoop loop;
    Trace trace;
    ScriptedServer server{loop};
};

TEST_F(PortmapTest, AsksForTheTcpPortOfAProgram) {
    answer({2049});
    const auto port = ask();
    ASSERT_TRUE(port.ok());
    EXPECT_EQ(port.value(), 2049);
    ASSERT_EQ(server.calls().size(), 1U);
    EXPECT_EQ(server.calls()[0].program, portmap::kProgram);
    EXPECT_EQ(server.calls()[0].version, 2U);
    EXPECT_EQ(server.calls()[0].procedure, 3U);
    xdr::Reader arguments(server.calls()[0].arguments);
    uint32_t program = 0, version = 0, protocol = 0, zero = 1;
    EXPECT_TRUE(arguments.get_u32(program) && arguments.get_u32(version) && arguments.get_u32(protocol) &&
                arguments.get_u32(zero) && arguments.finished());
    EXPECT_EQ(program, 100005U);
    EXPECT_EQ(version, 3U);
    EXPECT_EQ(protocol, 6U);
    EXPECT_EQ(zero, 0U);
}

TEST_F(PortmapTest, SaysThatAProgramIsNotRegistered) {
    answer({0});
    const auto port = ask();
    EXPECT_EQ(port.status().number(), static_cast<uint32_t>(EPROTONOSUPPORT));
    EXPECT_THAT(port.status().text(), HasSubstr("server db1: portmapper: program 100005"));
}

TEST_F(PortmapTest, BelievesInNoPortBeyond65535AndNoLongerAnswer) {
    answer({65536});
    EXPECT_EQ(ask().status().number(), static_cast<uint32_t>(EIO));
    answer({});
    EXPECT_EQ(ask().status().number(), static_cast<uint32_t>(EIO));
}

}  // namespace
}  // namespace nfstdm::mount3
