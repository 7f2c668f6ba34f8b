// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/base/event_loop.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <memory>
#include <optional>
#include <vector>

#include "nfstdm/base/descriptor.h"
#include "nfstdm/base/scoped.h"
#include "tests/unit/rpc/scripted_server.h"

namespace nfstdm {
namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;

struct Pipe {
    Pipe() {
        std::array<int, 2> ends{-1, -1};
        EXPECT_EQ(pipe(ends.data()), 0);
        out = Descriptor(ends[0]);
        in = Descriptor(ends[1]);
    }
    Descriptor out, in;
};

TEST(EventLoop, FiresTimersInOrderOfTime) {
    EventLoop loop;
    std::vector<int> order;
    loop.after(milliseconds(2), [&] { order.push_back(2); });
    loop.after(milliseconds(1), [&] { order.push_back(1); });
    const auto cancelled = loop.after(milliseconds(1), [&] { order.push_back(9); });
    loop.after(milliseconds(3), [&] { order.push_back(3); });
    loop.cancel(cancelled);
    EXPECT_TRUE(test::run(loop, [&] { return order.size() == 3; }));
    EXPECT_THAT(order, ElementsAre(1, 2, 3));
    loop.cancel(cancelled);  // harmless
}

TEST(EventLoop, RunsATaskFromTheNextTurnOnly) {
    EventLoop loop;
    int ran = 0;
    loop.soon([&] {
        ++ran;
        loop.soon([&] { ++ran; });
    });
    EXPECT_EQ(ran, 0);
    loop.poll_once();
    EXPECT_EQ(ran, 1);
    loop.poll_once();
    EXPECT_EQ(ran, 2);
}

TEST(EventLoop, LosesNoTaskBehindOneThatThrows) {
    EventLoop loop;
    bool ran = false;
    loop.soon([] { throw std::bad_alloc(); });
    loop.soon([&ran] { ran = true; });
    EXPECT_THROW(loop.poll_once(), std::bad_alloc);
    EXPECT_FALSE(ran);
    loop.poll_once();
    EXPECT_TRUE(ran);
}

TEST(EventLoop, TellsOfADescriptorUntilItIsForgotten) {
    EventLoop loop;
    Pipe pipe;
    int told = 0;
    loop.watch(pipe.out.get(), POLLIN, [&](short events) {
        EXPECT_NE(events & POLLIN, 0);
        ++told;
    });
    loop.poll_once();
    EXPECT_EQ(told, 0);
    ASSERT_EQ(write(pipe.in.get(), "x", 1), 1);
    loop.poll_once();
    EXPECT_EQ(told, 1);
    loop.forget(pipe.out.get());
    loop.poll_once();
    EXPECT_EQ(told, 1);
}

TEST(EventLoop, LeavesADescriptorAloneThatAnotherCallbackForgot) {
    EventLoop loop;
    Pipe first, second;
    int told = 0;
    const auto forget_both = [&](short) {
        ++told;
        loop.forget(first.out.get());
        loop.forget(second.out.get());
    };
    loop.watch(first.out.get(), POLLIN, forget_both);
    loop.watch(second.out.get(), POLLIN, forget_both);
    ASSERT_EQ(write(first.in.get(), "x", 1), 1);
    ASSERT_EQ(write(second.in.get(), "x", 1), 1);
    loop.poll_once();
    EXPECT_EQ(told, 1);
}

TEST(Lifeline, KeepsTasksFromRunningAfterTheirOwner) {
    EventLoop loop;
    int ran = 0;
    auto life = std::make_unique<Lifeline>();
    life->soon(loop, [&] { ++ran; });
    loop.poll_once();
    EXPECT_EQ(ran, 1);
    life->soon(loop, [&] { ++ran; });
    life.reset();
    loop.poll_once();
    EXPECT_EQ(ran, 1);
}

TEST(ScopedTimer, FiresOnceAndDiesWithItsOwner) {
    EventLoop loop;
    int fired = 0;
    std::optional<ScopedTimer> timer(std::in_place, loop);
    timer->after(milliseconds(0), [&] { fired += 100; });
    timer->after(milliseconds(1), [&] { ++fired; });  // replaces the first
    EXPECT_TRUE(timer->pending());
    EXPECT_TRUE(test::run(loop, [&] { return fired > 0; }));
    EXPECT_FALSE(timer->pending());
    timer->after(milliseconds(0), [&] { ++fired; });
    timer.reset();
    test::run_for(loop, milliseconds(2));
    EXPECT_EQ(fired, 1);
}

}  // namespace
}  // namespace nfstdm
