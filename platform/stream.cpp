// SPDX-License-Identifier: Apache-2.0
#include "platform/stream.h"

#include <string>

Stream open_stream(const char *path, const char *mode) {
    return Stream(std::fopen(path, std::string(mode).append("e").c_str()));
}

void write_through(FILE *stream) {
    static_cast<void>(std::setvbuf(stream, nullptr, _IONBF, 0));
}

bool close_stream(Stream &stream) {
    if (!stream) return true;
    const bool failed_before = std::ferror(stream.get()) != 0;
    return std::fclose(stream.release()) == 0 && !failed_before;
}
