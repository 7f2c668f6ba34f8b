// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/rpc/channel.h"

#include <gtest/gtest.h>

#include "nfstdm/rpc/envelope.h"
#include "nfstdm/rpc/message/constants.h"
#include "tests/unit/rpc/scripted_server.h"

namespace nfstdm::rpc {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using test::ScriptedServer;

// Time passes only as the test says.
class ChannelTest : public testing::Test, protected ChannelOwner {
  protected:
    bool has_work() const override { return false; }
    void channel_usable() override {}
    void channel_remarks(const std::string &) override {}
    void channel_proven() override {}
    void channel_answered(std::unique_ptr<Request>) override {}
    void channel_sent(std::unique_ptr<Request>) override {}
    void channel_lost(std::vector<std::unique_ptr<Request>>, const Status &, bool) override { lost_ = true; }
    std::unique_ptr<Request> new_probe() override { return make(0); }

    std::unique_ptr<Request> make(uint32_t procedure) {
        auto request = std::make_unique<Request>();
        request->program = {200001, 1};
        request->procedure = procedure;
        request->sequence = ++sequence_;
        EXPECT_TRUE(seal(*request).ok());
        return request;
    }

    void connect() {
        channel_.wake();
        ASSERT_TRUE(test::run(loop_, [this] { return channel_.usable(); }));
    }

    // Seconds until the channel is given up.
    int patience(bool alone) {
        int count = 0;
        for (; !lost_ && count < 100; ++count) {
            test::run_for(loop_, milliseconds(2));  // what was sent is acknowledged
            channel_.tick(seconds(1), alone);
        }
        return count;
    }

    EventLoop loop_;
    ScriptedServer server_{loop_};
    AddressBook book_;
    uint64_t sequence_ = 0;
    bool lost_ = false;
    Channel channel_{loop_, *this, book_, {{"127.0.0.1", server_.port(), {}}, SourcePort::any, {}, false}};
};

TEST_F(ChannelTest, IsLeftAfterFiveSecondsOfSilenceWhateverTheQuestionWhetherItIsThereTook) {
    server_.silent = true;
    connect();
    channel_.send(make(1));
    EXPECT_EQ(patience(false), 5 + 1);  // in the first one the request went out
    EXPECT_EQ(server_.null_calls(), 1U);
}

TEST_F(ChannelTest, IsGivenLongerWhenThereIsNoOther) {
    server_.silent = true;
    connect();
    channel_.send(make(1));
    EXPECT_EQ(patience(true), 20 + 1);
}

TEST_F(ChannelTest, IsNotLeftWhileBytesAreTakenIn) {
    connect();
    channel_.send(make(1));
    for (int i = 0; i < 50; ++i) {
        channel_.send(make(1));
        test::run_for(loop_, milliseconds(1));
        channel_.tick(seconds(1), false);
    }
    EXPECT_FALSE(lost_);
}

TEST(Timing, LeavesASilentPathEarlyEnoughForAnotherToAnswer) {
    const Timing timing;
    const Timing within_five = timing.within(seconds(5));
    EXPECT_EQ(within_five.silence_most, Duration(seconds(5)) / 3);
    EXPECT_EQ(within_five.silence, within_five.silence_most);
    EXPECT_LT(within_five.probe, within_five.silence);
    EXPECT_EQ(within_five.silence_alone, timing.silence_alone);
    EXPECT_EQ(timing.within(seconds(600)).silence, timing.silence);
    EXPECT_EQ(timing.within(seconds(600)).probe, timing.probe);
    EXPECT_EQ(timing.within({}).silence, timing.silence);
}

}  // namespace
}  // namespace nfstdm::rpc
