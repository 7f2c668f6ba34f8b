// SPDX-License-Identifier: Apache-2.0
// Path resolution: every path a user types goes through sslnrmc before it is used.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "platform/path_buffer.h"
#include "tslwnfs/storage/operand.h"

// Returns 1 when the path needs the operating system's own resolution, else 0. The question-mark test is made on fname,
// the command's first operand, and not on path.
int32_t sslnpd(const char *path);

// Resolves path into resolved. Sets *status to 0 when resolved is usable, to 1 when it is not. Paths that sslnpd names
// are refused when they exist and passed on when they do not: that sense is intended.
void sslnrmc(uint32_t *status, const char *path, PathBuffer &resolved);

// The rule for every path of a command: what was typed goes through sslnrmc, what is ready is used as it is. Returns
// false, without a record of its own, when resolved is not usable.
[[nodiscard]] inline bool resolve_path(const Operand &path, PathBuffer &resolved) {
    if (!path.is_typed()) return resolved.assign(path.text());
    uint32_t status = 0;
    sslnrmc(&status, path.text(), resolved);
    return status == 0;
}

// Cuts one line feed off the end of a text.
void remove_newline(char *text);

// The position of the last separator of a path: the last "/" behind the last "\", or that "\" when no "/" follows it.
// Returns std::string_view::npos when there is none. What follows it is the last component, what precedes it the
// parent.
std::size_t last_separator(std::string_view path);

// For a command's operand, in the name of the command's function: refuses a missing path (message 65016) and one that
// cannot be resolved (message 65059 with the text as given). Both messages go to the trace. Only what was typed is
// resolved.
[[nodiscard]] bool resolve_operand(const char *function, const Operand &path, PathBuffer &resolved);

// Makes full the path of an entry of a directory. A name that would lead anywhere else, and a result that does not fit,
// are refused with a record.
[[nodiscard]] bool join_path(const char *function, const PathBuffer &directory, std::string_view name,
                             PathBuffer &full);

// Appends to a path. A result that does not fit is refused with message 65059 in the trace, and path keeps its text.
[[nodiscard]] bool extend_path(const char *function, PathBuffer &path, std::string_view text);
