// SPDX-License-Identifier: Apache-2.0
// Standard error while a person looks at it. Scripts and pipes see nothing of what is said and shown here.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string_view>

namespace terminal {

// From now on things are said and shown, when standard error is a terminal or TSLWNFS_TERMINAL is "always"; where that
// is "reasons" they are said, and nothing is shown. Without this call nothing ever is.
void open();
// Nothing is said and shown any more.
void close();
bool is_open();

// One line of the program's, behind its name. It comes after what the command has printed so far. A worker process
// keeps it until it is its file's turn; how it is going with a server is worth being read at once, and what it says
// with its last breath it says itself.
enum class When : uint8_t { in_order, at_once, at_the_end };
void say(std::string_view line, When when = When::in_order);

// For a worker process: what is said goes there, and nothing is shown.
using Diversion = void (*)(std::string_view line, When when);
void divert(Diversion diversion);

// Shows a line that the next one replaces and that leaves nothing behind; nothing while the program is in the
// background. line fits columns().
void show(std::string_view line);
void erase();
// The same, from the handler of a signal.
void erase_in_handler();

// What a line that is shown may take.
std::size_t columns();

// True for a stream into a file: what is shown does not get between what is printed there, as it might in a pipe that
// ends at the terminal.
bool leads_to_file(FILE *stream);

}  // namespace terminal
