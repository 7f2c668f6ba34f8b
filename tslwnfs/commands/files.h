// SPDX-License-Identifier: Apache-2.0
// The commands on files and directories, one function a command. Each returns 0 for success and 1 for failure (a few
// others say so); operands come as the executor prepared them and may be null.
#pragma once

#include <cstdint>

uint32_t catfile(const char *path);
uint32_t makedir(const char *path);
uint32_t removedir(const char *path);
uint32_t delfile(const char *path);
uint32_t fsinfodir(const char *path);
uint32_t fsstatdir(const char *path);
uint32_t statfile(const char *path);
uint32_t copyfile(const char *source, const char *destination);
uint32_t movefile(const char *source, const char *destination);

// Copies in blocks as the dd settings say; input and output count only when iffound and offound say so. Sets bsize to
// the input block size and resets COUNT, and for a remote input SKIP.
uint32_t ddfile(const char *input, const char *output);

// Returns 0 when something matched, 4 when nothing did, 1 for a failure or at the depth limit. depth is that of the
// directory: 0 for the one the command names.
uint32_t findfile(const char *directory, const char *pattern, int32_t depth);
