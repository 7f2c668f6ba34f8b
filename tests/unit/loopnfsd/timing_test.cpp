// SPDX-License-Identifier: Apache-2.0
// The parts that decide when bytes go, with the time as an argument.
#include <gtest/gtest.h>

#include <string>

#include "tools/loopnfsd/wire/rate_limit.h"
#include "tools/loopnfsd/wire/reply_line.h"

namespace {

using namespace std::chrono_literals;
using loopnfsd::Clock;
using loopnfsd::LineConditions;
using loopnfsd::RateLimit;
using loopnfsd::Record;
using loopnfsd::ReplyLine;

const Clock::time_point kStart{1h};

Record record(char name) {
    return {{static_cast<std::byte>(name)}, {}};
}

std::string released(ReplyLine &line, Clock::time_point now, const LineConditions &conditions) {
    std::deque<Record> due;
    line.release(now, conditions, due);
    std::string names;
    for (const Record &each : due)
        names += static_cast<char>(each.head.front());
    return names;
}

TEST(ReplyLine, LetsRepliesGoAtOnceUnlessTold) {
    ReplyLine line;
    line.add(record('a'), kStart, {});
    line.add(record('b'), kStart, {});
    EXPECT_EQ(line.bytes(), 2U);
    EXPECT_EQ(released(line, kStart, {}), "ab");
    EXPECT_EQ(line.bytes(), 0U);
    EXPECT_EQ(line.next(), std::nullopt);
}

TEST(ReplyLine, ARoundTripDelaysAllRepliesAlike) {
    ReplyLine line;
    const LineConditions far{.rtt = 10ms};
    line.add(record('a'), kStart, far);
    line.add(record('b'), kStart + 1ms, far);
    EXPECT_EQ(line.next(), kStart + 10ms);
    EXPECT_EQ(released(line, kStart + 9ms, far), "");
    EXPECT_EQ(released(line, kStart + 10ms, far), "a");
    EXPECT_EQ(released(line, kStart + 11ms, far), "b");
}

TEST(ReplyLine, ASlowServerTakesOneCallAfterTheOther) {
    ReplyLine line;
    const LineConditions slow{.delay = 10ms};
    line.add(record('a'), kStart, slow);
    line.add(record('b'), kStart, slow);
    EXPECT_EQ(released(line, kStart + 19ms, slow), "a");
    EXPECT_EQ(released(line, kStart + 20ms, slow), "b");
}

TEST(ReplyLine, AShorterDelayDoesNotLetAReplyOvertake) {
    ReplyLine line;
    line.add(record('a'), kStart, {.rtt = 10ms});
    line.add(record('b'), kStart, {});
    EXPECT_EQ(released(line, kStart + 1ms, {}), "");
    EXPECT_EQ(released(line, kStart + 10ms, {}), "ab");
}

TEST(ReplyLine, ReorderingSendsAHandfulBackwards) {
    ReplyLine line;
    const LineConditions mixed{.reorder = 3};
    for (const char name : {'a', 'b', 'c', 'd'})
        line.add(record(name), kStart, mixed);
    EXPECT_EQ(released(line, kStart, mixed), "cba");
    EXPECT_EQ(line.bytes(), 1U);
}

TEST(ReplyLine, ReorderingDoesNotHoldALastReplyForEver) {
    ReplyLine line;
    const LineConditions mixed{.reorder = 3};
    line.add(record('a'), kStart, mixed);
    EXPECT_EQ(released(line, kStart, mixed), "");
    const auto next = line.next();
    ASSERT_TRUE(next);
    EXPECT_EQ(released(line, *next, mixed), "a");
}

TEST(RateLimit, WithoutARateLetsEverythingPass) {
    RateLimit limit;
    EXPECT_EQ(limit.allowance(std::nullopt, kStart), RateLimit::kNoLimit);
}

TEST(RateLimit, KeepsToItsRateOverTime) {
    RateLimit limit;
    constexpr uint64_t kRate = 1'000'000;
    uint64_t passed = 0;
    Clock::time_point now = kStart;
    while (now < kStart + 10s) {
        const uint64_t allowed = limit.allowance(kRate, now);
        limit.take(allowed);
        passed += allowed;
        if (allowed > 0) continue;
        ASSERT_GT(limit.ready_at(), now);
        now = limit.ready_at();
    }
    EXPECT_NEAR(static_cast<double>(passed), 10.0 * kRate, 0.01 * kRate * 10);
}

TEST(RateLimit, DoesNotSaveUpWhatWasNotUsed) {
    RateLimit limit;
    limit.allowance(1'000'000, kStart);
    EXPECT_LE(limit.allowance(1'000'000, kStart + 1h), 1'000'000U / 50);
}

}  // namespace
