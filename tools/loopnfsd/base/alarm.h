// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <functional>
#include <optional>

#include "nfstdm/base/event_loop.h"
#include "tools/loopnfsd/base/unique_fd.h"

namespace loopnfsd {

// A timer finer than the millisecond steps in which poll(2) waits: at a round trip of 1 ms those would count twice.
class Alarm {
  public:
    using Clock = std::chrono::steady_clock;

    // The loop must outlive the alarm.
    Alarm(nfstdm::EventLoop &loop, std::function<void()> expired);
    ~Alarm();
    Alarm(const Alarm &) = delete;
    Alarm &operator=(const Alarm &) = delete;

    // Replaces the time set before; nothing = never.
    void set(std::optional<Clock::time_point> when);

  private:
    nfstdm::EventLoop &loop_;
    UniqueFd timer_;
    std::optional<Clock::time_point> when_;
};

}  // namespace loopnfsd
