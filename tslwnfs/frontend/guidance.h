// SPDX-License-Identifier: Apache-2.0
// What a person at a terminal is told beside the usage text, which says the same to everybody.
#pragma once

#include <string_view>

// The command whose words and options are to be told once the run is over; anything but a command's word tells nothing.
void ask_for_synopsis(std::string_view command);
// Tells it, if one was asked for, and forgets it.
void tell_synopsis();

// A first word that is no command: notes that as the failure, with the command that was most likely meant.
void note_unknown_command(std::string_view word);

// The usage that a command's row stands for: its first line, and its options, a line each.
std::string_view synopsis_of(std::string_view command);
