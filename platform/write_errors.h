// SPDX-License-Identifier: Apache-2.0
// Why something that was written to a stream was lost.
#pragma once

#include <cstdio>

// Remembers why the first write to a stream failed: to be called right behind a write, while errno tells. What was lost
// is gone from the stream's buffer, so that a later flush succeeds and knows nothing of it.
void note_write(FILE *stream);

// The error number that note_write() remembers of a stream, 0 for none; the stream and this forget it.
int take_write_error(FILE *stream);

// Flushes, and takes note of a failure. Returns true when nothing written was lost so far.
bool flush_stream(FILE *stream);
