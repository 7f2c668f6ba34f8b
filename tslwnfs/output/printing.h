// SPDX-License-Identifier: Apache-2.0
// What a function is told that may print what it found.
#pragma once

#include <cstdint>

enum Printing : int32_t { kUnprinted = 0, kPrinted = 1 };
