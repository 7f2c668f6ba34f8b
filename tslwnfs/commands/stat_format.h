// SPDX-License-Identifier: Apache-2.0
// The one-line form of stat: a format whose directives stand for what is known of an object.
#pragma once

#include <sys/stat.h>

#include <string>
#include <string_view>

#include "include/tdm.h"

// Replaces A (permissions), F (type), g, u (owner), s (size), n (path) and x, y, z (times of access, modification and
// status change, each with its line feed). "%" with any other character behind it, and a "%" at the end, vanish.
std::string format_remote(std::string_view format, std::string_view path, const TdmAttributes &attributes);
std::string format_local(std::string_view format, std::string_view path, const struct stat &status);
