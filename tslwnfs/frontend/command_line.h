// SPDX-License-Identifier: Apache-2.0
// The command line: global options, command word, operands.
#pragma once

#include <span>

#include "tslwnfs/options/words.h"

// Reads the whole command line into the option state. The words (the program's own name first) must outlive it. Opens
// the trace and the log on the way. Tells what is wrong with a value; usage and help texts are left to the caller.
ParseOutcome get_options(std::span<char *> words);
