// SPDX-License-Identifier: Apache-2.0
// Tasks and timers of an EventLoop that never run after the object that asked for them is gone.
#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "nfstdm/base/event_loop.h"

namespace nfstdm {

// A member of the object whose life it stands for.
class Lifeline {
  public:
    Lifeline() : life_(std::make_shared<char>()) {}
    Lifeline(const Lifeline &) = delete;
    Lifeline &operator=(const Lifeline &) = delete;

    // Expires with this object: for a function that calls out and must know whether it may go on.
    std::weak_ptr<void> watch() const { return life_; }

    // The task runs from the loop's next turn, or never when this object is gone by then.
    void soon(EventLoop &loop, std::function<void()> task) const {
        loop.soon([life = watch(), run = std::move(task)] {
            if (!life.expired()) run();
        });
    }

  private:
    std::shared_ptr<void> life_;
};

// At most one timer at a time, cancelled with its owner. The loop must outlive it.
class ScopedTimer {
  public:
    explicit ScopedTimer(EventLoop &loop) : loop_(loop) {}
    ~ScopedTimer() { cancel(); }
    ScopedTimer(const ScopedTimer &) = delete;
    ScopedTimer &operator=(const ScopedTimer &) = delete;

    // Replaces what was set before.
    void after(EventLoop::Clock::duration delay, std::function<void()> expired) {
        cancel();
        timer_ = loop_.after(delay, [this, run = std::move(expired)] {
            timer_ = 0;
            run();
        });
    }
    bool pending() const { return timer_ != 0; }
    void cancel() {
        if (timer_ != 0) loop_.cancel(std::exchange(timer_, 0));
    }

  private:
    EventLoop &loop_;
    EventLoop::TimerId timer_ = 0;  // 0 = none; the loop counts from 1
};

}  // namespace nfstdm
