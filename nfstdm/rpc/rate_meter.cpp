// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/rpc/rate_meter.h"

#include <algorithm>
#include <chrono>

namespace nfstdm::rpc {

namespace {

using Seconds = std::chrono::duration<double>;

// What was measured over this long counts half.
constexpr double kMemory = 0.1;
// Without an answer it takes so long until the buffers on the way are not all that was measured.
constexpr double kEnoughSeconds = 0.05;
// Looks are closer than this while the loop runs. What was longer, the application spent elsewhere.
constexpr double kLongestLook = 0.2;
// A trial of a slow connection takes the time of one bulk request, a mebibyte at most.
constexpr double kTrialBytes = 1 << 20;
constexpr double kTrialShare = 20;
// A connection that stood still for a while looks slower than anything real.
constexpr double kLongestSeconds = 60;
// A rate of nothing at all would never be tried again.
constexpr double kLowestRate = 1 << 10;

}  // namespace

void RateMeter::look(Clock::time_point now, uint64_t progress, bool busy) {
    if (busy_) {
        bytes_ += static_cast<double>(progress - std::min(progress, progress_));
        seconds_ += std::min(Seconds(now - last_).count(), kLongestLook);
        trusted_ = trusted_ || seconds_ >= kEnoughSeconds;
        if (seconds_ > 2 * kMemory) {
            bytes_ /= 2;
            seconds_ /= 2;
        }
    }
    if (busy_ || busy) last_ = now;
    busy_ = busy;
    progress_ = progress;
}

bool RateMeter::known(Clock::time_point now) const {
    if (!measured()) return false;
    const double valid = std::min(kTrialShare * kTrialBytes / rate(), kLongestSeconds);
    return busy_ || Seconds(now - last_).count() < valid;
}

double RateMeter::rate() const {
    return std::max(bytes_ / seconds_, kLowestRate);
}

}  // namespace nfstdm::rpc
