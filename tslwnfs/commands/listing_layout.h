// SPDX-License-Identifier: Apache-2.0
// Printing a list of names in one of the three layouts.
#pragma once

#include "platform/path_buffer.h"
#include "tslwnfs/commands/name_list.h"

// What the names of a list stand for.
enum class Listed : uint8_t {
    directory,   // entries of the directory
    single_path  // one object, named by its own path
};

// Whether the layout shows more of the entries than their names.
bool shows_attributes();

// Prints names to the command's output as DIR_LTYPE, DIR_SHOWDOT, DIR_LTIMETYPE and the listing bits of COMMAND_OPTION
// say. Attributes are fetched when the layout shows or needs them; names whose attributes cannot be had are left out.
// Returns whether there were none of those.
bool print_listing(const PathBuffer &path, const NameList &names, Listed listed);
