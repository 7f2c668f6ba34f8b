// SPDX-License-Identifier: Apache-2.0
#include "platform/clock.h"

#include <chrono>

uint32_t platform_clock() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<uint32_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(now).count());
}
