// SPDX-License-Identifier: Apache-2.0
// ls and dir: one directory, or a tree, in one of three layouts.
#pragma once

#include <cstdint>

#include "platform/path_buffer.h"
#include "tslwnfs/commands/directory_reader.h"
#include "tslwnfs/commands/name_list.h"
#include "tslwnfs/output/printing.h"
#include "tslwnfs/storage/operand.h"

// Lists the names of a directory, without "." and "..", in the order they were read, and with print_names prints them.
// What is no directory is a list of its resolved path alone. Returns 0 or 1.
uint32_t read_dir(const Operand &path, NameList &names, int32_t print_names);

// Lists what lies in a directory, or of that what is wanted, as read_dir() does without printing, but follows a link to
// a directory. Returns 0, 1, kNoDirectory for what has no content, or kNamesLeftOut when the directory has names
// besides that no path can hold. What a listing told of the entries may be all that is asked about them afterwards.
constexpr uint32_t kNoDirectory = 2;
constexpr uint32_t kNamesLeftOut = 3;
enum class Afterwards : uint8_t { anything, attributes };
uint32_t list_content(const Operand &path, NameList &names, Afterwards afterwards = Afterwards::anything,
                      const NameFilter &wanted = {});

// For a directory whose content is about to be copied or deleted, when the status is to tell of failures in it: an
// empty one is none.
bool is_empty_directory(const PathBuffer &path);

// Lists a tree, a directory at a time, 50 levels deep at most. Returns 0 or 1.
uint32_t read_dirlist(const Operand &path, int32_t depth);

// Whether a link that lies on a server leads to a file of this host, which no command follows it to: with a record in
// the name of function.
[[nodiscard]] bool leads_off_server(const char *function, const PathBuffer &link, const PathBuffer &target);

// Gives the normalised target of a symbolic link. Returns 0 or 1; with a location code above 3 it returns 0 and leaves
// target empty.
uint32_t read_link(const Operand &path, PathBuffer &target);
