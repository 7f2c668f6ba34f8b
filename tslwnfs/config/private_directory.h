// SPDX-License-Identifier: Apache-2.0
// Directories that commands make for themselves.
#pragma once

// True when a directory stands; a missing one is made, one level of it, for its owner only. One that is there is used
// as it is, whatever its mode. Otherwise the reason is traced as a record of function.
[[nodiscard]] bool have_private_directory(const char *function, const char *path);
