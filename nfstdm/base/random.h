// SPDX-License-Identifier: Apache-2.0
// Numbers that nobody guesses, and no two processes share. They come from getrandom(2) itself: what the C++ library
// asks instead is not in every C library that this runs on.
#pragma once

#include <cstdint>

namespace nfstdm {

uint64_t random_number();

}  // namespace nfstdm
