// SPDX-License-Identifier: Apache-2.0
// Where a path with links in it leads. A ".." behind a link is the parent of the directory that the link leads to,
// which the text alone does not tell.
#pragma once

#include <string>
#include <string_view>

enum class LastComponent : uint8_t { kept, followed };

// The links of a path on a server. Gives the path without links, or an empty text when there are too many of them.
// Components that are on no mount, or that are missing, are taken as they stand.
std::string real_remote_path(std::string_view path, LastComponent last);

// The same for a path of this host; a path whose directory is missing is given back as it is.
std::string real_local_path(const std::string &path);
