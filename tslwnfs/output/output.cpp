// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/output/output.h"

#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <optional>

#include "platform/write_errors.h"
#include "tslwnfs/output/product_context.h"
#include "tslwnfs/terminal/reasons.h"
#include "tslwnfs/terminal/screen.h"
#include "tslwnfs/terminal/text.h"

namespace {

// Nearly every name, and worth no question to the system.
bool is_plain(std::string_view name) {
    return std::all_of(name.begin(), name.end(), [](char c) { return c >= ' ' && c <= '~'; });
}

bool for_data = false;  // standard output

// Whether standard output and the log are terminals, as it was when that was to be remembered.
struct Terminals {
    bool output = false, log = false;
};
std::optional<Terminals> remembered;

bool is_terminal(FILE *stream) {
    if (!remembered) return isatty(fileno(stream)) != 0;
    return stream == octx.log_stream ? remembered->log : stream == stdout && remembered->output;
}

// Whoever declined knows why; who finds out from a script's log does not.
void note_refusal(const char *subject, const char *why) {
    if (subject[0] != '\0') terminal::note_failure(std::string(subject) + " stays as it is: " + why);
}

}  // namespace

bool output_is_log() {
    return octx.log_on == 1 && octx.log_stream != nullptr;
}

void leave_standard_output_to_data() {
    for_data = true;
}

bool standard_output_is_for_data() {
    return for_data;
}

FILE *output_stream() {
    return output_is_log() ? octx.log_stream : stdout;
}

void print(const char *format, ...) {
    if (for_data && !output_is_log()) return;
    terminal::erase();
    va_list arguments;
    va_start(arguments, format);
    static_cast<void>(std::vfprintf(output_stream(), format, arguments));
    note_write(output_stream());
    va_end(arguments);
}

std::string shown_name(std::string_view name, FILE *stream) {
    if (is_plain(name)) return std::string(name);
    if (is_terminal(stream)) return terminal::printable(name);
    std::string shown(name);
    if (stream == octx.log_stream) std::replace(shown.begin(), shown.end(), '\n', '?');
    return shown;
}

void remember_terminals() {
    remembered = Terminals{is_terminal(stdout), octx.log_stream != nullptr && is_terminal(octx.log_stream)};
}

bool print_bytes(const void *bytes, std::size_t size) {
    const bool taken = std::fwrite(bytes, 1, size, output_stream()) == size;
    if (!taken) note_write(output_stream());
    return taken;
}

int32_t lwrf(const char *format, ...) {
    if (for_data) return 0;
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
        lwrf(format, shown_name(subject, stdout).c_str());
        flush_output();
        char word[10] = {};
        if (std::scanf("%9s", word) != 1) {
            note_refusal(subject, "the question got no answer");
            return Answer::end_of_input;
        }
        if (word[0] == 'y') return Answer::yes;
        if (word[0] == 'n') {
            note_refusal(subject, "the answer was no");
            return Answer::no;
        }
    }
}
