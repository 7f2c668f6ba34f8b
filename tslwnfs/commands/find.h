// SPDX-License-Identifier: Apache-2.0
// find: walks a tree, tests each entry, prints the matches and can run a command for each.
#pragma once

#include <cstdint>

// Walks directory with the tests of the find globals. Returns 0 when something matched, 4 when nothing did, 1 for a
// directory that cannot be walked or when depth has reached maxdepth.
uint32_t findfile(const char *directory, const char *name_pattern, int32_t depth);
