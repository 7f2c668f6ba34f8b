// SPDX-License-Identifier: Apache-2.0
// Paths of this host as text. A path is absolute when it begins with "/" or when its first component ends in ":", as in
// "nfs:/a/b".
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace nfstdm {

using Components = std::vector<std::string>;

bool path_is_absolute(std::string_view path);

// The components of a path; empty ones and "." left out, ".." kept.
Components split_path(std::string_view path);

// Removes each ".." with the component before it; one at the start goes alone, for nothing lies above the root.
void collapse_parents(Components &components);

// "/a/b", or "nfs:/a/b" when the first component ends in ":"; "/" when there are none.
std::string join_path(const Components &components);

}  // namespace nfstdm
