// SPDX-License-Identifier: Apache-2.0
// ls and dir: one directory, or a tree, in one of three layouts.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/path_buffer.h"
#include "tslwnfs/storage/operand.h"

using NameList = std::vector<std::string>;

// Lists the names of a directory, without "." and "..", in the order they were read, and with print_names prints them.
// What is no directory is a list of its resolved path alone. Returns 0 or 1.
uint32_t read_dir(const Operand &path, NameList &names, int32_t print_names);

// Lists a tree, a directory at a time, 50 levels deep at most. Returns 0 or 1.
uint32_t read_dirlist(const Operand &path, int32_t depth);

// Gives the normalised target of a symbolic link. Returns 0 or 1; with a location code above 3 it returns 0 and leaves
// target empty.
uint32_t read_link(const Operand &path, PathBuffer &target);
