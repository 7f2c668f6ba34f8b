// SPDX-License-Identifier: Apache-2.0
// Streams that close themselves. Closing is where a full disk or a lost server shows, so a stream that was written is
// closed with close_stream(); the destructor is for the way out of a failure.
#pragma once

#include <cstdio>
#include <memory>

struct StreamCloser {
    void operator()(FILE *stream) const { static_cast<void>(std::fclose(stream)); }
};
using Stream = std::unique_ptr<FILE, StreamCloser>;

// Opens a file as fopen does, closed in programs that this one runs. Null on failure, with errno set.
Stream open_stream(const char *path, const char *mode);

// Gives the stream no buffer: one that is written in large pieces would split each in two and copy the smaller part.
void write_through(FILE *stream);

// Flushes and closes. Returns true when everything ever written arrived, and for a stream that is not open; otherwise
// errno tells why, or is 0 when nobody took note.
[[nodiscard]] bool close_stream(Stream &stream);
