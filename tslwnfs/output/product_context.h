// SPDX-License-Identifier: Apache-2.0
// Where the trace and the log go.
#pragma once

#include <cstdint>

#include "include/tdm.h"

// Handed to the storage library as its product context; streams.h fills it.
extern TdmProductContext octx;

// The utility's own trace level, 0 to 4; 0 = no record passes.
extern uint32_t tslwnfs_trace;

// Neither trace nor log. What was open stays open.
void reset_product_context();
