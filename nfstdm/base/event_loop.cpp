// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/base/event_loop.h"

#include <poll.h>

#include <algorithm>
#include <climits>
#include <utility>
#include <vector>

namespace nfstdm {

EventLoop::EventLoop() = default;
EventLoop::~EventLoop() = default;

void EventLoop::watch(int descriptor, short events, std::function<void(short)> ready) {
    watches_[descriptor] = Watch{events, std::move(ready), ++generation_};
}

void EventLoop::forget(int descriptor) {
    watches_.erase(descriptor);
}

EventLoop::TimerId EventLoop::at(Clock::time_point when, std::function<void()> expired) {
    const TimerId id = next_timer_++;
    timers_.emplace(std::pair{when, id}, std::move(expired));
    timer_times_.emplace(id, when);
    return id;
}

void EventLoop::cancel(TimerId timer) {
    const auto found = timer_times_.find(timer);
    if (found == timer_times_.end()) return;
    timers_.erase({found->second, timer});
    timer_times_.erase(found);
}

void EventLoop::soon(std::function<void()> task) {
    tasks_.push_back(std::move(task));
}

void EventLoop::run_until(const std::function<bool()> &done) {
    while (!done())
        turn(true);
}

void EventLoop::poll_once() {
    turn(false);
}

int EventLoop::wait_milliseconds(bool wait) const {
    if (!wait || !tasks_.empty()) return 0;
    if (timers_.empty()) return -1;
    const auto left = timers_.begin()->first.first - Clock::now();
    const auto milliseconds = std::chrono::ceil<std::chrono::milliseconds>(left).count();
    return static_cast<int>(std::clamp<int64_t>(milliseconds, 0, INT_MAX));
}

void EventLoop::turn(bool wait) {
    std::vector<pollfd> descriptors;
    std::vector<uint64_t> generations;
    descriptors.reserve(watches_.size());
    for (const auto &[descriptor, watch] : watches_) {
        descriptors.push_back({descriptor, watch.events, 0});
        generations.push_back(watch.generation);
    }
    const int ready = poll(descriptors.data(), descriptors.size(), wait_milliseconds(wait));
    run_tasks();
    for (std::size_t i = 0; ready > 0 && i < descriptors.size(); ++i) {
        if (descriptors[i].revents == 0) continue;
        // A callback may have closed this descriptor, and another may have been opened under its number.
        const auto watch = watches_.find(descriptors[i].fd);
        if (watch == watches_.end() || watch->second.generation != generations[i]) continue;
        const auto callback = watch->second.ready;
        callback(descriptors[i].revents);
    }
    run_timers();
}

void EventLoop::run_tasks() {
    // Those that come meanwhile wait for the next turn. One that throws takes no other along.
    for (std::size_t count = tasks_.size(); count > 0; --count) {
        const auto task = std::move(tasks_.front());
        tasks_.pop_front();
        task();
    }
}

void EventLoop::run_timers() {
    const auto now = Clock::now();
    while (!timers_.empty() && timers_.begin()->first.first <= now) {
        auto node = timers_.extract(timers_.begin());
        timer_times_.erase(node.key().second);
        node.mapped()();
    }
}

}  // namespace nfstdm
