// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/output/capture.h"

#include <sys/types.h>

#include <algorithm>
#include <cstdio>
#include <string_view>
#include <utility>

#include "platform/write_errors.h"
#include "tslwnfs/output/output.h"
#include "tslwnfs/output/product_context.h"

namespace {

CapturedBytes captured;
Overflow take_overflow = nullptr;

ssize_t hold_back(void *place, const char *bytes, std::size_t size) {
    for (std::string_view rest(bytes, size); !rest.empty();) {
        const std::size_t part = std::min(rest.size(), kCapturedMaximum - captured.size());
        static_cast<std::string *>(place)->append(rest.substr(0, part));
        rest.remove_prefix(part);
        if (captured.size() == kCapturedMaximum) take_overflow(std::exchange(captured, {}));
    }
    return static_cast<ssize_t>(size);
}

// The stream that was there is the other process's affair.
bool replace(FILE *&stream, std::string &place) {
    if (stream == nullptr) return true;
    FILE *const replaced = fopencookie(&place, "w", {nullptr, hold_back, nullptr, nullptr});
    if (replaced == nullptr) return false;
    stream = replaced;
    return true;
}

void write(FILE *stream, const std::string &bytes) {
    if (stream == nullptr || bytes.empty()) return;
    static_cast<void>(std::fwrite(bytes.data(), 1, bytes.size(), stream));
    note_write(stream);
}

}  // namespace

void CapturedBytes::append(const CapturedBytes &more) {
    output += more.output;
    log += more.log;
    trace += more.trace;
}

bool capture_output(Overflow overflow) {
    take_overflow = overflow;
    remember_terminals();
    return replace(stdout, captured.output) && replace(octx.log_stream, captured.log) &&
           replace(octx.trace_stream, captured.trace);
}

CapturedBytes take_captured() {
    flush_output();
    return std::exchange(captured, {});
}

void deliver(const CapturedBytes &bytes) {
    write(stdout, bytes.output);
    write(octx.log_stream, bytes.log);
    write(octx.trace_stream, bytes.trace);
    if (octx.trace_stream != nullptr && !bytes.trace.empty()) flush_stream(octx.trace_stream);
}
