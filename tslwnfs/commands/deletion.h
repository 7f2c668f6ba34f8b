// SPDX-License-Identifier: Apache-2.0
// Deleting a local file, as del and move do it.
#pragma once

#include "platform/path_buffer.h"

// A file that cannot be read is not deleted. Message 65061 in the name of function.
[[nodiscard]] bool check_deletable(const char *function, const PathBuffer &path);

// Message 65038 in the name of function when the file stays.
[[nodiscard]] bool delete_local_file(const char *function, const PathBuffer &path);
