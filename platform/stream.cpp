// SPDX-License-Identifier: Apache-2.0
#include "platform/stream.h"

#include <cerrno>
#include <string>

#include "platform/write_errors.h"

Stream open_stream(const char *path, const char *mode) {
    return Stream(std::fopen(path, std::string(mode).append("e").c_str()));
}

void write_through(FILE *stream) {
    static_cast<void>(std::setvbuf(stream, nullptr, _IONBF, 0));
}

bool close_stream(Stream &stream) {
    if (!stream) return true;
    const bool arrived = flush_stream(stream.get());
    const int error = take_write_error(stream.get());
    if (std::fclose(stream.release()) != 0) return false;
    errno = error;
    return arrived;
}
