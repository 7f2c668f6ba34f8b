// SPDX-License-Identifier: Apache-2.0
// The questions before a configuration file is overwritten.
#pragma once

#include <string>

// Prints a question on standard output, log or not, and reads one character. Only "y" is a yes; the end of the input is
// a no.
bool ask_once(const std::string &question);
