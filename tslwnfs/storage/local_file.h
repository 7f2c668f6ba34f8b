// SPDX-License-Identifier: Apache-2.0
// Streams on local files: opened for a transfer, closed on every way out.
#pragma once

#include <cstdint>
#include <cstdio>

#include "platform/stream.h"

// In a tree that is walked a source may be a link, and a destination may not; nothing but regular files is opened
// there.

// Opens a file for reading, at its start, and gives its size in bytes: 0 for what has no position, such as a pipe.
// Returns null when it cannot be opened, and for a directory, which the C library would open and report as endless.
Stream open_local_source(const char *path, uint64_t &size);

// Makes a file or empties it, for writing. Returns null and sets errno.
Stream create_local_file(const char *path);

// Whether a file can be opened for reading. Never waits for the other end of a pipe.
bool is_readable(const char *path);

// Brings a written file and its directory entry to the disk. Returns false when something written was lost; what has no
// disk behind it, such as a pipe, counts as written.
[[nodiscard]] bool synchronize_stream(FILE *stream, const char *path);
