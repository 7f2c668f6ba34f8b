// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/output/streams.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "platform/stream.h"
#include "platform/write_errors.h"
#include "tslwnfs/output/product_context.h"
#include "tslwnfs/output/trace.h"
#include "tslwnfs/terminal/screen.h"

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

// error: 0 when nobody took note of it.
void complain(const char *what, int error) {
    std::string text = std::string(what) + " is not complete";
    if (error != 0) text = text + ": " + std::strerror(error);
    tslwnfswrf(3, "main", "%s\n", text.c_str());
    terminal::say(text);
}

bool close_trace() {
    octx.trace_on = 0;
    octx.trace_stream = nullptr;
    return close_stream(trace_owner);
}

// A command that did something is not asked about a standard output that was closed from the start.
bool flush_standard_output(LostOutput lost) {
    if (flush_stream(stdout)) return true;
    const int error = take_write_error(stdout);
    if (lost == LostOutput::keeps_status && error == EBADF) return true;
    complain("standard output", error);
    return false;
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

int finish_output(int status, LostOutput lost) {
    finished = true;
    const bool shown = flush_standard_output(lost);
    const bool logged = close_log();
    if (!logged) complain("the log file", errno);
    if (!close_trace()) complain("the trace", errno);
    const bool fails = lost == LostOutput::fails && !(shown && logged);
    return status == 0 && fails ? 1 : status;
}

void finish_output_at_exit() {
    if (!finished) static_cast<void>(finish_output(1));
}
