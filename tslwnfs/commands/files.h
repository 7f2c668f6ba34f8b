// SPDX-License-Identifier: Apache-2.0
// The commands on files and directories, one function a command. Each returns 0 for success and 1 for failure (a few
// others say so); operands come as the executor prepared them and may be missing.
#pragma once

#include <cstdint>

#include "tslwnfs/storage/operand.h"

uint32_t catfile(const Operand &path);
uint32_t makedir(const Operand &path);
uint32_t removedir(const Operand &path);
uint32_t delfile(const Operand &path);
uint32_t fsinfodir(const Operand &path);
uint32_t fsstatdir(const Operand &path);
uint32_t statfile(const Operand &path);
uint32_t copyfile(const Operand &source, const Operand &destination);
uint32_t movefile(const Operand &source, const Operand &destination);

// Copies in blocks as the dd settings say; input and output count only when iffound and offound say so. Sets bsize to
// the input block size and resets COUNT, and for a remote input SKIP.
uint32_t ddfile(const Operand &input, const Operand &output);

// The depth, to what goes through a tree, of the directory that a command names.
constexpr int32_t kTopOfTree = 0;

// Returns 0 when something matched, 4 when nothing did, 1 for a failure or at the depth limit. depth is that of the
// directory.
uint32_t findfile(const Operand &directory, const char *pattern, int32_t depth);
