// SPDX-License-Identifier: Apache-2.0
// The trace records of dd.
#pragma once

#include "tslwnfs/commands/source_file.h"

inline constexpr TransferRecords kDdRecords = {.function = "ddfile",
                                               .source_resized_level = 3,
                                               .source_resized_wide = false,
                                               .source_reidentified_level = 3,
                                               .created_level = 1,
                                               .committed_level = 3};
