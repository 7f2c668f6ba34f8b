// SPDX-License-Identifier: Apache-2.0
// One run of the utility, from the command line to the exit status.
#pragma once

#include <span>

// words is the program's argument vector, its own name first. Returns the exit status; trace and log are still open.
int run_utility(std::span<char *> words);
