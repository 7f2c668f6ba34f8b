// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/frontend/output.h"

#include <cstdarg>

#include "platform/write_errors.h"
#include "tslwnfs/frontend/options.h"

bool output_is_log() {
    return octx.log_on == 1 && octx.log_stream != nullptr;
}

FILE *output_stream() {
    return output_is_log() ? octx.log_stream : stdout;
}

void print(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    static_cast<void>(std::vfprintf(output_stream(), format, arguments));
    note_write(output_stream());
    va_end(arguments);
}

bool print_bytes(const void *bytes, std::size_t size) {
    const bool taken = std::fwrite(bytes, 1, size, output_stream()) == size;
    if (!taken) note_write(output_stream());
    return taken;
}

int32_t lwrf(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    static_cast<void>(std::vfprintf(stdout, format, arguments));
    note_write(stdout);
    va_end(arguments);
    return 0;
}

void flush_output() {
    flush_stream(stdout);
    if (octx.log_stream != nullptr) flush_stream(octx.log_stream);
    if (octx.trace_stream != nullptr) flush_stream(octx.trace_stream);
}

Answer ask_yes_no(const char *format, const char *subject) {
    for (;;) {
        lwrf(format, subject);
        flush_output();
        char word[10] = {};
        if (std::scanf("%9s", word) != 1) return Answer::end_of_input;
        if (word[0] == 'y') return Answer::yes;
        if (word[0] == 'n') return Answer::no;
    }
}
