// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdint>
#include <limits>
#include <optional>

namespace loopnfsd {

// A bucket that fills at a rate; bytes take from it.
class RateLimit {
  public:
    using Clock = std::chrono::steady_clock;
    static constexpr uint64_t kNoLimit = std::numeric_limits<uint64_t>::max();

    // Bytes that may go now, at a rate in bytes per second; none = as many as wanted.
    uint64_t allowance(std::optional<uint64_t> rate, Clock::time_point now);
    void take(uint64_t bytes) { level_ -= static_cast<double>(bytes); }

    // When there will be an allowance again; only after allowance() gave 0.
    Clock::time_point ready_at() const { return ready_at_; }

  private:
    double level_ = 0;  // bytes
    Clock::time_point filled_at_{};
    Clock::time_point ready_at_{};
};

}  // namespace loopnfsd
