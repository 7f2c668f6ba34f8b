// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/frontend/output.h"

#include <cstdarg>

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
    va_end(arguments);
}

int32_t lwrf(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    static_cast<void>(std::vfprintf(stdout, format, arguments));
    va_end(arguments);
    return 0;
}

Answer ask_yes_no(const char *format, const char *subject) {
    for (;;) {
        static_cast<void>(std::fprintf(stdout, format, subject));
        static_cast<void>(std::fflush(nullptr));
        char word[10] = {};
        if (std::scanf("%9s", word) != 1) return Answer::end_of_input;
        if (word[0] == 'y') return Answer::yes;
        if (word[0] == 'n') return Answer::no;
    }
}
