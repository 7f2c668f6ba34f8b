// SPDX-License-Identifier: Apache-2.0
// The command that find runs for a match.
#pragma once

#include <optional>
#include <string>
#include <string_view>

// The shell command for one match: the words of -exec, each followed by a blank, with the path in place of each word
// that is exactly "{}". A path that holds characters with a meaning to the shell is quoted, so that the shell sees one
// word, the name itself. Nothing when there are no words or the command exceeds 512 characters.
std::optional<std::string> command_for_match(std::string_view path);

// Runs it, after flushing what was printed. Its result is ignored.
void run_for_match(std::string_view path);
