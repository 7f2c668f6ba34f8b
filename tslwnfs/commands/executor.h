// SPDX-License-Identifier: Apache-2.0
// Runs the command of commandtype on one pair of operands. It stands above the commands, in frontend/executor.cpp;
// those that work recursively call it again.
#pragma once

#include <cstdint>

#include "tslwnfs/storage/operand.h"

// Prepares the operands, expands a wildcard in the last component of the first one, prints the banner, calls the
// command's function for each file and reports each result. Either operand may be missing. Returns 0, the last
// failing result, or 4 when the operands could not be used. Copy and delete call it again to work recursively, with
// operands that are ready for use; they get kNamesLeftOut for a directory that has names which no path can hold.
uint32_t exec_command(const Operand &first, const Operand &second);

// A worker process runs a command on single files. A tree is walked by the process in front alone: what a worker finds
// to be a directory to be walked it gives back, before anything is done, with this result.
constexpr uint32_t kIsForFront = UINT32_MAX;
bool is_worker();
void become_worker();
