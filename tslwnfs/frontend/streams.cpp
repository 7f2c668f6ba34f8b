// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/frontend/streams.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/stream.h"
#include "tslwnfs/frontend/options.h"

namespace {

constexpr std::size_t kTraceBuffer = 1024;  // bytes

Stream trace_owner, log_owner;
bool finished = false;

bool use_as_trace(Stream stream) {
    if (!stream) return false;
    std::setvbuf(stream.get(), nullptr, _IOFBF, kTraceBuffer);
    octx.trace_on = 1;
    octx.trace_stream = stream.get();
    trace_owner = std::move(stream);
    return true;
}

// Names are shorter than a word of the command line may be, and so fit.
void keep_name(char (&field)[TDM_STREAM_NAME_SIZE], const char *name) {
    std::snprintf(field, sizeof field, "%s", name);
}

void complain(const char *what) {
    static_cast<void>(std::fprintf(stderr, "tslwnfs: %s: %s\n", what, std::strerror(errno)));
}

bool close_trace() {
    octx.trace_on = 0;
    octx.trace_stream = nullptr;
    return close_stream(trace_owner);
}

// False when something printed to standard output was lost. A standard output that was closed from the start had
// nobody to lose it.
bool flush_standard_output() {
    const bool failed_before = std::ferror(stdout) != 0;
    errno = 0;
    const bool flushed = std::fflush(stdout) == 0;
    return (flushed && !failed_before) || fcntl(STDOUT_FILENO, F_GETFD) < 0;
}

}  // namespace

bool open_trace_file(const char *name) {
    if (!use_as_trace(open_stream(name, "w"))) return false;
    keep_name(octx.trace_file_name, name);
    return true;
}

bool open_trace_on_standard_error() {
    const int descriptor = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
    if (descriptor < 0) return false;
    Stream stream(fdopen(descriptor, "w"));
    if (!stream) close(descriptor);
    if (!use_as_trace(std::move(stream))) return false;
    octx.trace_to_stderr = 1;
    return true;
}

bool open_log_file(const char *name) {
    Stream stream = open_stream(name, "w+");
    if (!stream) return false;
    keep_name(octx.log_file_name, name);
    octx.log_stream = stream.get();
    octx.log_on = 1;
    log_owner = std::move(stream);
    return true;
}

bool close_log() {
    octx.log_on = 0;
    octx.log_stream = nullptr;
    return close_stream(log_owner);
}

int finish_output(int status) {
    finished = true;
    if (!close_trace()) complain("the trace is not complete");
    if (!close_log()) complain("the log file is not complete");
    if (flush_standard_output()) return status;
    complain("standard output is not complete");
    return status == 0 ? 1 : status;
}

void finish_output_at_exit() {
    if (!finished) static_cast<void>(finish_output(1));
}
