// SPDX-License-Identifier: Apache-2.0
// The line that "stat -c FORMAT" prints.
#pragma once

#include <sys/stat.h>

#include <string>

#include "include/tdm.h"

// Replaces each "%" and the letter behind it by what the letter stands for: A permissions, F type, g and u owner ids, s
// size, n the path, x y z the times; any other character is dropped with its "%". No line feed is added. A missing
// format is an empty one.
std::string format_status(const char *format, const TdmAttributes &attributes, const char *path);
std::string format_status(const char *format, const struct stat &status, const char *path);
