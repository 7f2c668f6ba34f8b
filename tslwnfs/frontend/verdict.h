// SPDX-License-Identifier: Apache-2.0
// What the executor says of a command's end, and gives as its status.
#pragma once

#include <cstdint>

constexpr uint32_t kUnusable = 4;  // the operands could not be used

// Each tells its verdict and gives the status.
uint32_t unusable();
uint32_t give_verdict(uint32_t result);
// What a directory without content gives; its reading and the look for it have left remarks of no consequence.
uint32_t nothing_inside();
