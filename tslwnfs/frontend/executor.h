// SPDX-License-Identifier: Apache-2.0
// Runs the command of commandtype on one pair of operands.
#pragma once

#include <cstdint>

// Prepares the operands, expands a wildcard in the last component of the first one, prints the banner, calls the
// command's function for each file and reports each result. Either operand may be null. Returns 0, the last failing
// result, or 4 when the operands could not be used. Copy, delete and dd call it again to work recursively.
uint32_t exec_command(const char *first, const char *second);
