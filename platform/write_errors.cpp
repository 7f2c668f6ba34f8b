// SPDX-License-Identifier: Apache-2.0
#include "platform/write_errors.h"

#include <cerrno>
#include <map>

namespace {

std::map<const FILE *, int> &write_errors() {
    static std::map<const FILE *, int> errors;
    return errors;
}

}  // namespace

void note_write(FILE *stream) {
    if (std::ferror(stream) != 0) write_errors().try_emplace(stream, errno);
}

int take_write_error(FILE *stream) {
    std::clearerr(stream);
    const auto noted = write_errors().extract(stream);
    return noted.empty() ? 0 : noted.mapped();
}

bool flush_stream(FILE *stream) {
    const bool flushed = std::fflush(stream) == 0;
    note_write(stream);
    return flushed && std::ferror(stream) == 0;
}
