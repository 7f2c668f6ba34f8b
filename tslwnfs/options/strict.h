// SPDX-License-Identifier: Apache-2.0
// TSLWNFS_STRICT, for those who want it strict: a list of words, each of which changes something that is otherwise
// fixed for the sake of the scripts that rely on it.
#pragma once

#include <cstdint>
#include <string_view>

enum class Strict : uint8_t {
    names,     // names keep their case
    location,  // what belongs on a server never goes to the local disk, nor does a path that was resolved in part
    status,    // a recursive command fails when something inside it failed
    options,   // unknown words and unreadable numbers of the command line are errors
    modes,     // a copy gets the permission bits of its source
};

// Reads the variable, and forgets earlier objections. A word that it does not know is warned of at a terminal.
void read_strictness();

bool is_strict(Strict word);

// A word of the command line is wrong, and why. Under options that is an error; otherwise it is noted what becomes of
// the word, for who is at a terminal.
void object_to(std::string_view word, std::string_view why, std::string_view outcome);
bool has_objection();
// The command, by its word, is going to run all the same: warns of what was noted.
void warn_of_objections(std::string_view command);
