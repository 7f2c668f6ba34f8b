// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/output/trace.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <string_view>
#include <utility>

#include "platform/clock.h"
#include "platform/write_errors.h"
#include "tslwnfs/output/product_context.h"
#include "tslwnfs/terminal/reasons.h"

namespace {
constexpr std::size_t kRecordSize = 512;    // bytes of a record's text with its terminator
constexpr std::size_t kFailureSize = 4096;  // holds two paths and what is said of them
// A record is a line: a line feed that a name brings in does not begin another one.
void keep_to_one_line(std::string_view text, char *record) {
    const std::size_t end = text.find_last_not_of('\n');
    if (end != std::string_view::npos) std::replace(record, record + end, '\n', '?');
}
}  // namespace

void tslwnfswrf(uint32_t level, const char *function, const char *format, ...) {
    // The sense is that of a threshold: the higher the configured level, the fewer records pass.
    if (tslwnfs_trace == 0 || tslwnfs_trace > level) return;
    if (octx.trace_on != 1 || octx.trace_stream == nullptr) return;
    char record[kRecordSize];
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(record, sizeof record, format, arguments);
    va_end(arguments);
    if (length < 0) record[0] = '\0';
    keep_to_one_line(record, record);
    tsltrc_wrf("[%u],%s ", platform_clock(), function);
    tsltrc_wrf("%s", record);
    // A text of exactly 512 characters loses its last one without a note: the note begins behind the buffer's size.
    if (length > static_cast<int>(kRecordSize)) {
        tsltrc_wrf("%s", "Above message is truncated since it is greater than SSTMXFNM.\n");
    }
    // What a run traced before it died is what the trace is for.
    flush_stream(octx.trace_stream);
}

void trace_failure(const char *function, const char *format, ...) {
    char text[kFailureSize];
    va_list arguments;
    va_start(arguments, format);
    if (std::vsnprintf(text, sizeof text, format, arguments) < 0) text[0] = '\0';
    va_end(arguments);
    tslwnfswrf(3, function, "%s\n", text);
    terminal::note_failure(text);
}

Untraced::Untraced() : before_(std::exchange(octx.trace_on, 0)) {}

Untraced::~Untraced() {
    octx.trace_on = before_;
}

void tslwnfswrf_wide(uint32_t level, const char *function, const wchar_t *text) {
    tslwnfswrf(level, function, "%ls", text);
}

int32_t tsltrc_wrf(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int32_t result = tsltrc_tslprintf(format, arguments);
    va_end(arguments);
    return result;
}

int32_t tsltrc_tslprintf(const char *format, va_list arguments) {
    if (octx.trace_on == 1 && octx.trace_stream != nullptr) {
        static_cast<void>(std::vfprintf(octx.trace_stream, format, arguments));
        note_write(octx.trace_stream);
    }
    return 0;
}
