// SPDX-License-Identifier: Apache-2.0
// One run of a file command over one file, or over the files that a wildcard names.
#pragma once

#include <cstdint>

#include "tslwnfs/frontend/command_table.h"
#include "tslwnfs/storage/operand.h"

// Resolves the operands, tells each file and its verdict, and gives the last failing status, kUnusable or 0.
uint32_t run_on_files(const Command &command, const Operand &first, const Operand &second);

// The processes that had a part in a run leave their servers behind it, which need not be waited for before this one
// leaves them, but before it ends.
void await_workers();
