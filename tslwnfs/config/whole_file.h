// SPDX-License-Identifier: Apache-2.0
// Small text files, read and written as a whole. A file that an administrator keeps is never written from a half-read
// one, and a write counts as done only when the system has confirmed it.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

#include "platform/stream.h"

// Replaces contents by those of a file. False, with errno set, when it cannot be opened or read to its end. A pipe and
// whatever else is no regular file is refused: reading it might wait for ever.
[[nodiscard]] bool read_whole_file(const char *path, std::string &contents);

// Opens a file for writing. One that is missing is made, for its owner alone: its permissions are given afterwards.
// In a directory that is its group's (set-gid, and writable for the group) a file that the group may read is the
// group's to change. Null, with errno set, when it cannot be opened; a pipe counts as that, because it might be waited
// for.
// A link is followed where may_follow() says so.
enum class Writing { anew, at_end };
[[nodiscard]] Stream open_for_writing(const char *path, Writing writing, mode_t mode = 0600);

// Writes what a stream is to hold, brings it to stable storage and closes the stream. False, with errno set, when not
// everything arrived.
[[nodiscard]] bool write_and_close(Stream &stream, std::string_view contents);

// Adds a text to the end of a file and brings it to stable storage. A missing file is created with a mode, less the
// umask. A text that does not fit is taken back, so that no half of it stays.
enum class Written { done, not_opened, not_written };  // errno is set after the failures
constexpr mode_t kOrdinaryFile = 0666;
[[nodiscard]] Written append_to_file(const char *path, std::string_view text, mode_t mode = kOrdinaryFile);

// Puts new contents into a file's place in one step: whoever looks meanwhile finds the old file or the new one, and a
// failure leaves the old one. The permissions stay; a missing file gets those of the file like, or without one an
// ordinary file's. What cannot be replaced so, because it is no regular file or nothing more fits beside it, is written
// where it is.
[[nodiscard]] Written replace_file(const char *path, std::string_view contents, const char *like = nullptr);

// True for a link that was made by the caller or by the owner of its directory. Whoever else may write there could lead
// the caller to any file with it.
bool may_follow(const char *path);

// False only when the system says that there is no such file. What is there but cannot be opened counts as existing,
// so that it is not overwritten unasked.
bool may_exist(const char *path);

// True when both names lead to one file, by links perhaps: opening one for writing would empty the other.
bool is_same_file(const char *one, const char *other);

// Give the regular file behind a stream the owner, where the system allows it, the group and the permissions of another
// file. Where even the group cannot be kept, nobody but the owner may do anything: the bits would speak of other
// people. The second kind gives at most those permissions that the file has already. False, with errno set, when the
// file stays open to more than the other one: what that one keeps to itself must not be written into it.
[[nodiscard]] bool take_permissions(const Stream &stream, const char *from);
[[nodiscard]] bool limit_permissions(const Stream &stream, const char *from);
