// SPDX-License-Identifier: Apache-2.0
// Wildcards: "*" stands for any run of characters, "?" for exactly one; no escapes, no classes, by byte.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// Returns 1 when name as a whole matches pattern, else 0. Case matters.
int strwildcmp(const char *pattern, const char *name);

// Builds in out the name that pattern gives when applied to name ("*.bak" and "file.txt" give "file.bak"). out is a
// zeroed buffer of out_size bytes; what does not fit is left out. Returns 1.
int strwildmatch(const char *pattern, const char *name, char *out, std::size_t out_size);

// Lower-cases a text in place, byte by byte in the current locale, and returns it.
char *tolower_string(char *text);

// A copy of text in lower case, in the same way.
std::string lowered(std::string_view text);
