// SPDX-License-Identifier: Apache-2.0
// Reading the names of a directory, through the storage interface or on the local file system.
#pragma once

#include <functional>
#include <string_view>

#include "platform/path_buffer.h"
#include "tslwnfs/commands/name_list.h"

// Tells the names that are wanted; an empty one wants all.
using NameFilter = std::function<bool(std::string_view)>;

// Gives the wanted names of a directory, without "." and "..", in the order they are read. Traces what failed in the
// name of read_dir and returns false; a remote object that is not a directory is remarked upon in the output. complete,
// if given, becomes false when the directory has names besides that no path can hold.
[[nodiscard]] bool read_directory(const PathBuffer &path, NameList &names, bool *complete = nullptr,
                                  const NameFilter &wanted = {});
