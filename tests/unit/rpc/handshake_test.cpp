// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/rpc/handshake.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <memory>
#include <optional>
#include <utility>

#include "nfstdm/base/descriptor.h"
#include "tests/unit/rpc/scripted_server.h"

namespace nfstdm::rpc {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

// Is done once so many bytes have come; one that is 'x' ends it.
class Slow : public Transport {
  public:
    Slow(Descriptor end, int bytes) : end_(std::move(end)), left_(bytes) {}

    int descriptor() const override { return end_.get(); }
    Result<short> handshake() override {
        char byte = 0;
        while (left_ > 0 && recv(end_.get(), &byte, 1, MSG_DONTWAIT) == 1) {
            if (byte == 'x') return Status{EPROTO, "no"};
            --left_;
        }
        return short(left_ > 0 ? POLLIN : 0);
    }
    Result<std::size_t> receive(std::span<const iovec>) override { return std::size_t{0}; }
    Result<std::size_t> send(std::span<const iovec>) override { return std::size_t{0}; }
    std::size_t unacknowledged() const override { return 0; }

  private:
    Descriptor end_;
    int left_;
};

class HandshakeTest : public testing::Test {
  protected:
    void begin(int bytes, Duration limit = seconds(60)) {
        std::array<int, 2> ends{-1, -1};
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
        peer_ = Descriptor(ends[1]);
        handshake_.begin(std::make_unique<Slow>(Descriptor(ends[0]), bytes), limit,
                         [this](auto result) { outcome_.emplace(std::move(result)); });
    }
    void say(const char *byte) { ASSERT_EQ(write(peer_.get(), byte, 1), 1); }
    bool finished() {
        return test::run(loop_, [this] { return outcome_.has_value(); });
    }

    EventLoop loop_;
    Handshake handshake_{loop_};
    Descriptor peer_;
    std::optional<Result<std::unique_ptr<Transport>>> outcome_;
};

TEST_F(HandshakeTest, IsDoneAtOnceWhereThereIsNone) {
    begin(0);
    ASSERT_TRUE(outcome_.has_value());
    EXPECT_TRUE(outcome_->ok());
}

TEST_F(HandshakeTest, GoesOnWithEveryWordOfThePeer) {
    begin(2);
    say("a");
    loop_.poll_once();
    EXPECT_FALSE(outcome_.has_value());
    say("b");
    ASSERT_TRUE(finished());
    ASSERT_TRUE(outcome_->ok());
    EXPECT_NE(outcome_->value(), nullptr);
}

TEST_F(HandshakeTest, SaysWhyItFailed) {
    begin(2);
    say("x");
    ASSERT_TRUE(finished());
    EXPECT_EQ(outcome_->status().text(), "no");
}

TEST_F(HandshakeTest, EndsAtItsLimit) {
    begin(1, milliseconds(1));
    ASSERT_TRUE(finished());
    EXPECT_EQ(outcome_->status().number(), unsigned{ETIMEDOUT});
}

TEST_F(HandshakeTest, IsSilentOnceItIsCancelled) {
    begin(1);
    say("a");
    handshake_.cancel();
    loop_.poll_once();
    EXPECT_FALSE(outcome_.has_value());
}

}  // namespace
}  // namespace nfstdm::rpc
