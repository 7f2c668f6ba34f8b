// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/frontend/pace.h"

#include <ctime>

#include "tslwnfs/terminal/progress.h"

namespace {

std::chrono::nanoseconds processor_time() {
    timespec used{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
    return std::chrono::seconds(used.tv_sec) + std::chrono::nanoseconds(used.tv_nsec);
}

}  // namespace

void Pace::begin() {
    start_ = std::chrono::steady_clock::now();
    computed_ = processor_time();
    bytes_ = terminal::bytes_through();
}

void Pace::end() {
    const auto taken = std::chrono::steady_clock::now() - start_;
    waits_ = is_wait(taken, processor_time() - computed_, terminal::bytes_through() - bytes_) ? waits_ + 1 : 0;
}

// A server next door takes some 0.3 ms for a call, and a small file up is three. Bytes take their time on any line.
bool Pace::is_wait(std::chrono::nanoseconds taken, std::chrono::nanoseconds computed, uint64_t bytes) {
    constexpr std::chrono::microseconds kNear(900);
    constexpr uint64_t kBytesInMicrosecond = 100;
    return taken - computed > kNear + std::chrono::microseconds(bytes / kBytesInMicrosecond);
}
