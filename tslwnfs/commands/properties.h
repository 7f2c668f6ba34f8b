// SPDX-License-Identifier: Apache-2.0
// The storage properties of one file: what the storage interface knows of it once it is open.
#pragma once

#include <cstdint>

// Prints the properties of a remote file, or the status of a local one. A remote file stays identified. Returns 0 or 1.
uint32_t statfile(const char *path);
