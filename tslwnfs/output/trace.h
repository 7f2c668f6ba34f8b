// SPDX-License-Identifier: Apache-2.0
// The trace: records "[clock],function text", and the filter that lets them through.
#pragma once

#include <cstdarg>
#include <cstdint>

// Writes one record when tslwnfs_trace is not 0 and not above level. A record holds at most 511 characters; a longer
// one is cut and followed by a note. Formats are the caller's own literals; numbered messages go through
// trace_message().
void tslwnfswrf(uint32_t level, const char *function, const char *format, ...) __attribute__((format(printf, 3, 4)));

// As tslwnfswrf with level 3, for what a command failed at without a numbered message: it is the reason that a person
// at the terminal reads. Without a line end.
void trace_failure(const char *function, const char *format, ...) __attribute__((format(printf, 2, 3)));

// As tslwnfswrf, for the one record whose format holds a wide-string conversion.
void tslwnfswrf_wide(uint32_t level, const char *function, const wchar_t *text);

// While one lives nothing is traced, by the storage library neither: for what belongs to no file at hand.
class Untraced {
  public:
    Untraced();
    ~Untraced();
    Untraced(const Untraced &) = delete;
    Untraced &operator=(const Untraced &) = delete;

  private:
    int32_t before_;
};

// Formatted text to the trace stream while tracing is on, with no head and no filter. Returns 0.
int32_t tsltrc_wrf(const char *format, ...) __attribute__((format(printf, 1, 2)));
int32_t tsltrc_tslprintf(const char *format, va_list arguments) __attribute__((format(printf, 1, 0)));
