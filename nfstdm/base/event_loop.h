// SPDX-License-Identifier: Apache-2.0
// The library's only engine: descriptors and timers, served while a call of the storage interface is inside the
// library. There are no threads; between calls the kernel's socket buffers carry on.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <unordered_map>

namespace nfstdm {

class EventLoop {
  public:
    using Clock = std::chrono::steady_clock;
    using TimerId = uint64_t;

    EventLoop();
    ~EventLoop();
    EventLoop(const EventLoop &) = delete;
    EventLoop &operator=(const EventLoop &) = delete;

    // Watches a descriptor; events and the callback's argument are those of poll(2). The descriptor stays the caller's,
    // who calls forget() before closing it. Watching a descriptor again replaces what was watched for.
    void watch(int descriptor, short events, std::function<void(short)> ready);
    void forget(int descriptor);

    // Calls back once, at or after a point in time. Cancelling a timer that has fired is harmless.
    TimerId at(Clock::time_point when, std::function<void()> expired);
    TimerId after(Clock::duration delay, std::function<void()> expired) {
        return at(Clock::now() + delay, std::move(expired));
    }
    void cancel(TimerId timer);

    // Calls back from the next turn of the loop: for completions that must not run inside the call that caused them.
    void soon(std::function<void()> task);

    // Runs turns until done() holds; returns at once when it holds already.
    void run_until(const std::function<bool()> &done);

    // Serves whatever is ready and returns without waiting.
    void poll_once();

  private:
    void turn(bool wait);
    int wait_milliseconds(bool wait) const;
    void run_tasks();
    void run_timers();

    struct Watch {
        short events;
        std::function<void(short)> ready;
        uint64_t generation;
    };
    std::unordered_map<int, Watch> watches_;
    uint64_t generation_ = 0;
    std::map<std::pair<Clock::time_point, TimerId>, std::function<void()>> timers_;
    std::unordered_map<TimerId, Clock::time_point> timer_times_;
    TimerId next_timer_ = 1;
    std::deque<std::function<void()>> tasks_;
};

}  // namespace nfstdm
