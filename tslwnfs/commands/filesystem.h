// SPDX-License-Identifier: Apache-2.0
// fsinfo, fsstat and stat: what a server tells of its transfer limits, of its file system and of one object.
#pragma once

#include <cstdint>

// Prints the transfer limits and the attributes of a remote directory, or the status of a local path. Returns 0 or 1.
uint32_t fsinfodir(const char *path);

// Prints the file system's figures, the object's attributes, or a line in the format of stat_fmtptr, as COMMAND_OPTION
// says. Returns 0 or 1.
uint32_t fsstatdir(const char *path);
