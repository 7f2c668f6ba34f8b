// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <optional>
#include <string>

#include "nfstdm/rpc/transport/tcp.h"

namespace nfstdm::rpc {
namespace {

class TcpTransportTest : public testing::Test {
  protected:
    TcpTransportTest() {
        std::array<int, 2> ends{-1, -1};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
        peer_ = Descriptor(ends[1]);
        transport_.emplace(Descriptor(ends[0]));
    }

    std::optional<TcpTransport> transport_;
    Descriptor peer_;
};

TEST_F(TcpTransportTest, SendsThePiecesInTheirOrder) {
    std::string first = "one ", second = "two";
    const std::array<iovec, 2> pieces{iovec{first.data(), first.size()}, iovec{second.data(), second.size()}};
    const auto sent = transport_->send(pieces);
    ASSERT_TRUE(sent.ok());
    EXPECT_EQ(sent.value(), 7U);
    std::array<char, 16> got{};
    EXPECT_EQ(::read(peer_.get(), got.data(), got.size()), 7);
    EXPECT_STREQ(got.data(), "one two");
}

TEST_F(TcpTransportTest, FillsThePlacesInTheirOrder) {
    ASSERT_EQ(::write(peer_.get(), "abcde", 5), 5);
    std::array<char, 3> first{};
    std::array<char, 8> second{};
    const std::array<iovec, 2> places{iovec{first.data(), first.size()}, iovec{second.data(), second.size()}};
    const auto got = transport_->receive(places);
    ASSERT_TRUE(got.ok());
    EXPECT_EQ(got.value(), 5U);
    EXPECT_EQ(std::string(first.data(), 3), "abc");
    EXPECT_STREQ(second.data(), "de");
}

TEST_F(TcpTransportTest, NeverWaits) {
    std::array<char, 4096> bytes{};
    const std::array<iovec, 1> area{iovec{bytes.data(), bytes.size()}};
    const auto got = transport_->receive(area);
    ASSERT_TRUE(got.ok());
    EXPECT_EQ(got.value(), 0U);
    auto sent = transport_->send(area);
    while (sent.ok() && sent.value() > 0)
        sent = transport_->send(area);
    EXPECT_TRUE(sent.ok()) << sent.status().text();
    EXPECT_GT(transport_->unacknowledged(), 0U);
}

TEST_F(TcpTransportTest, SaysThatThePeerHasGone) {
    peer_.close();
    std::array<char, 8> bytes{};
    const std::array<iovec, 1> area{iovec{bytes.data(), bytes.size()}};
    EXPECT_EQ(transport_->receive(area).status().number(), unsigned{ECONNRESET});
    EXPECT_EQ(transport_->send(area).status().number(), unsigned{EPIPE});
}

TEST_F(TcpTransportTest, ClosesWithItsEnd) {
    const int number = transport_->descriptor();
    transport_.reset();
    EXPECT_EQ(fcntl(number, F_GETFD), -1);
}

}  // namespace
}  // namespace nfstdm::rpc
