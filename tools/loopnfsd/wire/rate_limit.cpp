// SPDX-License-Identifier: Apache-2.0
#include "tools/loopnfsd/wire/rate_limit.h"

#include <algorithm>

namespace loopnfsd {

namespace {

constexpr double kBurst = 0.010;         // seconds' worth of bytes that may go at once
constexpr double kSmallestBurst = 4096;  // bytes, so that slow rates do not go byte by byte

}  // namespace

uint64_t RateLimit::allowance(std::optional<uint64_t> rate, Clock::time_point now) {
    if (!rate) return kNoLimit;
    const double per_second = std::max<double>(1, static_cast<double>(*rate));
    const double burst = std::max(per_second * kBurst, kSmallestBurst);
    level_ = std::min(burst, level_ + per_second * std::chrono::duration<double>(now - filled_at_).count());
    filled_at_ = now;
    const double step = burst / 4;  // is waited for, so that not every byte wakes somebody
    if (level_ >= step) return static_cast<uint64_t>(level_);
    ready_at_ = now + std::chrono::ceil<Clock::duration>(std::chrono::duration<double>((step - level_) / per_second));
    return 0;
}

}  // namespace loopnfsd
