// SPDX-License-Identifier: Apache-2.0
// Small text files, read and written as a whole. A file that an administrator keeps is never written from a half-read
// one, and a write counts as done only when the system has confirmed it.
#pragma once

#include <string>
#include <string_view>

#include "platform/stream.h"

// Replaces contents by those of a file. False, with errno set, when it cannot be opened or read to its end.
[[nodiscard]] bool read_whole_file(const char *path, std::string &contents);

// Writes what a stream is to hold, brings it to stable storage and closes the stream. False, with errno set, when not
// everything arrived.
[[nodiscard]] bool write_and_close(Stream &stream, std::string_view contents);

// Adds a text to the end of a file, which is created when missing. A text that does not fit is taken back, so that no
// half of it stays.
enum class Append { done, not_opened, not_written };  // errno is set after the failures
[[nodiscard]] Append append_to_file(const char *path, std::string_view text);

// False only when the system says that there is no such file. What is there but cannot be opened counts as existing,
// so that it is not overwritten unasked.
bool may_exist(const char *path);

// True when both names lead to one file, by links perhaps: opening one for writing would empty the other.
bool is_same_file(const char *one, const char *other);

// Gives the regular file behind a stream the permissions and, where the system allows it, the owner of another file.
void take_permissions(const Stream &stream, const char *from);
