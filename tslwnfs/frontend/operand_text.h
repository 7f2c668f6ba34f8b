// SPDX-License-Identifier: Apache-2.0
// The text of an operand and of a path, before a server or a file system is asked about it.
#pragma once

#include <string>
#include <string_view>

#include "tslwnfs/storage/operand.h"

// What was typed, without one trailing separator; a separator behind a ":" is a root and stays.
std::string text_of(const Operand &operand);

bool ends_in_separator(std::string_view text);
bool has_wildcard(const std::string &text);

// What names that are built are built from.
std::string as_built(const std::string &text);

// A path written with a drive letter that holds a second colon is lower-cased; "nfs:" is such a colon's usual reason
// and protects the path.
void lower_drive_path(std::string &path);

// A resolved path in two.
struct SplitPath {
    std::string directory;
    std::string name;

    explicit SplitPath(std::string_view path);
};
