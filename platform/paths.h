// SPDX-License-Identifier: Apache-2.0
// Name translation and path normalisation, as an installation gives them to its programs.
#pragma once

#include <string_view>

#include "platform/path_buffer.h"

// Makes a path absolute against the working directory, removes "//" and "." and resolves ".." by text. Links are not
// followed, backslashes and wildcard characters are left alone. A path whose first component ends in ":" (such as
// "nfs:/a/b", "c:/x" or "c:\x") counts as absolute. Returns false for an empty path and for a result that does not fit.
[[nodiscard]] bool platform_normalize_path(std::string_view path, PathBuffer &normalized);

// Copies a name, with a leading home marker ("?", "?#" or "?=") replaced by the installation home. Returns false when
// the marker yields nothing or the result does not fit.
[[nodiscard]] bool platform_translate_name(std::string_view name, PathBuffer &translated);
