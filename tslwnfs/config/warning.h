// SPDX-License-Identifier: Apache-2.0
// What went otherwise than asked for although the command goes on.
#pragma once

#include <string>

// Traces a text as a record of function, and says it at the terminal at once.
void warn(const char *function, const std::string &text);
