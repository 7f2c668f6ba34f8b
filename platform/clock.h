// SPDX-License-Identifier: Apache-2.0
// The clock of the trace.
#pragma once

#include <cstdint>

// Monotonic nanoseconds, cut to 32 bits: it wraps every 4.3 seconds and orders records that are close together.
uint32_t platform_clock();
