// SPDX-License-Identifier: Apache-2.0
#include "tools/loopnfsd/base/alarm.h"

#include <poll.h>
#include <sys/timerfd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <system_error>
#include <utility>

namespace loopnfsd {

Alarm::Alarm(nfstdm::EventLoop &loop, std::function<void()> expired)
    : loop_(loop), timer_(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC)) {
    if (!timer_) throw std::system_error(errno, std::generic_category(), "timerfd_create");
    loop_.watch(timer_.get(), POLLIN, [this, expired = std::move(expired)](short) {
        uint64_t expirations = 0;
        if (::read(timer_.get(), &expirations, sizeof expirations) < 0) return;
        when_.reset();
        expired();
    });
}

Alarm::~Alarm() {
    loop_.forget(timer_.get());
}

void Alarm::set(std::optional<Clock::time_point> when) {
    if (when == when_) return;
    when_ = when;
    itimerspec setting{};
    if (when) {
        // steady_clock is CLOCK_MONOTONIC. A time of zero would switch the timer off.
        const auto nanoseconds = std::max<int64_t>(1, std::chrono::nanoseconds(when->time_since_epoch()).count());
        setting.it_value = {nanoseconds / 1'000'000'000, nanoseconds % 1'000'000'000};
    }
    timerfd_settime(timer_.get(), TFD_TIMER_ABSTIME, &setting, nullptr);
}

}  // namespace loopnfsd
