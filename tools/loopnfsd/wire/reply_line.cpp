// SPDX-License-Identifier: Apache-2.0
#include "tools/loopnfsd/wire/reply_line.h"

#include <algorithm>
#include <utility>

namespace loopnfsd {

namespace {

// A client with fewer calls under way than are to be held would otherwise wait for ever.
constexpr std::chrono::milliseconds kHeldLongest{20};

}  // namespace

void ReplyLine::add(Record reply, Clock::time_point now, const LineConditions &conditions) {
    busy_until_ = std::max(busy_until_, now) + conditions.delay;
    bytes_ += reply.size();
    // In the order of calls, even if delays that were changed meanwhile make a later reply due earlier.
    waiting_.push_back({busy_until_ + conditions.rtt, std::move(reply)});
}

std::size_t ReplyLine::release(Clock::time_point now, const LineConditions &conditions, std::deque<Record> &due) {
    std::size_t turned = 0;
    while (!waiting_.empty() && waiting_.front().due <= now) {
        if (held_.empty()) held_until_ = now + kHeldLongest;
        held_.push_back(std::move(waiting_.front().reply));
        waiting_.pop_front();
        if (held_.size() >= conditions.reorder && give_up_held(due)) ++turned;
    }
    if (!held_.empty() && held_until_ <= now && give_up_held(due)) ++turned;
    return turned;
}

// True when there were several, whose order is another one now.
bool ReplyLine::give_up_held(std::deque<Record> &due) {
    const bool turned = held_.size() > 1;
    for (auto reply = held_.rbegin(); reply != held_.rend(); ++reply) {
        bytes_ -= reply->size();
        due.push_back(std::move(*reply));
    }
    held_.clear();
    return turned;
}

std::optional<Clock::time_point> ReplyLine::next() const {
    if (waiting_.empty() && held_.empty()) return std::nullopt;
    if (waiting_.empty()) return held_until_;
    return held_.empty() ? waiting_.front().due : std::min(waiting_.front().due, held_until_);
}

}  // namespace loopnfsd
