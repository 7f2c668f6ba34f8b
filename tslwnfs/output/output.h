// SPDX-License-Identifier: Apache-2.0
// Where a command's output goes, and how a question is asked.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

// True while results, banners and printed messages go to the log file instead of standard output.
bool output_is_log();

// From now on nothing is printed on standard output, nor asked there: it belongs to the data that dd writes to it.
void leave_standard_output_to_data();
bool standard_output_is_for_data();

// The log stream while the log is on, else standard output.
FILE *output_stream();

// Formatted text to output_stream().
void print(const char *format, ...) __attribute__((format(printf, 1, 2)));

// A name as a stream may show it. Names come from servers and may hold anything: a terminal gets question marks for
// what it does not print, the log for line feeds, and every other stream the bytes.
std::string shown_name(std::string_view name, FILE *stream = output_stream());

// For a process that is about to write elsewhere on behalf of this one: names go on being shown as they are where
// standard output and the log lead now.
void remember_terminals();

// Bytes to output_stream(). False, with errno set, when not all of them were taken.
[[nodiscard]] bool print_bytes(const void *bytes, std::size_t size);

// Formatted text to standard output, log or not: usage, questions, and what is meant for another program. Returns 0.
int32_t lwrf(const char *format, ...) __attribute__((format(printf, 1, 2)));

// Brings what was printed so far to where it goes, ahead of what somebody else prints there.
void flush_output();

// Prints a question ("%s" in it is subject) on standard output, log or not, flushes it, and reads one word of at most
// nine characters from standard input; the rest of a longer word answers the next question. Only a lower-case "y" or
// "n" in front counts; anything else asks again. The end of the input is a refusal. A refusal is the reason why the
// subject, if there is one, stays as it is.
enum class Answer : uint8_t { yes, no, end_of_input };
Answer ask_yes_no(const char *format, const char *subject);
